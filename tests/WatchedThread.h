#pragma once

#ifdef __linux__
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

/// A thread of which can be told from outside that it waits; joined with the object.
class WatchedThread {
public:
    explicit WatchedThread(std::function<void()> work)
        : thread_([this, work = std::move(work)] {
#ifdef __linux__
              id_ = ::gettid();
#endif
              work();
              done_ = true;
          }) {
    }
    ~WatchedThread() {
        thread_.join();
    }
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    /// Whether this system tells.
    static bool canBeWatched() {
#ifdef __linux__
        return std::ifstream("/proc/self/syscall").good();
#else
        return false;  // also under Wine, where that file is another's
#endif
    }

    /// Waits until it is done or inside the system call of that number, where nothing but what it waits for lets it
    /// go on; whether it is inside.
    bool waitsIn(long call) const {
        while (!done_.load()) {
            std::ifstream state("/proc/self/task/" + std::to_string(id_.load()) + "/syscall");
            long number = -1;
            if (state >> number && number == call) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    /// The same where a lock of the standard library's lets it wait.
    bool waitsForALock() const {
#ifdef __linux__
        return waitsIn(SYS_futex);
#else
        return false;
#endif
    }

private:
    std::atomic<int> id_{0};
    std::atomic<bool> done_{false};
    std::thread thread_;  // last: it uses the others
};
