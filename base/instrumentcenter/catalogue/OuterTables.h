#pragma once

#include <map>
#include <set>
#include <string>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

namespace mxservice {

/// The catalogue of outer (foreign) futures markets. Outer market keys are what the records carry in their listing
/// date.
struct OuterTables {
    std::map<std::string, std::string> productNames;                // by product id
    std::map<std::string, std::string> marketNames;                 // by outer market key
    std::map<std::string, std::set<std::string>> productsByMarket;  // by outer market key
    std::set<std::string> commodityProducts;
    std::set<std::string> interestProducts;
};

/// What the main-contract records of the outer markets say. A record puts its product
/// into one group at most, commodity before interest; a product whose records say both stands in both sets.
OuterTables deriveOuterTables(const GroupedSnapshot& grouped, const std::set<MarketKey>& outerMarkets);

/// Adds the names to those that are there and replaces everything else. `fresh` leaves with what was replaced.
void install(OuterTables& fresh, OuterTables& tables);

}  // namespace mxservice
