#include "base/instrumentcenter/store/CodeIndex.h"

#include <utility>

namespace mxservice {

bool CodeIndex::contains(StockKey key) const {
    return tables_.ask([key](const Tables& tables) noexcept { return tables.marketOf(key) != nullptr; });
}

std::optional<MarketKey> CodeIndex::marketOf(StockKey key) const {
    return tables_.ask([key](const Tables& tables) noexcept {
        const MarketKey* const market = tables.marketOf(key);
        return market == nullptr ? std::nullopt : std::optional<MarketKey>(*market);
    });
}

std::vector<StockKey> CodeIndex::keysOf(MarketKey market) const {
    const auto tables = tables_.hold();
    const KeySet* const keys = tables->keysOf(market);
    return keys == nullptr ? std::vector<StockKey>() : std::vector<StockKey>(keys->begin(), keys->end());
}

std::vector<MarketKey> CodeIndex::markets() const {
    const auto tables = tables_.hold();  // for the whole loop
    std::vector<MarketKey> markets;
    for (const auto& [market, keys] : tables->sets()) {
        markets.push_back(market);
    }
    return markets;
}

bool CodeIndex::knowsMarket(MarketKey market) const {
    return tables_.ask([market](const Tables& tables) noexcept { return tables.keysOf(market) != nullptr; });
}

template <class Change>
auto CodeIndex::changed(const Change& change) {
    decltype(change(std::declval<FiledKeys&>())) answer{};
    tables_.update([&](const Tables& tables) {
        auto fresh = std::make_shared<Tables>(tables);
        answer = change(*fresh);
        return fresh;
    });
    return answer;
}

void CodeIndex::install(MarketKey market, KeySet keys) {
    std::map<MarketKey, KeySet> keysByMarket;
    keysByMarket.emplace(market, std::move(keys));
    install(std::move(keysByMarket));
}

void CodeIndex::install(std::map<MarketKey, KeySet>&& keysByMarket) {
    FiledKeys::Sets sets;
    for (auto& [market, keys] : keysByMarket) {
        sets[market] = std::make_shared<const KeySet>(std::move(keys));
    }
    changed([&](FiledKeys& tables) {
        tables.file(sets);
        return true;
    });
}

KeySet CodeIndex::clear(MarketKey market) {
    return changed([market](FiledKeys& tables) { return tables.unfileListed(market); });
}

KeySet CodeIndex::remove(MarketKey market) {
    return changed([market](FiledKeys& tables) { return tables.unfileAll(market); });
}

std::vector<IndexSize> CodeIndex::sizes() const {
    return tables_.hold()->sizes();
}

}  // namespace mxservice
