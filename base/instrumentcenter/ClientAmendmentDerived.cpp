#include <algorithm>
#include <set>
#include <utility>

#include "base/instrumentcenter/ClientAmendment.h"
#include "base/instrumentcenter/ClientFutures.h"
#include "base/instrumentcenter/ClientLoad.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/store/DBBuilder.h"

// What is derived from markets, brought up to a change of some of their records. Markets are published by then: who
// dies from here on leaves derived documents of the state before, which the next load of the market writes anew.

namespace mxservice {
namespace {

constexpr const char* kUnreadable = "could not be read to be changed: ";

}  // namespace

/// Whether a main contract of the market comes, changes or goes.
bool ClientAmendment::touchesMains(MarketKey market, const MarketChange& change) const {
    constexpr std::int32_t kMainContract = 1;
    return std::any_of(change.records.begin(), change.records.end(),
                       [](const auto& entry) { return entry.second->mainContractFlag == kMainContract; }) ||
           std::any_of(former_.begin(), former_.end(), [market](const auto& entry) {
               const FormerRecord& filed = entry.second;
               return filed.market == market && (!filed.record || filed.record->mainContractFlag == kMainContract);
           });
}

/// The documents of the main contracts: a market's are one field, so it is written whole. Which they are is published
/// already, and a load may have published others since: those of now are written.
void ClientAmendment::amendMains() {
    std::set<MarketKey> concerned;
    for (const auto& [market, change] : changes_) {
        if (client_.futureMarkets.count(market) != 0 && touchesMains(market, change)) {
            concerned.insert(market);
        }
    }
    if (concerned.empty()) {
        return;
    }
    std::map<MarketKey, std::string> refused;
    {
        const DatabaseWriting writing(client_, DBBuilder::buildDbName(kFutureMains));
        GroupedSnapshot grouped;
        std::map<MarketKey, std::string> unread;
        const auto version = client_.hold();
        for (const MarketKey market : concerned) {
            MarketRecords& mains = grouped[market];  // also where none is left
            const auto keys = version->futures->mainCodesByMarket.find(market);
            if (keys == version->futures->mainCodesByMarket.end()) {
                continue;
            }
            for (const StockKey key : keys->second) {
                if (InstrumentPtr record = center_.CClientInstrumentCenter::getInstrument(key)) {
                    mains[key] = std::move(record);
                } else if (version->keys.marketOf(key) != nullptr) {
                    unread[market] = kUnreadable + store().lastFailure();
                }
            }
        }
        // Without one of them a field would say that it is none: then all are answered by key.
        std::erase_if(grouped, [&](const auto& entry) { return unread.count(entry.first) != 0; });
        refused = writeMains(grouped);
        refused.insert(unread.begin(), unread.end());
        client_.publish([&](ClientVersion& fresh) { setUnwrittenMains(grouped, refused, fresh); });
    }
    for (const auto& [market, reason] : refused) {
        reportRefused(kFutureMains, reason, client_);
    }
}

/// The products of which a contract comes, changes or goes, with the contracts that come.
ClientAmendment::Products ClientAmendment::touchedProducts() const {
    Products products;
    for (const auto& [key, filed] : former_) {
        if (filed.record && client_.futureMarkets.count(filed.market) != 0) {
            products[filed.record->productId];
        }
    }
    for (const auto& [market, change] : changes_) {
        if (client_.futureMarkets.count(market) != 0) {
            for (const auto& [key, record] : change.records) {
                products[record->productId].push_back(record);
            }
        }
    }
    return products;
}

/// The documents of the contracts, a field for each product.
void ClientAmendment::amendProducts() {
    Products products = touchedProducts();
    if (products.empty()) {
        return;
    }
    const KeySet touched = amendment_.touched();
    std::optional<std::string> refused;
    {
        const DatabaseWriting writing(client_, DBBuilder::buildDbName(kFutureProducts));
        const auto version = client_.hold();
        std::vector<std::string> emptied;
        std::optional<std::string> unread;
        for (auto product = products.begin(); product != products.end();) {
            auto& [name, contracts] = *product;
            const auto known = version->storedFutures->products.find(name);
            if (known != version->storedFutures->products.end()) {
                const auto stored = center_.CClientInstrumentCenter::getProductInstruments(name);
                if (!known->second.isUnwritten && !store().lastSucceeded()) {
                    // What stands there stays, a removed contract among it, rather than lose the others.
                    unread = kUnreadable + store().lastFailure();
                    product = products.erase(product);
                    continue;
                }
                for (const InstrumentPtr& contract : stored) {
                    const StockKey key = stockKey(contract->market, contract->code);
                    // Those of an earlier load that are filed no more do not come back.
                    if (!touched.contains(key) && version->keys.marketOf(key) != nullptr) {
                        contracts.push_back(contract);
                    }
                }
            }
            if (contracts.empty()) {
                emptied.push_back(name);
                product = products.erase(product);
            } else {
                ++product;
            }
        }
        refused = writeProducts(products);
        client_.publish([&](ClientVersion& fresh) {
            setProducts(products, refused.has_value(), fresh);
            for (const std::string& product : emptied) {
                // Its field in the store is left: without the product nothing leads there.
                fresh.storedFutures.own().products.erase(product);
            }
        });
        refused = refused ? refused : unread;
    }
    if (refused) {
        reportRefused(kFutureProducts, *refused, client_);
    }
}

/// What only a whole listing tells, from the documents as they are now. A load that has filed the market since tells
/// itself; what cannot be read leaves what stands.
void ClientAmendment::deriveAnew() {
    const auto moment = client_.hold();
    const auto list = [&](MarketKey market, GroupedSnapshot& listings) {
        InstrumentMap records;
        const Market& known = moment->market(market);
        CClientInstrumentCenter::addMarket(*moment, market, {}, nullptr, records);
        if (!known.unwrittenIsNewest && !known.isDropped && !store().lastSucceeded()) {
            noteFailure(known.db, kUnreadable + store().lastFailure());
            return;
        }
        MarketRecords& listing = listings[market];
        for (auto& [text, record] : records) {
            listing[textKey(text)] = std::move(record);
        }
    };
    GroupedSnapshot listings;
    for (const std::string& name : marketsToDerive(amendment_, former_)) {
        list(marketKey(name), listings);
    }
    GroupedSnapshot outer;
    for (const MarketKey market : client_.outerMarkets) {
        if (changes_.count(market) != 0) {
            list(market, outer);
        }
    }
    if (listings.empty() && outer.empty()) {
        return;
    }
    client_.publish([&](ClientVersion& version) {
        const auto isOutdated = [&](const auto& listing) {
            return version.keys.keysOf(listing.first) != moment->keys.keysOf(listing.first);
        };
        std::erase_if(listings, isOutdated);
        std::erase_if(outer, isOutdated);
        installDerived(listings, version.futures.own(), version.codeSets.own());
        if (!outer.empty()) {
            OuterTables tables = deriveOuterTables(outer, client_.outerMarkets);
            install(tables, version.outer.own());
        }
    });
}

}  // namespace mxservice
