#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "base/instrumentcenter/catalogue/FiledKeys.h"
#include "base/instrumentcenter/catalogue/Questions.h"
#include "system/Published.h"

namespace mxservice {

/// The persisted center's filed keys, published whole: safe from any thread, and no question waits.
class CodeIndex {
public:
    bool contains(StockKey key) const;
    /// The key's market, or nothing.
    std::optional<MarketKey> marketOf(StockKey key) const;
    /// Whether the key is filed under one of the markets.
    template <std::size_t N>
    bool isIn(StockKey key, const std::array<MarketKey, N>& markets) const {
        return tables_.ask([&](const Tables& tables) noexcept { return isAmong(tables.marketOf(key), markets); });
    }

    /// The keys that the last install of the market brought; empty for a market never installed.
    std::vector<StockKey> keysOf(MarketKey market) const;
    /// Every market that was ever installed or cleared, ascending.
    std::vector<MarketKey> markets() const;
    bool knowsMarket(MarketKey market) const;

    /// As FiledKeys::file.
    void install(MarketKey market, KeySet keys);
    void install(std::map<MarketKey, KeySet>&& keysByMarket);
    /// As FiledKeys::unfileListed.
    KeySet clear(MarketKey market);
    /// As FiledKeys::unfileAll.
    KeySet remove(MarketKey market);

    /// Both tables with their sizes.
    std::vector<IndexSize> sizes() const;

private:
    struct Tables : FiledKeys, std::enable_shared_from_this<Tables> {};

    /// Publishes tables that `change` has made of those of now, and answers what it answers.
    template <class Change>
    auto changed(const Change& change);

    sys::Published<Tables> tables_{std::make_shared<const Tables>()};
};

}  // namespace mxservice
