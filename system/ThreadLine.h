#pragma once

#include <cstdint>

namespace sys {

/// Numbers for threads, so that readers of different threads can mark different cache lines.
///
/// The first living threads have a number of their own, which they share with no other; they may mark their lines with
/// plain stores. What keeps such a reader and a writer from overlooking each other is the writer's to pay, by
/// barrier(). Further threads share numbers and must count with atomic additions; so do all threads where the system
/// has no such barrier. There is no limit on threads and nothing to register.
class ThreadLine {
public:
    /// Numbers below this have one owner.
    static constexpr std::uint32_t kOwned = 32;
    static constexpr std::uint32_t kShared = 8;
    /// How many numbers there are; stands for a thread that has none yet.
    static constexpr std::uint32_t kNone = kOwned + kShared;

    /// The calling thread's number, from its first give() until it ends.
#ifndef _WIN32
    static std::uint32_t ofThread() {
        return number_;
    }
#else
    static std::uint32_t ofThread() noexcept;
#endif
    /// Gives the calling thread a number if it has none, and answers it.
    static std::uint32_t give();

    /// Whether threads own lines at all in this process.
    static bool areOwned();
    /// Every thread of this process passes a full memory barrier between the begin and the end of this call
    /// (membarrier(2) or FlushProcessWriteBuffers, about a microsecond). Nothing where no line is owned.
    static void barrier();

private:
    class Numbers;

    static void set(std::uint32_t number) noexcept;

    // On Windows the number stands behind a call: what is inline there may be one variable here and another in the next
    // unit or library, and a reader that goes out by another number than it went in by is waited for without end.
#ifndef _WIN32
#if defined(__GNUC__)
    // Reached without a call into the loader: the variable stands in every lookup.
    __attribute__((tls_model("initial-exec")))
#endif
    static inline constinit thread_local std::uint32_t number_ = kNone;
#endif
};

}  // namespace sys
