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
    SharedMutex() = default;
    SharedMutex(const SharedMutex&) = delete;
    SharedMutex& operator=(const SharedMutex&) = delete;

    void lock();
    /// Goes in only where neither a writer nor a reader is inside.
    bool try_lock();
    void unlock();

    void lock_shared() {
        if (!try_lock_shared()) [[unlikely]] {
            lockSlowly();
        }
    }

    /// Goes in when the door is open; false also for a thread without a line of its own.
    bool try_lock_shared() {
        const std::uint32_t line = ThreadLine::ofThread();
        if (line >= ThreadLine::kOwned) [[unlikely]] {
            return false;
        }
        Inside& inside = lines_[line].inside;
        inside.store(1, std::memory_order_relaxed);
        // Going in comes before looking at the door: for the processor, the writer's barrier sees to that.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_acquire) != 0) [[unlikely]] {
            inside.store(0, std::memory_order_release);
            return false;
        }
        return true;
    }

    void unlock_shared() {
        Inside& inside = lines_[ThreadLine::ofThread()].inside;
        if (ThreadLine::ofThread() < ThreadLine::kOwned) [[likely]] {
            inside.store(0, std::memory_order_release);
        } else {
            inside.fetch_sub(1, std::memory_order_release);
        }
    }

private:
    /// Readers on one line of the lock that hold it or are about to see the door.
    using Inside = std::atomic<std::uint32_t>;

    static constexpr std::size_t kCacheLineBytes = 64;

    struct alignas(kCacheLineBytes) Line {
        Inside inside{0};
    };

    void lockSlowly();
    void shutDoor();

    std::array<Line, ThreadLine::kNone> lines_;                      // those with one owner first
    alignas(kCacheLineBytes) std::atomic<std::uint32_t> closed_{0};  // 1 while a writer waits or is inside
    std::mutex writers_;                                             // one writer at a time
};

}  // namespace sys
