#include "platform/utils/SharedMutex.h"

#include <chrono>
#include <thread>

#include "platform/utils/Spin.h"

#ifdef __linux__
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace utils {
namespace {

/// How often a writer looks whether a long read has ended. Readers wake nobody, so that leaving costs them one store.
constexpr std::chrono::microseconds kWriterSleep{50};

/// Waits until a door opens, first awake, then asleep.
void waitUntilOpen(const std::atomic<std::uint32_t>& closed) {
    for (int i = 0; i < kSpins; ++i) {
        if (closed.load(std::memory_order_relaxed) == 0) {
            return;
        }
        relax();
    }
    closed.wait(1, std::memory_order_seq_cst);
}

/// Waits until the readers of a line have left.
void waitUntilEmpty(const std::atomic<std::uint32_t>& inside) {
    for (int i = 0; inside.load(std::memory_order_seq_cst) != 0; ++i) {
        if (i < kSpins) {
            relax();
        } else {
            std::this_thread::sleep_for(kWriterSleep);
        }
    }
}

/// Prepares this process for barriers that one thread imposes on all; false where the system has none.
bool registerProcessBarrier() {
#ifdef __linux__
    return ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0U, 0) == 0;
#else
    return false;
#endif
}

/// Every thread of this process passes a full memory barrier between the begin and the end of this call.
void processBarrier() {
#ifdef __linux__
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0U, 0) == 0) {
            return;
        }
        registerProcessBarrier();  // lost where a process image was made anew
    }
#endif
    // The call was there when lines were given out and is forbidden now (a filter of system calls). What the barrier
    // would have hurried, a processor writes back by itself within microseconds.
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

}  // namespace

/// Which owned lines have an owner. A thread gives its line back when it ends.
class SharedMutex::Lines {
public:
    /// Whether threads own lines at all in this process.
    static bool areOwned() {
        static const bool owned = registerProcessBarrier();
        return owned;
    }

    /// Gives the calling thread a line of its own while there are any, else one that it shares.
    static void give() {
        thread_local Owner owner;
        static_cast<void>(&owner);  // made by being named
    }

private:
    struct Owner {
        Owner() { lineOfThread_ = areOwned() ? take() : nextShared(); }
        ~Owner() {
            const std::uint32_t line = lineOfThread_;
            // Objects of the thread that outlive this one may still read.
            lineOfThread_ = nextShared();
            if (line < kOwnedLines) {
                taken_.fetch_and(~(std::uint32_t{1} << line), std::memory_order_release);
            }
        }
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
    };

    static std::uint32_t take() {
        std::uint32_t taken = taken_.load(std::memory_order_relaxed);
        while (~taken != 0) {
            const auto line = static_cast<std::uint32_t>(__builtin_ctz(~taken));
            if (taken_.compare_exchange_weak(taken, taken | (std::uint32_t{1} << line), std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return line;
            }
        }
        return nextShared();
    }

    static std::uint32_t nextShared() {
        return kOwnedLines + nextShared_.fetch_add(1, std::memory_order_relaxed) % kSharedLines;
    }

    static_assert(kOwnedLines == 32, "one bit a line");
    static inline std::atomic<std::uint32_t> taken_{0};
    static inline std::atomic<std::uint32_t> nextShared_{0};
};

void SharedMutex::lockSlowly() {
    if (lineOfThread_ == kNoLine) {
        Lines::give();
    }
    Inside& inside = lines_[lineOfThread_].inside;
    for (;;) {
        inside.fetch_add(1, std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_seq_cst) == 0) {
            return;
        }
        inside.fetch_sub(1, std::memory_order_release);
        waitUntilOpen(closed_);
    }
}

void SharedMutex::shutDoor() {
    closed_.store(1, std::memory_order_seq_cst);
    if (barrier_ == Barrier::OfProcess && Lines::areOwned()) {
        processBarrier();
    }
}

void SharedMutex::close() {
    shutDoor();
    for (const Line& line : lines_) {
        waitUntilEmpty(line.inside);
    }
}

void SharedMutex::open() {
    closed_.store(0, std::memory_order_seq_cst);
    closed_.notify_all();
}

void SharedMutex::lock() {
    lockUpdate();
    close();
}

bool SharedMutex::try_lock() {
    if (!writers_.try_lock()) {
        return false;
    }
    shutDoor();
    for (const Line& line : lines_) {
        if (line.inside.load(std::memory_order_seq_cst) != 0) {
            unlock();
            return false;
        }
    }
    return true;
}

void SharedMutex::unlock() {
    open();
    unlockUpdate();
}

}  // namespace utils
