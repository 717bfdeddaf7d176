#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {

/// A large index of which versions are made: copies share their tables, and a change makes new ones beside. One table
/// holds nearly everything. A change of few keys goes into a small table above it, of which alone a copy is made, so it
/// takes microseconds whatever the size; a large change, or one that the small table has no room for, makes a new large
/// table of both. Reading is safe from any thread; a copy that others can see is not changed any more.
template <class Value>
class LayeredIndex {
public:
    /// Null for a key that is not there.
    const Value* find(StockKey key) const noexcept {
        if (recent_) [[unlikely]] {
            const auto found = recent_->find(key);
            if (found != recent_->end()) {
                return found->second.erased ? nullptr : &found->second.value;
            }
        }
        const auto found = large_->find(key);
        return found == large_->end() ? nullptr : &found->second;
    }
    bool contains(StockKey key) const noexcept { return find(key) != nullptr; }

    /// Calls `visit` with every key and value.
    template <class Visit>
    void visitAll(const Visit& visit) const {
        for (const auto& [key, value] : *large_) {
            if (!recent_ || !recent_->contains(key)) {
                visit(key, value);
            }
        }
        if (recent_) {
            for (const auto& [key, entry] : *recent_) {
                if (!entry.erased) {
                    visit(key, entry.value);
                }
            }
        }
    }

    /// Whether no change lies between the two: one is a copy of the other.
    bool isSameAs(const LayeredIndex& other) const { return large_ == other.large_ && recent_ == other.recent_; }

    std::size_t size() const { return size_; }
    /// What the tables have allocated.
    std::size_t bytes() const { return tableBytes(*large_) + (recent_ ? tableBytes(*recent_) : 0); }

    /// Puts values under their keys, of several with one key the last. `source` is given an operation to call with each
    /// of the `count` keys and values, which answers whether the key was there.
    template <class Source>
    void put(std::size_t count, const Source& source) {
        if (isFew(count)) {
            auto recent = std::make_shared<Recent>(recent_ ? *recent_ : Recent());
            source([&](StockKey key, const Value& value) {
                const bool known = contains(*recent, key);
                (*recent)[key] = {value, false};
                size_ += known ? 0U : 1U;
                return known;
            });
            keep(std::move(recent));
            return;
        }
        auto large = std::make_shared<Large>();
        auto& entries = *large;
        entries.reserve(std::max(count, size_));
        // The new ones first: what they replace is then not copied, which for pointers would count a reference of each
        // record up and down again.
        source([&](StockKey key, const Value& value) {
            const auto [place, fresh] = entries.try_emplace(key);
            place->second = value;
            return !fresh || contains(key);
        });
        copyRest(entries, [](StockKey /*key*/) { return true; });
        replace(std::move(large));
    }

    /// Takes the keys out that are there. Where they are few, their values stay in memory until a large change.
    void erase(const KeySet& keys) {
        if (isFew(keys.size())) {
            auto recent = std::make_shared<Recent>(recent_ ? *recent_ : Recent());
            for (const StockKey key : keys) {
                if (contains(*recent, key)) {
                    (*recent)[key] = {Value(), true};
                    --size_;
                }
            }
            keep(std::move(recent));
            return;
        }
        eraseForGood(keys);
    }

    /// The same, and their values go with the last version that has them.
    void eraseForGood(const KeySet& keys) {
        auto large = std::make_shared<Large>();
        large->reserve(size_ - std::min(size_, keys.size()));
        copyRest(*large, [&](StockKey key) { return !keys.contains(key); });
        replace(std::move(large));
    }

private:
    /// So many keys make the small table large: a copy of it takes some tens of microseconds.
    static constexpr std::size_t kMostRecent = 2048;

    struct RecentEntry {
        Value value;
        bool erased = false;
    };
    using Recent = HashIndex<RecentEntry>;
    using Large = HashIndex<Value>;

    /// Whether a change goes into the small table: it must stay small beside the large one, too.
    bool isFew(std::size_t keys) const {
        constexpr std::size_t kShare = 16;
        const std::size_t recent = (recent_ ? recent_->size() : 0) + keys;
        return recent <= kMostRecent && recent * kShare <= large_->size();
    }

    /// Whether the key is there, with `recent` above the large table.
    bool contains(const Recent& recent, StockKey key) const {
        const auto found = recent.find(key);
        return found == recent.end() ? large_->contains(key) : !found->second.erased;
    }

    template <class Wanted>
    void copyRest(HashIndex<Value>& entries, const Wanted& wanted) const {
        const auto copy = [&](StockKey key, const Value& value) {
            if (wanted(key)) {
                entries.try_emplace(key, value);
            }
        };
        if (recent_) {
            for (const auto& [key, entry] : *recent_) {
                if (!entry.erased) {
                    copy(key, entry.value);
                }
            }
        }
        // A copy counts a reference of its record.
        visitAhead(
            *large_,
            [&](const auto& entry) {
                if (!recent_ || !recent_->contains(entry.first)) {
                    copy(entry.first, entry.second);
                }
            },
            [](const Value& value) { prefetchCount(value); });
    }

    void keep(std::shared_ptr<const Recent> recent) { recent_ = recent->empty() ? nullptr : std::move(recent); }

    void replace(std::shared_ptr<const Large> large) {
        size_ = large->size();
        large_ = std::move(large);
        recent_ = nullptr;
    }

    std::shared_ptr<const Large> large_ = std::make_shared<const Large>();
    std::shared_ptr<const Recent> recent_;  // null where it would be empty
    std::size_t size_ = 0;
};

}  // namespace mxservice
