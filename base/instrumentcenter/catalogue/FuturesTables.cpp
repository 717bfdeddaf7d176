#include "base/instrumentcenter/catalogue/FuturesTables.h"

#include <iterator>
#include <string_view>

#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/Split.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {
namespace {

constexpr std::int32_t kMainContract = 1;
constexpr std::string_view kCrossProductPrefix = "SPC";
constexpr std::string_view kCrossPeriodPrefix = "SP";

/// The two legs of "PREFIX first&second"; false for a code of any other form.
bool splitLegs(std::string_view code, SpreadPairs& pairs) {
    // Each blank separates, two of them an empty word: the exchange writes one, and other texts are no spreads of it.
    const auto words = split(code, " ");
    if (words.size() != 2) {
        return false;
    }
    const auto legs = split(words[1], "&");
    if (legs.size() != 2) {
        return false;
    }
    pairs.emplace_back(legs[0], legs[1]);
    return true;
}

}  // namespace

std::map<MarketKey, MainContracts> deriveMainContracts(const GroupedSnapshot& grouped,
                                                       const std::set<MarketKey>& futureMarkets) {
    std::map<MarketKey, MainContracts> mainsByMarket;
    for (const auto& [market, records] : grouped) {
        if (futureMarkets.count(market) == 0) {
            continue;
        }
        // Made also where no record is main: a market that has none any more must lose those of the day before.
        MainContracts& mains = mainsByMarket[market];
        visitRecords(
            records,
            [&](StockKey key, const InstrumentPtr& record) {
                if (record->mainContractFlag == kMainContract) {
                    mains.all.insert(key);
                    mains.byProduct[record->productId].insert(key);
                }
            },
            &CInstrumentDetail::mainContractFlag);
    }
    return mainsByMarket;
}

std::map<std::string, std::vector<InstrumentPtr>> deriveProductContracts(const GroupedSnapshot& grouped,
                                                                         const std::set<MarketKey>& futureMarkets) {
    std::map<std::string, std::vector<InstrumentPtr>> contractsByProduct;
    for (const auto& [market, records] : grouped) {
        if (futureMarkets.count(market) == 0) {
            continue;
        }
        // By product id alone, as the exchanges keep theirs apart: one listed twice has the contracts of both.
        for (const auto& [key, record] : records) {
            if (record) {
                contractsByProduct[record->productId].push_back(record);
            }
        }
    }
    return contractsByProduct;
}

bool isDceSpread(const CInstrumentDetail& record) {
    return std::string_view(record.code).substr(0, kCrossPeriodPrefix.size()) == kCrossPeriodPrefix;
}

std::optional<DceSpreads> deriveDceSpreads(const GroupedSnapshot& grouped) {
    static const MarketKey dalian = marketKey(market::kDalian);
    const auto found = grouped.find(dalian);
    if (found == grouped.end()) {
        return std::nullopt;  // no news of Dalian: the pairs of the last load that had any stay
    }
    DceSpreads spreads;
    spreads.crossProduct.reserve(found->second.size());
    spreads.crossPeriod.reserve(found->second.size());
    visitRecords(
        found->second,
        [&](StockKey /*key*/, const InstrumentPtr& record) {
            const std::string_view code = record->code;
            // The longer prefix first: "SPC" begins with "SP" as well.
            if (code.substr(0, kCrossProductPrefix.size()) == kCrossProductPrefix) {
                splitLegs(code, spreads.crossProduct);
            } else if (code.substr(0, kCrossPeriodPrefix.size()) == kCrossPeriodPrefix) {
                splitLegs(code, spreads.crossPeriod);
            }
        },
        &CInstrumentDetail::code);
    return spreads;
}

void installMainContracts(MarketKey market, MainContracts& mains, FuturesCatalogue& catalogue) {
    std::swap(catalogue.mainCodesByMarket[market], mains.all);
    // Products that do not occur keep theirs: a load of one exchange says nothing about those of another.
    for (auto& [product, keys] : mains.byProduct) {
        std::swap(catalogue.mainCodesByProduct[product], keys);
    }
}

void removeMarket(MarketKey market, const KeySet& keys, FuturesCatalogue& catalogue) {
    static const MarketKey dalian = marketKey(market::kDalian);
    catalogue.mainCodesByMarket.erase(market);
    removeKeys(keys, catalogue);
    if (market == dalian) {
        catalogue.spreads = {};
    }
}

void removeKeys(const KeySet& keys, FuturesCatalogue& catalogue) {
    const auto isGone = [&](StockKey key) { return keys.contains(key); };
    for (auto& [market, mains] : catalogue.mainCodesByMarket) {
        erase_if(mains, isGone);  // a market stays known, with no main contract
    }
    // By the keys that go: nothing says which market a product belongs to, and another one may have its id.
    auto& products = catalogue.mainCodesByProduct;
    for (auto product = products.begin(); product != products.end();) {
        const std::size_t removed = erase_if(product->second, isGone);
        product = removed != 0 && product->second.empty() ? products.erase(product) : std::next(product);
    }
}

std::set<MarketKey> futureMarketKeys() {
    std::set<MarketKey> keys;
    for (const char* const exchange : market::kFutures) {
        keys.insert(marketKey(exchange));
    }
    return keys;
}

}  // namespace mxservice
