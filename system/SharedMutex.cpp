#include "system/SharedMutex.h"

#include <chrono>
#include <thread>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

#include "system/Spin.h"

namespace sys {
namespace {

/// How often a writer looks whether a long read has ended. Readers wake nobody, so that leaving costs them one store.
constexpr std::chrono::microseconds kWriterSleep{50};

// On Windows by the system's own calls: where the standard library has none for atomics, GCC 12's looks at the value
// before it takes the lock under which it then sleeps, and misses who wakes it in between.

/// Sleeps until a door opens.
void sleepUntilOpen(const std::atomic<std::uint32_t>& closed) {
#ifdef _WIN32
    static_assert(sizeof closed == sizeof(std::uint32_t));
    std::uint32_t shut = 1;
    while (closed.load(std::memory_order_seq_cst) == shut) {
        ::WaitOnAddress(const_cast<std::atomic<std::uint32_t>*>(&closed), &shut, sizeof shut, INFINITE);
    }
#else
    closed.wait(1, std::memory_order_seq_cst);
#endif
}

void wakeAll(std::atomic<std::uint32_t>& closed) {
#ifdef _WIN32
    ::WakeByAddressAll(&closed);
#else
    closed.notify_all();
#endif
}

/// Waits until a door opens, first awake, then asleep.
void waitUntilOpen(const std::atomic<std::uint32_t>& closed) {
    for (int i = 0; i < kSpins; ++i) {
        if (closed.load(std::memory_order_relaxed) == 0) {
            return;
        }
        relax();
    }
    sleepUntilOpen(closed);
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

}  // namespace

void SharedMutex::lockSlowly() {
    Inside& inside = lines_[ThreadLine::give()].inside;
    for (;;) {
        // An addition, because others may count on this line, too; and a barrier of its own, because where no thread
        // owns a line a writer has none for all of them.
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
    ThreadLine::barrier();
}

void SharedMutex::lock() {
    writers_.lock();
    shutDoor();
    // One after the other: once a line was found empty behind the shut door, nobody goes in on it.
    for (const Line& line : lines_) {
        waitUntilEmpty(line.inside);
    }
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
    // The door before the mutex, so that readers go in between two writers who come one after the other.
    closed_.store(0, std::memory_order_seq_cst);
    wakeAll(closed_);
    writers_.unlock();
}

}  // namespace sys
