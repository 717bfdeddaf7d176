#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"

namespace mxservice {

/// The main contracts of one futures market: every record whose main-contract flag is 1; a product may have several.
struct MainContracts {
    KeySet all;
    std::map<std::string, KeySet> byProduct;
};

/// Main contracts of the futures markets of a snapshot; a market without any has an empty entry.
std::map<MarketKey, MainContracts> deriveMainContracts(const GroupedSnapshot& grouped,
                                                       const std::set<MarketKey>& futureMarkets);

/// The contracts of each product of the futures markets of a snapshot, whatever their flag.
std::map<std::string, std::vector<InstrumentPtr>> deriveProductContracts(const GroupedSnapshot& grouped,
                                                                         const std::set<MarketKey>& futureMarkets);

/// Pairs of leg codes.
using SpreadPairs = std::vector<std::pair<std::string, std::string>>;

struct DceSpreads {
    SpreadPairs crossProduct;  // "SPC a2101&m2101"
    SpreadPairs crossPeriod;   // "SP a2101&a2105"
};

/// Whether the code of a record of "DCE" may be that of a spread.
bool isDceSpread(const CInstrumentDetail& record);

/// The spread contracts of "DCE"; nothing when the snapshot has no such market. Codes of another form are passed over.
std::optional<DceSpreads> deriveDceSpreads(const GroupedSnapshot& grouped);

/// The futures catalogues of a center; keys are stock keys.
struct FuturesCatalogue {
    std::map<MarketKey, KeySet> mainCodesByMarket;
    std::map<std::string, KeySet> mainCodesByProduct;
    DceSpreads spreads;
};

/// Replaces the market's main contracts, also by none, and those of every product that has any; products that do not
/// occur keep theirs. `mains` leaves with the former sets, to be destroyed when the caller holds no lock.
void installMainContracts(MarketKey market, MainContracts& mains, FuturesCatalogue& catalogue);

/// Takes a market with these keys out: its main contracts, as a market and among those of the products, and of Dalian
/// the spreads. A product that has none left is not listed any more.
void removeMarket(MarketKey market, const KeySet& keys, FuturesCatalogue& catalogue);

/// Takes keys that are unfiled out of the main contracts, of markets and of products. A product that has none left is
/// not listed any more.
void removeKeys(const KeySet& keys, FuturesCatalogue& catalogue);

/// The hashes of the six futures exchanges.
std::set<MarketKey> futureMarketKeys();

}  // namespace mxservice
