#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {

/// Which stock key lives in which market, both ways. A key belongs to exactly one market, the one that wrote it last.
/// Safe from any thread: the two tables stand under one lock and change together.
class CodeIndex {
public:
    bool contains(StockKey key) const;
    /// The key's market, or nothing.
    std::optional<MarketKey> marketOf(StockKey key) const;
    /// Whether the key is filed under one of the markets.
    template <std::size_t N>
    bool isIn(StockKey key, const std::array<MarketKey, N>& markets) const {
        return tables_.answer([key, &markets](const Tables& tables) noexcept {
            const auto found = tables.marketByKey.find(key);
            if (found == tables.marketByKey.end()) {
                return false;
            }
            // All are compared: which of them it is cannot be foreseen, and a wrong guess costs more than a comparison.
            unsigned same = 0;
            for (const MarketKey market : markets) {
                same |= static_cast<unsigned>(found->second == market);
            }
            return same != 0;
        });
    }

    /// The keys that the last install of the market brought; empty for a market never installed.
    std::vector<StockKey> keysOf(MarketKey market) const;
    /// Every market that was ever installed or cleared, ascending.
    std::vector<MarketKey> markets() const;
    bool knowsMarket(MarketKey market) const;

    /// Files every key of `keys` under the market and makes `keys` the market's set. Keys of an earlier install that
    /// the new set lacks stay filed; only the market's set forgets them.
    void install(MarketKey market, KeySet keys);
    /// The same for several markets at once, in ascending order: of a key that several bring the last one has it.
    void install(std::map<MarketKey, KeySet> keysByMarket);

    /// Empties the market's set and unfiles its keys, whatever market they are filed under by now. Returns them.
    KeySet clear(MarketKey market);

    /// Unfiles every key that is filed under the market, also those of earlier installs, and empties its set. Returns
    /// them. Walks the whole index.
    KeySet remove(MarketKey market);

    /// Both tables with their sizes.
    std::vector<IndexSize> sizes() const;

private:
    struct Tables {
        std::map<MarketKey, KeySet> keysByMarket;
        HashIndex<MarketKey> marketByKey;
    };

    /// Unfiles the keys that `choose` picks of the tables and empties the market's set.
    template <class Choose>
    KeySet unfile(MarketKey market, const Choose& choose);

    Guarded<Tables> tables_;
};

}  // namespace mxservice
