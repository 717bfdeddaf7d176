#pragma once

#include <map>
#include <memory>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/catalogue/LayeredIndex.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {

/// Which stock key lives in which market, both ways; a part of a version, so a copy shares what it does not change. A
/// key belongs to exactly one market, the one that wrote it last.
class FiledKeys {
public:
    using Sets = std::map<MarketKey, std::shared_ptr<const KeySet>>;

    /// The market that the key is filed under; null for a key that is not.
    const MarketKey* marketOf(StockKey key) const noexcept { return marketByKey_.find(key); }
    /// The keys that the last filing of the market brought; null for a market never filed.
    const KeySet* keysOf(MarketKey market) const;
    /// The sets of every market that was ever filed or emptied, ascending.
    const Sets& sets() const { return sets_; }

    /// Files every key of the sets and makes them their markets' own. Of a key that several bring the market with the
    /// highest key has it. Keys of an earlier filing that a new set lacks stay filed; only the set forgets them.
    void file(const Sets& sets);
    /// Empties the market's set and unfiles its keys, whatever market they are filed under by now. Returns them.
    KeySet unfileListed(MarketKey market);
    /// The same for every key that is filed under the market, also those of earlier filings. Walks the whole index.
    KeySet unfileAll(MarketKey market);

    /// Unfiles what is filed under the markets, which must have been filed, and not among their listed keys: what
    /// earlier filings have left. Walks the whole index once. Returns those keys by market.
    std::map<MarketKey, KeySet> unfileRest(const KeySet& markets);

    /// Files the keys of `added` beside what their markets list, and unfiles those of `gone`, each of them of the
    /// market that it names.
    void amend(const Sets& added, const std::map<MarketKey, KeySet>& gone);

    /// Both tables with their sizes.
    std::vector<IndexSize> sizes() const;

private:
    void index(const Sets& sets);

    LayeredIndex<MarketKey> marketByKey_;
    Sets sets_;
};

}  // namespace mxservice
