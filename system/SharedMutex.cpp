#include "system/SharedMutex.h"

#include <chrono>
#include <thread>

#include "system/Spin.h"

namespace sys {
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
    closed_.notify_all();
    writers_.unlock();
}

}  // namespace sys
