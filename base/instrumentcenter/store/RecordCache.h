#pragma once

#include <boost/shared_ptr.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <utility>
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
///
/// Threads that find their records seldom wait for each other: a hit is noted by the thread that had it, and the chain
/// hears of it before the next insert, which alone depends on it. So the hits of one thread count in their order; of
/// hits of different threads since the last insert it is left open which came first.
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
        Entry entry;
        {
            Part& part = partOf(key);
            const Lock guard(part.lock);
            const auto found = part.entries.find(key);
            if (found == part.entries.end()) {
                ++part.misses;
                return nullptr;
            }
            ++part.hits;
            entry = found->second;
        }
        note({key, entry.slot});
        return std::move(entry.record);
    }

    /// Counts the loads that have refreshed the cache; taken before a record is read from the store.
    std::uint64_t generation() const { return generation_.load(); }

    /// Caches a record after a miss, unless a load has come between the reading of `generation` and now: the record
    /// may be older than what the load brought.
    void insert(std::uint64_t key, Pointer record, std::uint64_t generation) {
        Pointer evicted;  // destroyed after the lock
        const Lock guard(lock_);
        if (slots_.empty() || generation != generation_.load()) {
            return;
        }
        takeNotes();
        const int slot = used_ < static_cast<int>(slots_.size()) ? appendSlot() : recycleOldest(evicted);
        touch(slot);
        at(slot).key = key;
        {
            Part& part = partOf(key);
            const std::lock_guard<std::mutex> partGuard(part.lock);
            Entry& entry = part.entries[key];
            entry.slot = slot;
            entry.record.swap(record);  // of two threads that missed on one key the later has its way
        }
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
        const auto replace = [&](Pointer& cached, const Pointer& record) {
            replaced.push_back(record);
            cached.swap(replaced.back());
        };
        if (records.size() < static_cast<std::size_t>(used_)) {
            for (const auto& [key, record] : records) {
                Part& part = partOf(key);
                const std::lock_guard<std::mutex> partGuard(part.lock);
                const auto found = part.entries.find(key);
                if (found != part.entries.end()) {
                    replace(found->second.record, record);
                }
            }
            return;
        }
        for (Part& part : parts_) {
            const std::lock_guard<std::mutex> partGuard(part.lock);
            for (auto& [key, entry] : part.entries) {
                const auto found = records.find(key);
                if (found != records.end()) {
                    replace(entry.record, found->second);
                }
            }
        }
    }

    CacheUse use(const char* name) const {
        const Lock guard(lock_);
        CacheUse use{name, slots_.size(), static_cast<std::uint64_t>(used_), 0, 0, evictions_};
        for (const Part& part : parts_) {
            const std::lock_guard<std::mutex> partGuard(part.lock);
            use.hits += part.hits;
            use.misses += part.misses;
        }
        return use;
    }

private:
    static constexpr int kNone = -1;
    static constexpr std::size_t kParts = 16;
    static constexpr std::uint32_t kNoters = 16;
    static constexpr std::uint32_t kNotes = 64;
    static_assert(kNoters <= SharedMutex::kOwnedLines);
    static constexpr std::size_t kLineBytes = 64;

    struct Entry {
        Pointer record;
        int slot = kNone;
    };

    /// The records of some of the keys.
    struct alignas(kLineBytes) Part {
        mutable std::mutex lock;
        HashIndex<Entry> entries;
        std::uint64_t hits = 0;
        std::uint64_t misses = 0;
    };

    /// A hit. The slot may have gone to another key since.
    struct Note {
        std::uint64_t key;
        int slot;
    };

    /// The hits of one thread that the chain has not heard of. Written by that thread, taken under `lock_`.
    struct Noter {
        alignas(kLineBytes) std::atomic<std::uint32_t> written{0};
        std::array<Note, kNotes> notes;
        alignas(kLineBytes) std::atomic<std::uint32_t> taken{0};
    };

    /// A key's place in the chain of recency.
    struct Slot {
        std::uint64_t key = 0;
        int younger = kNone;
        int older = kNone;
        bool inUse = false;
        std::list<int>::iterator use;  // its place in byUse_, once the slot is in use
    };

    /// One of the center's locks, counted with the others in debug builds. Beneath lock_ a part's may be taken; that
    /// counts as one.
    class Lock {
    public:
        explicit Lock(std::mutex& mutex) : guard_(mutex) { noteLockTaken(); }
        ~Lock() { noteLockReleased(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        const std::lock_guard<std::mutex> guard_;
    };

    /// By bits of the key that the container within makes little of.
    Part& partOf(std::uint64_t key) {
        constexpr unsigned kShift = 32;
        return parts_[(key >> kShift) % kParts];
    }

    void note(const Note& note) {
        const std::uint32_t thread = SharedMutex::numberOfThread();
        if (thread >= kNoters) {
            const Lock guard(lock_);
            take(note);
            return;
        }
        Noter& noter = noters_[thread];
        const std::uint32_t written = noter.written.load(std::memory_order_relaxed);
        if (written - noter.taken.load(std::memory_order_acquire) == kNotes) {
            const Lock guard(lock_);
            takeNotes();
        }
        noter.notes[written % kNotes] = note;
        noter.written.store(written + 1, std::memory_order_release);
    }

    /// Has the chain hear of every hit so far. Under `lock_`, as the rest.
    void takeNotes() {
        for (Noter& noter : noters_) {
            const std::uint32_t written = noter.written.load(std::memory_order_acquire);
            std::uint32_t next = noter.taken.load(std::memory_order_relaxed);
            if (next == written) {
                continue;
            }
            for (; next != written; ++next) {
                take(noter.notes[next % kNotes]);
            }
            noter.taken.store(next, std::memory_order_release);
        }
    }

    void take(const Note& note) {
        if (at(note.slot).key == note.key) {
            hit(note.slot);
        }
    }

    Slot& at(int slot) { return slots_[static_cast<std::size_t>(slot)]; }

    void hit(int slot) {
        touch(slot);
        if (slot != newest_) {
            unlink(slot);
            putInFront(slot);
        }
    }

    /// Notes that the slot was used just now.
    void touch(int slot) {
        if (at(slot).inUse) {
            byUse_.splice(byUse_.begin(), byUse_, at(slot).use);
        } else {
            byUse_.push_front(slot);
            at(slot).use = byUse_.begin();
            at(slot).inUse = true;
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
    int recycleOldest(Pointer& evicted) {
        const int slot = oldest_;
        {
            Part& part = partOf(at(slot).key);
            const std::lock_guard<std::mutex> guard(part.lock);
            const auto found = part.entries.find(at(slot).key);
            // Of two slots with one key, the other may have taken it along.
            if (found != part.entries.end()) {
                found->second.record.swap(evicted);
                part.entries.erase(found);
            }
        }
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

    std::array<Part, kParts> parts_;
    std::array<Noter, kNoters> noters_;
    mutable std::mutex lock_;  // guards the rest; never taken beneath a part's
    std::vector<Slot> slots_;
    std::list<int> byUse_;  // slots in use, the most recently used first
    std::atomic<std::uint64_t> generation_{0};
    std::uint64_t evictions_ = 0;
    int used_ = 0;
    int newest_ = kNone;
    int oldest_ = kNone;
};

}  // namespace mxservice
