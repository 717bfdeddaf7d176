#include "base/instrumentcenter/catalogue/OuterTables.h"

#include <utility>

namespace mxservice {

OuterTables deriveOuterTables(const GroupedSnapshot& grouped, const std::set<MarketKey>& outerMarkets) {
    constexpr std::int32_t kMainContract = 1;
    OuterTables tables;
    for (const auto& [market, records] : grouped) {
        if (outerMarkets.count(market) == 0) {
            continue;
        }
        for (const auto& [key, record] : records) {
            if (!record || record->mainContractFlag != kMainContract) {
                continue;
            }
            // An outer future tells no listing date; that field carries the key of its market.
            const std::string& outerMarket = record->listingDate;
            tables.productNames[record->productId] = record->productName;
            tables.marketNames[outerMarket] = record->outerMarketName;
            tables.productsByMarket[outerMarket].insert(record->productId);
            if (COutterFutureHelper::isCommdityGroup(record)) {
                tables.commodityProducts.insert(record->productId);
            } else if (COutterFutureHelper::isInterestGroup(record)) {
                tables.interestProducts.insert(record->productId);
            }
        }
    }
    return tables;
}

void install(OuterTables& fresh, OuterTables& tables) {
    // Names outlive their products, so that what is held from before can still be shown; all else is of this load. Of
    // two names the new one wins: merge() leaves alone what is there.
    fresh.productNames.merge(tables.productNames);
    fresh.marketNames.merge(tables.marketNames);
    std::swap(fresh, tables);
}

}  // namespace mxservice
