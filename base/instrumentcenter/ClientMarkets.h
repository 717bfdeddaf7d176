#pragma once

#include <string_view>
#include <vector>

#include "base/instrumentcenter/ClientVersion.h"
#include "base/instrumentcenter/store/Documents.h"

// The records of a market, read in one sweep. They do not enter the record cache: one sweep would push everything else
// out.

namespace mxservice {

/// Of a market whose last write went well the records that `wanted` accepts: those of its database, and behind them the
/// unwritten ones of keys that the database lacks.
template <class Wanted>
std::vector<InstrumentPtr> writtenRecords(const ClientVersion& version, MarketKey key, const Wanted& wanted) {
    const Market& market = version.market(key);
    // Of what was unwritten on a former day only keys that today's listing has and its database lost: a document is
    // newer, also one that is not wanted.
    MarketRecords lost = market.unwritten ? *market.unwritten : MarketRecords();
    std::erase_if(lost, [&](const auto& entry) {
        const MarketKey* const filed = version.keys.marketOf(entry.first);
        return !entry.second || filed == nullptr || *filed != key;
    });
    std::vector<InstrumentPtr> records;
    if (!market.isDropped) {
        const auto keep = [&](std::string_view keyText, const InstrumentPtr& record) {
            if (!lost.empty()) {
                lost.erase(documentKey(keyText));
            }
            return wanted(record);
        };
        records = readRecords<CInstrumentDetail>(market.db, recordOf<CInstrumentDetail>, keep);
    }
    for (const auto& [stock, record] : lost) {
        if (wanted(record)) {
            records.push_back(record);
        }
    }
    return records;
}

/// Adds what a market lists and `wanted` accepts: where its last write failed what that was to bring, else as above.
/// Nothing for a market that no load has brought.
template <class Wanted>
void addListed(const ClientVersion& version, MarketKey key, const Wanted& wanted, std::vector<InstrumentPtr>& out) {
    if (version.keys.keysOf(key) == nullptr) {
        return;
    }
    const Market& market = version.market(key);
    if (!market.unwrittenIsNewest || !market.unwritten || market.unwritten->empty()) {
        const std::vector<InstrumentPtr> records = writtenRecords(version, key, wanted);
        out.insert(out.end(), records.begin(), records.end());
        return;
    }
    for (const auto& [stock, record] : *market.unwritten) {
        if (record && wanted(record)) {
            out.push_back(record);
        }
    }
}

}  // namespace mxservice
