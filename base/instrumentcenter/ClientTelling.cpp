#include "base/instrumentcenter/ClientTelling.h"

#include <cstddef>
#include <set>
#include <utility>

#include "base/instrumentcenter/boundary/Records.h"
#include "base/instrumentcenter/store/Documents.h"

namespace mxservice {

ClientTelling::ClientTelling(ClientState& client)
    : client_(client), former_(client.subscribers.any() ? client.hold() : nullptr), holdBack_(client.subscribers) {}

ClientTelling::~ClientTelling() {
    if (!former_) {
        return;
    }
    try {
        change_.version = client_.ask([](const ClientVersion& version) noexcept { return version.number; });
        const std::uint64_t version = change_.version;
        const auto note = client_.subscribers.note(version, [change = std::move(change_)] { return change; });
        client_.subscribers.show(*note);  // everything is published by now; told when the hold ends
    } catch (const std::bad_alloc&) {
        // The load itself has ended well: the subscribers miss this change, which the next version's number shows.
    }
}

void ClientTelling::addMarket(const std::string& name) {
    if (former_ && !name.empty()) {
        change_.markets.push_back(name);
    }
}

void ClientTelling::compare(const InstrumentPtr& before, const InstrumentPtr& after) {
    const bool same = before == after || (before && after && areEqual(*before, *after));
    if (former_ && !same) {
        change_.instruments.push_back({before, after});
    }
}

void ClientTelling::compare(MarketKey market, const std::string& name, const MarketRecords& records, bool isWhole) {
    if (!former_) {
        return;
    }
    addMarket(name);
    const Market& known = former_->market(market);
    if (known.unwrittenIsNewest && known.unwritten) {
        for (const auto& [key, before] : *known.unwritten) {
            const auto after = records.find(key);
            if (after != records.end() || isWhole) {
                compare(before, after == records.end() ? nullptr : after->second);
            }
        }
        for (const auto& [key, after] : records) {
            if (known.unwritten->count(key) == 0) {
                compare(nullptr, after);
            }
        }
        return;
    }
    // A market that no load of this center has brought has nothing for readers, whatever an earlier process left.
    compareStored(known.isDropped ? std::string() : known.db, records, isWhole);
}

void ClientTelling::compareEmptied(const std::vector<std::string>& markets, const GroupedSnapshot& brought) {
    if (!former_) {
        return;
    }
    std::set<std::string> names;  // "HGT" and "SGT" are one market
    for (const std::string& market : markets) {
        names.emplace(foldedMarket(market));
    }
    for (const std::string& name : names) {
        if (brought.count(marketKey(name)) == 0) {
            compare(marketKey(name), name, {}, true);
        }
    }
}

/// Documents and batch in step, in the order of the document keys. Nearly all records of a load are as they were: the
/// bytes of their documents tell, and no record is made of those.
void ClientTelling::compareStored(const std::string& db, const MarketRecords& records, bool isWhole) {
    const DocumentBatch batch(records);
    std::size_t next = 0;
    const auto recordAt = [&](std::size_t entry) { return records.at(documentKey(batch.key(entry))); };
    if (!db.empty()) {
        store().visitAll(db, [&](std::string_view key, Document document) {
            for (; next < batch.size() && batch.key(next) < key; ++next) {
                compare(nullptr, recordAt(next));
            }
            if (next < batch.size() && batch.key(next) == key) {
                if (!areSame(batch.value(next), document)) {
                    compare(recordOf<CInstrumentDetail>(document), recordAt(next));
                }
                ++next;
            } else if (isWhole) {
                compare(recordOf<CInstrumentDetail>(document), nullptr);
            }
            return true;
        });
    }
    for (; next < batch.size(); ++next) {
        compare(nullptr, recordAt(next));
    }
}

}  // namespace mxservice
