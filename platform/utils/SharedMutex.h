#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/Export.h"

namespace utils {

/// A reader-writer lock made for many short reads and few writes.
///
/// Readers of different threads count themselves in on different cache lines, so they do not slow each other. A writer
/// shuts the door first: readers that come later wait, those already inside leave, then the writer goes in. So a
/// writer waits only for readers that were there before it.
///
/// The first threads have a line of their own in every lock, which they mark with plain stores. What
/// keeps such a reader and a writer from overlooking each other is the writer's to pay: it makes every processor that
/// runs a thread of this process pass a memory barrier (membarrier(2), about a microsecond). Further threads share
/// lines and count on them with atomic additions; so do all threads where the system has no such barrier. There is no
/// limit on threads and nothing to register. Readers must not take the lock again while they hold it.
class PM_PLATFORM_API SharedMutex {
public:
    SharedMutex() : SharedMutex(Barrier::OfProcess) {}
    SharedMutex(const SharedMutex&) = delete;
    SharedMutex& operator=(const SharedMutex&) = delete;

    void lock();
    /// Goes in only where neither a writer nor a reader is inside.
    bool try_lock();
    void unlock();

    /// In two steps: from lockUpdate() on other writers wait while readers come and go, so that the holder may read and
    /// prepare what is to be written; between close() and open() the lock is held as lock() holds it.
    void lockUpdate() { writers_.lock(); }
    void unlockUpdate() { writers_.unlock(); }
    void close();
    void open();

    void lock_shared() {
        if (tryEnter() == nullptr) [[unlikely]] {
            lockSlowly();
        }
    }

    void unlock_shared() {
        Inside& inside = lines_[lineOfThread_].inside;
        if (lineOfThread_ < kOwnedLines) [[likely]] {
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
        const std::uint32_t line = lineOfThread_;
        if (line >= kOwnedLines) [[unlikely]] {
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

    /// Threads with a number below this share it with no other living thread.
    static constexpr std::uint32_t kOwnedLines = 32;
    /// The calling thread's number, from the first time that it took any such lock until it ends.
    static std::uint32_t numberOfThread() { return lineOfThread_; }

protected:
    /// What a writer does besides shutting the door, so that readers see it.
    enum class Barrier { OfProcess, None };
    explicit SharedMutex(Barrier barrier) : barrier_(barrier) {}

    Inside& insideOf(std::uint32_t line) { return lines_[line].inside; }
    bool isOpen(std::memory_order order) const { return closed_.load(order) == 0; }
    void lockSlowly();

private:
    static constexpr std::uint32_t kSharedLines = 8;
    static constexpr std::uint32_t kNoLine = kOwnedLines + kSharedLines;  // not given yet
    static constexpr std::size_t kCacheLineBytes = 64;

    struct alignas(kCacheLineBytes) Line {
        Inside inside{0};
    };

    /// Gives threads their lines.
    class Lines;

    void shutDoor();

#if defined(__GNUC__) && !defined(_WIN32)
    // Reached without a call into the loader: the variable stands in every lookup.
    __attribute__((tls_model("initial-exec")))
#endif
    static inline constinit thread_local std::uint32_t lineOfThread_ = kNoLine;  // the same in every lock

    std::array<Line, kNoLine> lines_;                                // those with one owner first
    alignas(kCacheLineBytes) std::atomic<std::uint32_t> closed_{0};  // 1 while a writer waits or is inside
    std::mutex writers_;                                             // one writer at a time
    const Barrier barrier_;
};

/// The same for values that are written nearly as often as read. A reader marks its line with a full barrier of its
/// own, some nanoseconds; a writer then needs none of the whole process, which would cost it a microsecond.
class EvenSharedMutex : private SharedMutex {
public:
    EvenSharedMutex() : SharedMutex(Barrier::None) {}

    using SharedMutex::close;
    using SharedMutex::Inside;
    using SharedMutex::leave;
    using SharedMutex::lock;
    using SharedMutex::lockUpdate;
    using SharedMutex::open;
    using SharedMutex::try_lock;
    using SharedMutex::unlock;
    using SharedMutex::unlock_shared;
    using SharedMutex::unlockUpdate;

    void lock_shared() {
        if (tryEnter() == nullptr) [[unlikely]] {
            lockSlowly();
        }
    }

    Inside* tryEnter() {
        const std::uint32_t line = numberOfThread();
        if (line >= kOwnedLines) [[unlikely]] {
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

}  // namespace utils
