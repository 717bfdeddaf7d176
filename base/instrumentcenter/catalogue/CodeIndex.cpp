#include "base/instrumentcenter/catalogue/CodeIndex.h"

#include <utility>

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
    // `keys` leaves with the market's former set and is destroyed after the lock.
    const auto tables = tables_.write();
    makeRoom(tables->marketByKey, keys.size());
    for (const StockKey key : keys) {
        tables->marketByKey[key] = market;
    }
    std::swap(tables->keysByMarket[market], keys);
}

KeySet CodeIndex::clear(MarketKey market) {
    KeySet keys;
    const auto tables = tables_.write();
    std::swap(tables->keysByMarket[market], keys);
    for (const StockKey key : keys) {
        tables->marketByKey.erase(key);
    }
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
