#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/sort/pdqsort/pdqsort.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "system/Spin.h"
#include "system/ThreadLine.h"

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
/// hits of different threads since the last insert it is left open which came first. Sixteen threads at once have notes
/// of their own; a hit of any further one waits for the chain.
template <class Record>
class RecordCache {
public:
    using Pointer = boost::shared_ptr<Record>;

    /// A capacity of 0 or less caches nothing.
    explicit RecordCache(int capacity) {
        if (capacity > 0) {
            slots_.resize(static_cast<std::size_t>(capacity));
            byUse_.resize(slots_.size());
            for (Shelf& shelf : shelves_) {
                shelf.entries.reserve(slots_.size() / kShelves + 1);
            }
        }
    }

    /// The record, made the youngest; empty when the key is not cached.
    Pointer find(std::uint64_t key) {
        Entry entry;
        {
            Shelf& shelf = shelfOf(key);
            const auto guard = sys::lockAwake(shelf.lock);
            const auto found = shelf.entries.find(key);
            if (found != shelf.entries.end()) {
                entry = found->second;
            }
        }
        if (entry.slot == kNone) {
            count(&Noter::misses);
        } else {
            count(&Noter::hits);
            note({key, entry.slot});
        }
        return std::move(entry.record);
    }

    /// Counts the loads that have refreshed the cache; taken before a record is read from the store.
    std::uint64_t generation() const { return generation_.load(); }

    /// Caches a record after a miss, unless a load has come between the reading of `generation` and now: the record
    /// may be older than what the load brought.
    void insert(std::uint64_t key, Pointer record, std::uint64_t generation) {
        Pointer evicted;  // destroyed after the locks
        const auto guard = sys::lockAwake(lock_);
        if (slots_.empty() || generation != generation_.load()) {
            return;
        }
        takeNotes();
        const bool full = used_ == static_cast<int>(slots_.size());
        const int slot = full ? oldest_ : used_;
        {
            Shelf& shelf = shelfOf(key);
            const auto guardOfShelf = sys::lockAwake(shelf.lock);
            Entry& entry = shelf.entries[key];  // nothing has changed if there is no memory for it
            entry.slot = slot;
            entry.record.swap(record);  // of two threads that missed on one key the later has its way
        }
        if (full && at(slot).key != key) {
            Shelf& shelf = shelfOf(at(slot).key);
            const auto guardOfShelf = sys::lockAwake(shelf.lock);
            const auto former = shelf.entries.find(at(slot).key);
            // Of two slots with one key, the other may have taken the entry along.
            if (former != shelf.entries.end()) {
                former->second.record.swap(evicted);
                shelf.entries.erase(former);
            }
        }
        at(slot).key = key;
        if (full) {
            recycleOldest();
        } else {
            appendSlot();
        }
        touch(slot);
        if (oldest_ == kNone) {
            chainByUse();
        }
    }

    /// Replaces the cached records of the keys that `records` (a map from keys to pointers) holds; recency stays.
    template <class Records>
    void refresh(const Records& records) {
        std::vector<std::pair<std::uint64_t, Pointer>> fresh;  // then what they replaced, destroyed after the locks
        const auto guard = sys::lockAwake(lock_);
        ++generation_;
        if (records.size() < static_cast<std::size_t>(used_)) {
            fresh.assign(records.begin(), records.end());
        } else {
            for (int slot = 0; slot < used_; ++slot) {
                const auto found = records.find(at(slot).key);
                if (found != records.end()) {
                    fresh.emplace_back(found->first, found->second);
                }
            }
        }
        for (auto& [key, record] : fresh) {
            Shelf& shelf = shelfOf(key);
            const auto guardOfShelf = sys::lockAwake(shelf.lock);
            const auto cached = shelf.entries.find(key);
            if (cached != shelf.entries.end()) {
                cached->second.record.swap(record);
            }
        }
    }

    CacheUse use(const char* name) const {
        const auto guard = sys::lockAwake(lock_);
        CacheUse use{name, slots_.size(), static_cast<std::uint64_t>(used_), 0, 0, evictions_};
        for (const Noter& noter : noters_) {
            use.hits += noter.hits.load(std::memory_order_relaxed);
            use.misses += noter.misses.load(std::memory_order_relaxed);
        }
        return use;
    }

private:
    static constexpr int kNone = -1;
    static constexpr std::uint32_t kNoters = 16;
    static constexpr std::uint32_t kNotes = 256;
    /// So many notes are worth taking the lock for, if nobody has it.
    static constexpr std::uint32_t kManyNotes = 64;
    /// So many parts of the table have a lock each: two threads seldom want one at the same moment.
    static constexpr std::size_t kShelves = 64;
    static_assert(kNoters <= sys::ThreadLine::kOwned);
    static constexpr std::size_t kLineBytes = 64;

    struct Entry {
        Pointer record;
        int slot = kNone;
    };

    /// A part of the table, by bits from the middle of the keys: tables go by those at either end.
    struct Shelf {
        alignas(kLineBytes) std::mutex lock;
        HashIndex<Entry> entries;
    };
    Shelf& shelfOf(std::uint64_t key) { return shelves_[(key >> 24U) % kShelves]; }

    /// A hit. The slot may have gone to another key since.
    struct Note {
        std::uint64_t key;
        int slot;
    };

    using Counter = std::atomic<std::uint64_t>;

    /// What one thread asked for, and those of its hits that the chain has not heard of. Written by that thread; notes
    /// are taken under `lock_`. The last of all is shared by the threads that have none and holds no notes.
    struct Noter {
        alignas(kLineBytes) Counter hits{0};
        Counter misses{0};
        alignas(kLineBytes) std::atomic<std::uint32_t> written{0};
        std::array<Note, kNotes> notes;
        alignas(kLineBytes) std::atomic<std::uint32_t> taken{0};
    };

    /// A key's place in the chain of recency.
    struct Slot {
        std::uint64_t key = 0;
        std::uint64_t lastUse = 0;  // by clock_
        int younger = kNone;
        int older = kNone;
    };

    struct Use {
        std::uint64_t time = 0;
        int slot = kNone;
    };

    void count(Counter Noter::*counter) {
        const std::uint32_t thread = sys::ThreadLine::ofThread();
        if (thread >= kNoters) {
            (noters_.back().*counter).fetch_add(1, std::memory_order_relaxed);
            return;
        }
        Counter& own = noters_[thread].*counter;
        own.store(own.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    void note(const Note& note) {
        const std::uint32_t thread = sys::ThreadLine::ofThread();
        if (thread >= kNoters) {
            const auto guard = sys::lockAwake(lock_);
            take(note);
            return;
        }
        Noter& noter = noters_[thread];
        const std::uint32_t written = noter.written.load(std::memory_order_relaxed);
        const std::uint32_t waiting = written - noter.taken.load(std::memory_order_acquire);
        if (waiting == kNotes) {
            const auto guard = sys::lockAwake(lock_);
            takeNotes();
        } else if (waiting != 0 && waiting % kManyNotes == 0) {
            const std::unique_lock guard(lock_, std::try_to_lock);
            if (guard.owns_lock()) {
                takeNotes();
            }
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
    void touch(int slot) { at(slot).lastUse = ++clock_; }

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

    /// Sorts all records, but only after a hit on the oldest one.
    void chainByUse() {
        for (std::size_t slot = 0; slot < slots_.size(); ++slot) {  // the chain loses its end only once all are used
            byUse_[slot] = {slots_[slot].lastUse, static_cast<int>(slot)};
        }
        boost::sort::pdqsort_branchless(byUse_.begin(), byUse_.end(),
                                        [](const Use& a, const Use& b) { return a.time > b.time; });
        newest_ = byUse_.front().slot;
        oldest_ = byUse_.back().slot;
        int younger = kNone;
        for (const auto& [time, slot] : byUse_) {
            at(slot).younger = younger;
            at(slot).older = kNone;
            if (younger != kNone) {
                at(younger).older = slot;
            }
            younger = slot;
        }
    }

    /// The next unused slot, linked in as the oldest.
    void appendSlot() {
        const int slot = used_++;
        at(slot).younger = oldest_;
        at(slot).older = kNone;
        if (oldest_ == kNone) {
            newest_ = slot;
        } else {
            at(oldest_).older = slot;
        }
        oldest_ = slot;
    }

    /// The oldest slot, made the youngest.
    void recycleOldest() {
        const int slot = oldest_;
        ++evictions_;
        oldest_ = at(slot).younger;
        if (oldest_ != kNone) {
            at(oldest_).older = kNone;
        }
        if (slot != newest_) {
            putInFront(slot);
        }
    }

    std::array<Shelf, kShelves> shelves_;
    std::array<Noter, kNoters + 1> noters_;
    alignas(kLineBytes) std::atomic<std::uint64_t> generation_{0};
    alignas(kLineBytes) mutable std::mutex lock_;  // guards the rest; taken before that of the entries
    std::vector<Slot> slots_;
    std::vector<Use> byUse_;   // room for sorting, so that nothing is allocated while the chain has no end
    std::uint64_t clock_ = 0;  // counts uses
    std::uint64_t evictions_ = 0;
    int used_ = 0;
    int newest_ = kNone;
    int oldest_ = kNone;
};

}  // namespace mxservice
