#pragma once

#include <condition_variable>
#include <mutex>

/// Threads meet there, round after round. Instead of std::barrier, whose waiting on an atomic misses being woken with
/// GCC 12 on Windows.
class Barrier {
public:
    explicit Barrier(int threads) : threads_(threads), missing_(threads) {}

    void arrive_and_wait() {
        std::unique_lock guard(lock_);
        const unsigned round = round_;
        if (--missing_ == 0) {
            missing_ = threads_;
            ++round_;
            met_.notify_all();
        }
        met_.wait(guard, [&] { return round != round_; });
    }

private:
    std::mutex lock_;
    std::condition_variable met_;
    const int threads_;
    int missing_;
    unsigned round_ = 0;
};
