#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/catalogue/CodeSets.h"
#include "base/instrumentcenter/catalogue/FiledKeys.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"

namespace mxservice {

/// Changes of single records as both centers file them. What is derived follows record by record, so that a change
/// costs what it changes and not what its market has; only what no single record tells is derived from a whole listing.
struct Amendment {
    GroupedSnapshot upserts;      // by folded market
    ConnectListings listings;     // of the upserts
    KeySet removed;               // folded, without those that an upsert brings again
    std::set<std::string> texts;  // key texts of both

    /// The keys of both.
    KeySet touched() const;
};

/// Fills in what is removed, once the upserts are grouped.
void setRemoved(const std::vector<std::string>& removedKeys, Amendment& amendment);

/// What was filed under the touched keys.
struct FormerRecord {
    MarketKey market;
    InstrumentPtr record;  // null where it cannot be had
};
using FormerRecords = std::map<StockKey, FormerRecord>;

/// Adds to the listings of Hong Kong upserts what the filed record's flags say of connect markets that they are not of
/// themselves: a correction of one listing leaves the others as they are.
void keepListings(const FormerRecords& former,
                  std::map<std::uint64_t, std::int32_t> (*listingsOf)(std::uint32_t combinedFlags),
                  Amendment& amendment);

/// The upserted keys by market, and the removed ones that were filed.
FiledKeys::Sets upsertedKeys(const Amendment& amendment);
std::map<MarketKey, KeySet> goneKeys(const Amendment& amendment, const FormerRecords& former);

/// Whether one of the keys is a main contract.
bool namesMainContract(const KeySet& keys, const FuturesCatalogue& catalogue);
/// Takes the touched keys out of the main contracts, and those of the upserts that are some in.
void amendMainContracts(const KeySet& touched, const std::map<MarketKey, MainContracts>& mains,
                        FuturesCatalogue& catalogue);

/// The same for issues, receipts and inquiry codes. Whether a record is of today counts for the upserts alone.
void amendCodes(const Amendment& amendment, CodeSets& sets);

/// The markets of which something must be derived anew, from all that they list: "DCE" where a spread comes or goes,
/// "SHO" and "SZO" where an option leaves its product, which others may or may not have still.
std::set<std::string> marketsToDerive(const Amendment& amendment, const FormerRecords& former);
/// Derives it. `listings` has these markets whole.
void installDerived(const GroupedSnapshot& listings, FuturesCatalogue& futures, CodeSets& sets);

}  // namespace mxservice
