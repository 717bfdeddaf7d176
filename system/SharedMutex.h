#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "system/ThreadLine.h"

namespace sys {

/// A reader-writer lock made for many short reads and few writes.
///
/// Readers of different threads count themselves in on different cache lines, so they do not slow each other. A writer
/// shuts the door first: readers that come later wait, those already inside leave, then the writer goes in. So a
/// writer waits only for readers that were there before it.
///
/// Threads with a ThreadLine of their own mark it with plain stores, and a writer pays for the barrier; others count on
/// lines that they share. Readers must not take the lock again while they hold it.
class SharedMutex {
public:
    SharedMutex() : SharedMutex(Barrier::OfProcess) {}
    SharedMutex(const SharedMutex&) = delete;
    SharedMutex& operator=(const SharedMutex&) = delete;

    void lock();
    /// Goes in only where neither a writer nor a reader is inside.
    bool try_lock();
    void unlock();

    void lock_shared() {
        if (tryEnter() == nullptr) [[unlikely]] {
            lockSlowly();
        }
    }

    void unlock_shared() {
        Inside& inside = lines_[ThreadLine::ofThread()].inside;
        if (ThreadLine::ofThread() < ThreadLine::kOwned) [[likely]] {
            leave(&inside);
        } else {
            inside.fetch_sub(1, std::memory_order_release);
        }
    }

    /// Readers on one line of the lock that hold it or are about to see the door.
    using Inside = std::atomic<std::uint32_t>;

    /// Goes in as a reader when the calling thread has a line of its own and the door is open, without a call that
    /// leaves this function: what the shortest reads use. To be left with leave(); nullptr says to take lock_shared().
    Inside* tryEnter() {
        const std::uint32_t line = ThreadLine::ofThread();
        if (line >= ThreadLine::kOwned) [[unlikely]] {
            return nullptr;
        }
        Inside& inside = lines_[line].inside;
        inside.store(1, std::memory_order_relaxed);
        // Going in comes before looking at the door: for the processor, the writer's barrier sees to that.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_acquire) != 0) [[unlikely]] {
            leave(&inside);
            return nullptr;
        }
        return &inside;
    }
    static void leave(Inside* inside) { inside->store(0, std::memory_order_release); }

protected:
    /// What a writer does besides shutting the door, so that readers see it.
    enum class Barrier { OfProcess, None };
    explicit SharedMutex(Barrier barrier) : barrier_(barrier) {}

    Inside& insideOf(std::uint32_t line) { return lines_[line].inside; }
    bool isOpen(std::memory_order order) const { return closed_.load(order) == 0; }
    void lockSlowly();

private:
    static constexpr std::size_t kCacheLineBytes = 64;

    struct alignas(kCacheLineBytes) Line {
        Inside inside{0};
    };

    void shutDoor();

    std::array<Line, ThreadLine::kNone> lines_;                      // those with one owner first
    alignas(kCacheLineBytes) std::atomic<std::uint32_t> closed_{0};  // 1 while a writer waits or is inside
    std::mutex writers_;                                             // one writer at a time
    const Barrier barrier_;
};

/// The same for values that are written nearly as often as read. A reader marks its line with a full barrier of its
/// own, some nanoseconds; a writer then needs none of the whole process, which would cost it a microsecond.
class EvenSharedMutex : private SharedMutex {
public:
    EvenSharedMutex() : SharedMutex(Barrier::None) {}

    using SharedMutex::Inside;
    using SharedMutex::leave;
    using SharedMutex::lock;
    using SharedMutex::try_lock;
    using SharedMutex::unlock;
    using SharedMutex::unlock_shared;

    void lock_shared() {
        if (tryEnter() == nullptr) [[unlikely]] {
            lockSlowly();
        }
    }

    Inside* tryEnter() {
        const std::uint32_t line = ThreadLine::ofThread();
        if (line >= ThreadLine::kOwned) [[unlikely]] {
            return nullptr;
        }
        Inside& inside = insideOf(line);
        inside.store(1, std::memory_order_seq_cst);
        if (!isOpen(std::memory_order_seq_cst)) [[unlikely]] {
            leave(&inside);
            return nullptr;
        }
        return &inside;
    }
};

}  // namespace sys
