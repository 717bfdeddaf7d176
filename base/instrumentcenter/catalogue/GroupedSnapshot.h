#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {

using InstrumentPtr = boost::shared_ptr<CInstrumentDetail>;

/// The key text of a record, made of its own market and code. Never its virtual getKey(): a host's class may answer
/// that with anything, and both centers answer under the same keys whatever it says.
inline std::string keyTextOf(const CInstrumentDetail& record) {
    return utils::ovStockKey(record.market, record.code);
}

/// The records of one market, by stock key.
using MarketRecords = std::map<std::uint64_t, InstrumentPtr>;
/// A batch of records by (folded) market key; what the indexes and the derived catalogues are built from.
using GroupedSnapshot = std::map<std::uint64_t, MarketRecords>;

/// For each Hong Kong stock key, the connect markets that listed it in the batch, each with the connect flag value of
/// its first listing.
using ConnectListings = std::map<std::uint64_t, std::map<std::uint64_t, std::int32_t>>;

/// How many records of a batch go to each market, those that another one of their key outranks among them.
using ReceivedByMarket = std::map<std::uint64_t, std::size_t>;

class DroppedList;

/// Adds records to a grouped snapshot, as if one after the other in their order; empty pointers are skipped.
///
/// "HGT" and "SGT" records go under "HK" with a key formed with "HK" and replace whatever is there; their market field
/// stays. A plain "HK" record is added only where nothing is yet. An "SHFI" record goes under "SH" only where nothing
/// is yet, and its market field is then overwritten with "SH". Elsewhere the last record of a key wins. So a connect
/// listing wins over a plain Hong Kong record and a plain Shanghai record over an "SHFI" one, whichever comes first.
/// Who loses is named in `dropped`.
ReceivedByMarket groupRecords(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped,
                              ConnectListings& listings, DroppedList& dropped);

/// The tie-break of the connect build, deliberately the other way round: of "HGT", "SGT" and "HK" records the last one
/// of a code wins, connect or not; records of other markets are left out.
ReceivedByMarket groupConnectRecords(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped,
                                     ConnectListings& listings, DroppedList& dropped);

/// Sets the combined connect flags of listed Hong Kong records where they are still 0: 5 for a code listed by both
/// connect markets, 1 for "HGT" alone, 3 for "SGT" alone. The in-memory center's rule.
void markConnectEligibility(GroupedSnapshot& grouped, const ConnectListings& listings);
/// What such flags say: the connect markets that list the code.
std::map<std::uint64_t, std::int32_t> listingsMarked(std::uint32_t combinedFlags);

/// The persisted center's rule, deliberately another one: bits 0 and 1 from the Shanghai listing's flag value, bits 2
/// and 3 from the Shenzhen one's, where nothing is set yet.
void combineConnectFlags(GroupedSnapshot& grouped, const ConnectListings& listings);
/// What such flags say: the flag values of the listings.
std::map<std::uint64_t, std::int32_t> listingsCombined(std::uint32_t combinedFlags);

}  // namespace mxservice
