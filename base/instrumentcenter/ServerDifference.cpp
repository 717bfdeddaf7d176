#include <algorithm>
#include <array>

#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Records.h"
#include "base/instrumentcenter/catalogue/LoadLedger.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"

// What subscribers are told: two versions of the in-memory center compared. A load hands in every record of its markets
// again, most of them with equal fields, so nearly all of the work is to find that out.

namespace mxservice {
namespace {

/// Collects the items of one market.
class Collector {
public:
    Collector(const ServerVersion& former, const ServerVersion& fresh, CatalogueChange& change)
        : former_(former), fresh_(fresh), change_(change) {}

    /// A key as two versions list it; `before` and `after` say whether they do.
    void add(StockKey key, bool before, bool after) {
        static const InstrumentPtr none;
        const InstrumentPtr* const was = before ? former_.records.find(key) : nullptr;
        const InstrumentPtr* const is = after ? fresh_.records.find(key) : nullptr;
        const Pair pair{was == nullptr ? &none : was, is == nullptr ? &none : is};
        if (pair.before->get() == pair.after->get()) {
            return;
        }
        if (!*pair.before || !*pair.after) {
            take(pair);
            return;
        }
        // Two records are compared from end to end: fetched while those before them are.
        prefetchWhole(**pair.before);
        prefetchWhole(**pair.after);
        if (count_ == pairs_.size()) {
            settle(pairs_[next_]);
            pairs_[next_] = pair;
            next_ = (next_ + 1) % pairs_.size();
        } else {
            pairs_[count_++] = pair;
        }
    }

    /// Takes in the keys that are compared still. To be called at the end: comparing needs memory, and may fail for it.
    void finish() {
        for (std::size_t i = 0; i < count_; ++i) {
            settle(pairs_[(next_ + i) % count_]);
        }
    }

private:
    struct Pair {
        const InstrumentPtr* before;
        const InstrumentPtr* after;
    };

    void take(const Pair& pair) { change_.instruments.push_back({*pair.before, *pair.after}); }
    void settle(const Pair& pair) {
        if (!areEqual(**pair.before, **pair.after)) {
            take(pair);
        }
    }

    const ServerVersion& former_;
    const ServerVersion& fresh_;
    CatalogueChange& change_;
    std::array<Pair, 4> pairs_;
    std::size_t count_ = 0;
    std::size_t next_ = 0;
};

void compareMarket(const KeySet& was, const KeySet& is, Collector& collector) {
    std::size_t kept = 0;
    for (const StockKey key : is) {
        const bool before = was.contains(key);
        kept += before ? 1U : 0U;
        collector.add(key, before, true);
    }
    if (kept == was.size()) {
        return;
    }
    for (const StockKey key : was) {
        if (!is.contains(key)) {
            collector.add(key, true, false);
        }
    }
}

/// The market's name by any record that it has or had.
std::string nameOf(MarketKey market, const ServerVersion& version, const KeySet& keys) {
    const auto found = std::find_if(keys.begin(), keys.end(), [&](StockKey key) { return version.recordOf(key); });
    return found == keys.end() ? std::string() : filedMarketName(market, {{*found, version.recordOf(*found)}});
}

}  // namespace

CatalogueChange difference(const ServerVersion& former, const ServerVersion& fresh, const KeySet* touched) {
    static const KeySet nothing;
    CatalogueChange change;
    change.version = fresh.number;
    for (const auto& [market, keys] : fresh.keys.sets()) {
        const auto found = former.keys.sets().find(market);
        if (found != former.keys.sets().end() && found->second == keys) {
            continue;  // one set: no change has filed this market
        }
        const KeySet& was = found == former.keys.sets().end() ? nothing : *found->second;
        Collector collector(former, fresh, change);
        if (touched == nullptr) {
            compareMarket(was, *keys, collector);
        } else {
            for (const StockKey key : *touched) {
                collector.add(key, was.contains(key), keys->contains(key));
            }
        }
        collector.finish();
        std::string name = nameOf(market, fresh, *keys);
        name = name.empty() ? nameOf(market, former, was) : name;
        if (!name.empty()) {
            change.markets.push_back(std::move(name));
        }
    }
    addCatalogues(former, fresh, change);
    return change;
}

}  // namespace mxservice
