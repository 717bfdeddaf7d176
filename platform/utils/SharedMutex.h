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
/// writer waits only for readers that were there before it. Threads beyond the number of lines share lines; there is
/// no limit on threads and nothing to register. Readers must not take the lock again while they hold it.
class PM_PLATFORM_API SharedMutex {
public:
    SharedMutex() = default;
    SharedMutex(const SharedMutex&) = delete;
    SharedMutex& operator=(const SharedMutex&) = delete;

    void lock();
    /// Goes in only where neither a writer nor a reader is inside.
    bool try_lock();
    void unlock();

    void lock_shared() {
        std::atomic<std::uint32_t>& inside = lines_[threadLine()].inside;
        inside.fetch_add(1, std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_seq_cst) != 0) [[unlikely]] {
            waitOutside(inside);
        }
    }

    void unlock_shared() {
        std::atomic<std::uint32_t>& inside = lines_[threadLine()].inside;
        inside.fetch_sub(1, std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_seq_cst) != 0) [[unlikely]] {
            inside.notify_all();
        }
    }

private:
    static constexpr std::size_t kLines = 16;
    static constexpr std::size_t kCacheLineBytes = 64;
    static_assert((kLines & (kLines - 1)) == 0, "threadLine masks");

    struct alignas(kCacheLineBytes) Line {
        std::atomic<std::uint32_t> inside{0};  // readers that hold the lock or are about to see the door
    };

    /// The calling thread's line, the same for its whole life.
    static std::size_t threadLine() {
        if (lineOfThread_ == 0) [[unlikely]] {
            lineOfThread_ = nextLine_.fetch_add(1, std::memory_order_relaxed) % kLines + 1;
        }
        return lineOfThread_ - 1;
    }
    void waitOutside(std::atomic<std::uint32_t>& inside);

    static inline std::atomic<std::uint32_t> nextLine_{0};
#if defined(__GNUC__) && !defined(_WIN32)
    // Reached without a call into the loader: the variable stands in every lookup.
    __attribute__((tls_model("initial-exec")))
#endif
    static inline constinit thread_local std::uint32_t lineOfThread_ = 0;  // 1-based; 0 is not yet given

    std::array<Line, kLines> lines_;
    alignas(kCacheLineBytes) std::atomic<std::uint32_t> closed_{0};  // 1 while a writer waits or is inside
    std::mutex writers_;                                             // one writer at a time
};

}  // namespace utils
