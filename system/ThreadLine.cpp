#include "system/ThreadLine.h"

#include <atomic>
#include <chrono>
#include <thread>

#ifdef __linux__
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

namespace sys {
namespace {

/// Prepares this process for barriers that one thread imposes on all; false where the system has none.
bool registerProcessBarrier() {
#ifdef __linux__
    return ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0U, 0) == 0;
#elif defined(_WIN32)
    // Wine has the call and does nothing in it: readers and writers would overlook each other.
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr;
#else
    return false;
#endif
}

#ifdef _WIN32
/// Where each thread's number stands, one more than it, so that nothing yet is 0. The system's own slots and no
/// thread_local variable: the compiler's are gone before the thread's end is told.
DWORD numberSlot() {
    static const DWORD slot = ::TlsAlloc();
    return slot;
}
#endif

}  // namespace

/// Which owned numbers have an owner. A thread gives its number back when it ends.
class ThreadLine::Numbers {
public:
    /// Gives the calling thread a number of its own while there are any, else one that it shares.
    static void give() {
#ifndef _WIN32
        thread_local Owner owner;
        static_cast<void>(&owner);  // made by being named
#else
        static const DWORD atEnd = ::FlsAlloc([](void* /*owner*/) { giveBack(); });
        begin();
        ::FlsSetValue(atEnd, ::GetCurrentProcess());  // anything but null: the end of a thread without is not told
#endif
    }

private:
    struct Owner {
        Owner() { begin(); }
        ~Owner() { giveBack(); }
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
    };

    static void begin() {
        set(areOwned() ? take() : nextShared());
    }
    static void giveBack() {
        const std::uint32_t number = ofThread();
        // Objects of the thread that outlive this may still read.
        set(nextShared());
        if (number < kOwned) {
            taken_.fetch_and(~(std::uint32_t{1} << number), std::memory_order_release);
        }
    }

    static std::uint32_t take() {
        std::uint32_t taken = taken_.load(std::memory_order_relaxed);
        while (~taken != 0) {
            const auto number = static_cast<std::uint32_t>(__builtin_ctz(~taken));
            if (taken_.compare_exchange_weak(taken, taken | (std::uint32_t{1} << number), std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return number;
            }
        }
        return nextShared();
    }

    static std::uint32_t nextShared() {
        return kOwned + nextShared_.fetch_add(1, std::memory_order_relaxed) % kShared;
    }

    static_assert(kOwned == 32, "one bit a number");
    static inline std::atomic<std::uint32_t> taken_{0};
    static inline std::atomic<std::uint32_t> nextShared_{0};
};

#ifdef _WIN32
std::uint32_t ThreadLine::ofThread() noexcept {
    const auto number = reinterpret_cast<std::uintptr_t>(::TlsGetValue(numberSlot()));
    return number == 0 ? kNone : static_cast<std::uint32_t>(number - 1);
}

void ThreadLine::set(std::uint32_t number) noexcept {
    ::TlsSetValue(numberSlot(), reinterpret_cast<void*>(std::uintptr_t{number} + 1));
}
#else
void ThreadLine::set(std::uint32_t number) noexcept {
    number_ = number;
}
#endif

std::uint32_t ThreadLine::give() {
    if (ofThread() == kNone) {
        Numbers::give();
    }
    return ofThread();
}

bool ThreadLine::areOwned() {
    static const bool owned = registerProcessBarrier();
    return owned;
}

void ThreadLine::barrier() {
    if (!areOwned()) {
        return;
    }
#ifdef __linux__
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0U, 0) == 0) {
            return;
        }
        registerProcessBarrier();  // lost where a process image was made anew
    }
#elif defined(_WIN32)
    ::FlushProcessWriteBuffers();
    return;
#endif
    // The call was there when lines were given out and is forbidden now (a filter of system calls). What the barrier
    // would have hurried, a processor writes back by itself within microseconds.
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

}  // namespace sys
