#include "base/instrumentcenter/ClientTelling.h"

#include <cstddef>
#include <iterator>
#include <utility>

#include "base/instrumentcenter/boundary/Records.h"
#include "base/instrumentcenter/store/Documents.h"

namespace mxservice {
namespace {

void addUnwrittenDifference(const MarketRecords& unwritten, const MarketRecords& records, bool isWhole,
                            CatalogueChange& change) {
    for (const auto& [key, before] : unwritten) {
        const auto after = records.find(key);
        // A part that leaves a record out leaves it as it was; a whole market does not.
        if (after != records.end() || isWhole) {
            addDifference(before, after == records.end() ? nullptr : after->second, change);
        }
    }
    for (const auto& [key, after] : records) {
        if (unwritten.count(key) == 0) {
            addDifference(nullptr, after, change);
        }
    }
}

/// Documents and batch in step, in the order of the document keys. Nearly all records of a load are as they were: the
/// bytes of their documents tell, and no record is made of those.
void addStoredDifference(const std::string& db, const MarketRecords& records, bool isWhole, CatalogueChange& change) {
    // Both go through once and side by side, for a market's documents need not fit into memory as records.
    const DocumentBatch batch(records);
    std::size_t next = 0;
    const auto recordAt = [&](std::size_t entry) { return records.at(documentKey(batch.key(entry))); };
    if (!db.empty()) {
        store().visitAll(db, [&](std::string_view key, Document document) {
            for (; next < batch.size() && batch.key(next) < key; ++next) {
                addDifference(nullptr, recordAt(next), change);
            }
            if (next < batch.size() && batch.key(next) == key) {
                if (!areSame(batch.value(next), document)) {
                    addDifference(recordOf<CInstrumentDetail>(document), recordAt(next), change);
                }
                ++next;
            } else if (isWhole) {
                addDifference(recordOf<CInstrumentDetail>(document), nullptr, change);
            }
            return true;
        });
    }
    for (; next < batch.size(); ++next) {
        addDifference(nullptr, recordAt(next), change);
    }
}

}  // namespace

void add(CatalogueChange part, CatalogueChange& whole) {
    whole.instruments.insert(whole.instruments.end(), std::make_move_iterator(part.instruments.begin()),
                             std::make_move_iterator(part.instruments.end()));
    whole.markets.insert(whole.markets.end(), part.markets.begin(), part.markets.end());
}

void addDifference(const InstrumentPtr& before, const InstrumentPtr& after, CatalogueChange& change) {
    if (before != after && !(before && after && areEqual(*before, *after))) {
        change.instruments.push_back({before, after});
    }
}

CatalogueChange marketDifference(const Market& known, std::string name, const MarketRecords& records, bool isWhole) {
    CatalogueChange change;
    if (known.unwrittenIsNewest && known.unwritten) {
        addUnwrittenDifference(*known.unwritten, records, isWhole, change);
    } else {
        // What an earlier process has left, and what an unwritten batch had taken the place of, no list has.
        addStoredDifference(known.isStale ? std::string() : known.db, records, isWhole, change);
    }
    // Of a market that is forgotten only the hash is known; where it had no record, nobody can be told its name.
    if (name.empty() && !change.instruments.empty()) {
        const CatalogueChange::Item& any = change.instruments.front();
        name = foldedMarket((any.after ? any.after : any.before)->market);
    }
    if (!name.empty()) {
        change.markets.push_back(std::move(name));
    }
    return change;
}

}  // namespace mxservice
