#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"

namespace mxservice {

/// A bounded cache of recently read records. Safe from any thread.
///
/// The recency rules are given and two of them are odd on purpose. While the cache fills, a new record enters at the
/// old end, so the record that filled it is the first to go. A hit moves its record to the young end but leaves the
/// mark of the old end where it was, so after a hit on the oldest record the next insert replaces that very record.
/// Where these rules leave the mark without a neighbour to go to, records have come loose from the chain; all are then
/// chained anew in the order of their last use. While the mark still has a neighbour, loose records stay.
template <class Record>
class RecordCache {
public:
    using Pointer = boost::shared_ptr<Record>;

    /// A capacity of 0 or less caches nothing.
    explicit RecordCache(int capacity) {
        if (capacity > 0) {
            slots_.resize(static_cast<std::size_t>(capacity));
        }
    }

    /// The record, made the youngest; empty when the key is not cached.
    Pointer find(std::uint64_t key) {
        const Lock guard(lock_);
        const auto found = slotByKey_.find(key);
        if (found == slotByKey_.end()) {
            ++misses_;
            return nullptr;
        }
        ++hits_;
        const int slot = found->second;
        touch(slot);
        if (slot != newest_) {
            unlink(slot);
            putInFront(slot);
        }
        return at(slot).record;
    }

    /// Counts the loads that have refreshed the cache; taken before a record is read from the store.
    std::uint64_t generation() const {
        const Lock guard(lock_);
        return generation_;
    }

    /// Caches a record after a miss, unless a load has come between the reading of `generation` and now: the record
    /// may be older than what the load brought.
    void insert(std::uint64_t key, Pointer record, std::uint64_t generation) {
        const Lock guard(lock_);  // `record` takes the evicted one out with it, to be destroyed after the lock
        if (slots_.empty() || generation != generation_) {
            return;
        }
        const int slot = used_ < static_cast<int>(slots_.size()) ? appendSlot() : recycleOldest();
        touch(slot);
        at(slot).key = key;
        at(slot).record.swap(record);
        slotByKey_[key] = slot;
        if (oldest_ == kNone) {
            chainByUse();
        }
    }

    /// Replaces the cached records of the keys that `records` (a map from keys to pointers) holds; recency stays.
    template <class Records>
    void refresh(const Records& records) {
        std::vector<Pointer> replaced;  // destroyed after the lock
        const Lock guard(lock_);
        ++generation_;
        const auto replace = [&](int slot, const Pointer& record) {
            replaced.push_back(record);
            at(slot).record.swap(replaced.back());
        };
        if (records.size() < slotByKey_.size()) {
            for (const auto& [key, record] : records) {
                const auto found = slotByKey_.find(key);
                if (found != slotByKey_.end()) {
                    replace(found->second, record);
                }
            }
            return;
        }
        for (const auto& [key, slot] : slotByKey_) {
            const auto found = records.find(key);
            if (found != records.end()) {
                replace(slot, found->second);
            }
        }
    }

    CacheUse use(const char* name) const {
        const Lock guard(lock_);
        return {name, slots_.size(), static_cast<std::uint64_t>(used_), hits_, misses_, evictions_};
    }

private:
    static constexpr int kNone = -1;

    struct Slot {
        Pointer record;
        std::uint64_t key = 0;
        int younger = kNone;
        int older = kNone;
        std::list<int>::iterator use;  // its place in byUse_, once the slot is in use
    };

    /// One of the center's locks, counted with the others in debug builds.
    class Lock {
    public:
        explicit Lock(std::mutex& mutex) : guard_(mutex) { noteLockTaken(); }
        ~Lock() { noteLockReleased(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        const std::lock_guard<std::mutex> guard_;
    };

    Slot& at(int slot) { return slots_[static_cast<std::size_t>(slot)]; }

    /// Notes that the slot was used just now.
    void touch(int slot) {
        if (at(slot).record) {
            byUse_.splice(byUse_.begin(), byUse_, at(slot).use);
        } else {
            byUse_.push_front(slot);
            at(slot).use = byUse_.begin();
        }
    }

    void unlink(int slot) {
        if (at(slot).younger != kNone) {
            at(at(slot).younger).older = at(slot).older;
        }
        if (at(slot).older != kNone) {
            at(at(slot).older).younger = at(slot).younger;
        }
    }

    void putInFront(int slot) {
        at(slot).younger = kNone;
        at(slot).older = newest_;
        if (newest_ != kNone) {
            at(newest_).younger = slot;
        }
        newest_ = slot;
    }

    /// Takes a step for every record, but only after a hit on the oldest one.
    void chainByUse() {
        newest_ = byUse_.front();
        oldest_ = byUse_.back();
        int younger = kNone;
        for (const int slot : byUse_) {
            at(slot).younger = younger;
            at(slot).older = kNone;
            if (younger != kNone) {
                at(younger).older = slot;
            }
            younger = slot;
        }
    }

    /// The next unused slot, linked in as the oldest.
    int appendSlot() {
        const int slot = used_++;
        at(slot).younger = oldest_;
        at(slot).older = kNone;
        if (oldest_ == kNone) {
            newest_ = slot;
        } else {
            at(oldest_).older = slot;
        }
        oldest_ = slot;
        return slot;
    }

    /// The oldest slot, freed of its key and made the youngest.
    int recycleOldest() {
        const int slot = oldest_;
        slotByKey_.erase(at(slot).key);
        ++evictions_;
        oldest_ = at(slot).younger;
        if (oldest_ != kNone) {
            at(oldest_).older = kNone;
        }
        if (slot != newest_) {
            putInFront(slot);
        }
        return slot;
    }

    mutable std::mutex lock_;
    std::vector<Slot> slots_;
    HashIndex<int> slotByKey_;
    std::list<int> byUse_;  // slots in use, the most recently used first
    std::uint64_t generation_ = 0;
    std::uint64_t hits_ = 0;
    std::uint64_t misses_ = 0;
    std::uint64_t evictions_ = 0;
    int used_ = 0;
    int newest_ = kNone;
    int oldest_ = kNone;
};

}  // namespace mxservice
