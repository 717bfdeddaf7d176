#include "base/instrumentcenter/catalogue/CodeIndex.h"

#include <utility>

#include "base/instrumentcenter/catalogue/IndexUpdate.h"
#include "base/instrumentcenter/catalogue/TableBytes.h"

namespace mxservice {

bool CodeIndex::contains(StockKey key) const {
    return tables_.answer(
        [key](const Tables& tables) noexcept { return tables.marketByKey.find(key) != tables.marketByKey.end(); });
}

std::optional<MarketKey> CodeIndex::marketOf(StockKey key) const {
    return tables_.answer([key](const Tables& tables) noexcept {
        const auto found = tables.marketByKey.find(key);
        return found == tables.marketByKey.end() ? std::nullopt : std::optional<MarketKey>(found->second);
    });
}

std::vector<StockKey> CodeIndex::keysOf(MarketKey market) const {
    const auto tables = tables_.read();
    const auto found = tables->keysByMarket.find(market);
    if (found == tables->keysByMarket.end()) {
        return {};
    }
    return {found->second.begin(), found->second.end()};
}

std::vector<MarketKey> CodeIndex::markets() const {
    const auto tables = tables_.read();
    std::vector<MarketKey> markets;
    markets.reserve(tables->keysByMarket.size());
    for (const auto& [market, keys] : tables->keysByMarket) {
        markets.push_back(market);
    }
    return markets;
}

bool CodeIndex::knowsMarket(MarketKey market) const {
    return tables_.read()->keysByMarket.count(market) != 0;
}

void CodeIndex::install(MarketKey market, KeySet keys) {
    std::map<MarketKey, KeySet> keysByMarket;
    keysByMarket.emplace(market, std::move(keys));
    install(std::move(keysByMarket));
}

void CodeIndex::install(std::map<MarketKey, KeySet> keysByMarket) {
    std::size_t count = 0;
    for (const auto& [market, keys] : keysByMarket) {
        count += keys.size();
    }
    HashIndex<MarketKey> former;  // destroyed after the lock, as the former sets are, which leave with the argument
    auto update = tables_.update();
    former = updateIndex(
        update, &Tables::marketByKey, count,
        [&](HashIndex<MarketKey>& marketByKey) {
            for (const auto& [market, keys] : keysByMarket) {
                for (const StockKey key : keys) {
                    marketByKey[key] = market;
                }
            }
        },
        [&](Tables& tables) {
            for (auto& [market, keys] : keysByMarket) {
                std::swap(tables.keysByMarket[market], keys);
            }
        });
}

KeySet CodeIndex::clear(MarketKey market) {
    return unfile(market, [market](const Tables& tables) {
        const auto filed = tables.keysByMarket.find(market);
        return filed == tables.keysByMarket.end() ? KeySet() : filed->second;
    });
}

KeySet CodeIndex::remove(MarketKey market) {
    return unfile(market, [market](const Tables& tables) {
        KeySet keys;
        for (const auto& [key, filed] : tables.marketByKey) {
            if (filed == market) {
                keys.insert(key);
            }
        }
        return keys;
    });
}

template <class Choose>
KeySet CodeIndex::unfile(MarketKey market, const Choose& choose) {
    HashIndex<MarketKey> former;  // destroyed after the lock
    auto update = tables_.update();
    KeySet keys = choose(*update);
    former = updateIndex(
        update, &Tables::marketByKey, keys.size(),
        [&](HashIndex<MarketKey>& marketByKey) {
            for (const StockKey key : keys) {
                marketByKey.erase(key);
            }
        },
        [&](Tables& tables) { tables.keysByMarket[market] = KeySet(); });
    return keys;
}

std::vector<IndexSize> CodeIndex::sizes() const {
    const auto tables = tables_.read();
    IndexSize sets = sizeOf("keys by market", tables->keysByMarket);
    sets.keys = 0;
    for (const auto& [market, keys] : tables->keysByMarket) {
        sets.keys += keys.size();
    }
    return {sizeOf("market by key", tables->marketByKey), sets};
}

}  // namespace mxservice
