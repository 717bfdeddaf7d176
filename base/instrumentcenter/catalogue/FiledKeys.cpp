#include "base/instrumentcenter/catalogue/FiledKeys.h"

#include <cstddef>
#include <utility>

namespace mxservice {

const KeySet* FiledKeys::keysOf(MarketKey market) const {
    const auto found = sets_.find(market);
    return found == sets_.end() ? nullptr : found->second.get();
}

void FiledKeys::index(const Sets& sets) {
    std::size_t count = 0;
    for (const auto& [market, keys] : sets) {
        count += keys->size();
    }
    // Ascending, and the last one put stays: that decides who has a key that several bring.
    marketByKey_.put(count, [&](const auto& putOne) {
        for (const auto& [market, keys] : sets) {
            for (const StockKey key : *keys) {
                putOne(key, market);
            }
        }
    });
}

void FiledKeys::file(const Sets& sets) {
    index(sets);
    // The index above was not asked to forget: keys that a new set lacks still answer who holds them from before.
    for (const auto& [market, keys] : sets) {
        sets_[market] = keys;
    }
}

KeySet FiledKeys::unfileListed(MarketKey market) {
    const KeySet* const listed = keysOf(market);
    KeySet keys = listed == nullptr ? KeySet() : *listed;
    marketByKey_.erase(keys);
    // Empty, not absent: a market that was filed once stays known.
    sets_[market] = std::make_shared<const KeySet>();
    return keys;
}

KeySet FiledKeys::unfileAll(MarketKey market) {
    // Of those that are listed, another market may have some by now; they are its own.
    KeySet keys;
    marketByKey_.visitAll([&](StockKey key, MarketKey filed) {
        if (filed == market) {
            keys.insert(key);
        }
    });
    // For good, because a market is removed to have its memory back, its records' above all.
    marketByKey_.eraseForGood(keys);
    sets_[market] = std::make_shared<const KeySet>();
    return keys;
}

std::map<MarketKey, KeySet> FiledKeys::unfileRest(const KeySet& markets) {
    std::map<MarketKey, KeySet> restByMarket;
    KeySet rest;
    marketByKey_.visitAll([&](StockKey key, MarketKey filed) {
        if (markets.contains(filed) && !keysOf(filed)->contains(key)) {
            restByMarket[filed].insert(key);
            rest.insert(key);
        }
    });
    if (!rest.empty()) {
        marketByKey_.erase(rest);  // all at once: a table that is too large for few changes is copied whole each time
    }
    return restByMarket;
}

void FiledKeys::amend(const Sets& added, const std::map<MarketKey, KeySet>& gone) {
    std::map<MarketKey, KeySet> listed;  // the sets of other versions are not to be changed
    const auto listOf = [&](MarketKey market) -> KeySet& {
        const auto [place, fresh] = listed.try_emplace(market);
        if (const KeySet* const keys = fresh ? keysOf(market) : nullptr) {
            place->second = *keys;
        }
        return place->second;
    };
    // What goes first, in the sets and in the index: a key that has changed its market is among both.
    KeySet unfiled;
    for (const auto& [market, keys] : gone) {
        KeySet& list = listOf(market);
        for (const StockKey key : keys) {
            list.erase(key);
        }
        unfiled.insert(keys.begin(), keys.end());
    }
    for (const auto& [market, keys] : added) {
        listOf(market).insert(keys->begin(), keys->end());
    }
    if (!unfiled.empty()) {
        marketByKey_.erase(unfiled);
    }
    index(added);
    for (auto& [market, keys] : listed) {
        sets_[market] = std::make_shared<const KeySet>(std::move(keys));
    }
}

std::vector<IndexSize> FiledKeys::sizes() const {
    IndexSize listed{"keys by market", 0, 0};
    for (const auto& [market, keys] : sets_) {
        listed.keys += keys->size();
        listed.bytes += tableBytes(*keys);
    }
    return {{"market by key", marketByKey_.size(), marketByKey_.bytes()}, listed};
}

}  // namespace mxservice
