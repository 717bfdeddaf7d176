#include "system/SharedMutex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#ifdef __linux__
#include <sched.h>
#endif

namespace mxservice {
namespace {

struct Pair {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
};

using sys::SharedMutex;

/// More threads than the lock has lines, so that lines are shared; readers must never see half a write, and no write
/// may be lost.
TEST(SharedMutex, ReadersSeeWholeWritesAndNoWriteIsLost) {
    constexpr int kReaders = 40;
    constexpr int kWriters = 3;
    constexpr int kWrites = 2000;
    SharedMutex mutex;
    Pair pair;
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kReaders; ++i) {
        threads.emplace_back([&] {
            std::uint64_t last = 0;
            while (!done.load()) {
                mutex.lock_shared();
                const Pair seen = pair;
                mutex.unlock_shared();
                torn += seen.first != seen.second || seen.first < last ? 1 : 0;
                last = seen.first;
                std::this_thread::yield();
            }
        });
    }
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.emplace_back([&] {
            for (int write = 0; write < kWrites; ++write) {
                const std::lock_guard guard(mutex);
                ++pair.first;
                ++pair.second;
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(pair.first, static_cast<std::uint64_t>(kWriters) * kWrites);
}

/// A writer that waits for a reader keeps later ones out, so that readers who come and go cannot keep it out for ever.
TEST(SharedMutex, AWriterWaitsForTheReaderInsideAndLaterReadersForTheWriter) {
    SharedMutex mutex;
    std::atomic<bool> inside{false};
    std::atomic<bool> leave{false};
    std::atomic<bool> written{false};
    std::thread reader([&] {
        mutex.lock_shared();
        inside = true;
        while (!leave.load()) {
            std::this_thread::yield();
        }
        mutex.unlock_shared();
    });
    while (!inside.load()) {
        std::this_thread::yield();
    }
    mutex.lock_shared();  // together with the other one; gives this thread a line of its own
    mutex.unlock_shared();
    std::thread writer([&] {
        mutex.lock();
        written = true;
        mutex.unlock();
    });
    bool shut = false;
    constexpr int kAttempts = 1'000'000;
    for (int i = 0; i < kAttempts && !shut; ++i) {
        if (mutex.try_lock_shared()) {
            mutex.unlock_shared();
            std::this_thread::yield();
        } else {
            shut = true;
        }
    }
    EXPECT_TRUE(shut) << "readers come and go while a writer waits";
    EXPECT_FALSE(written);
    leave = true;
    reader.join();
    writer.join();
}

/// Keeps the calling thread on the first or second of the processors it may use, so that two threads run at once.
void stayOnProcessor([[maybe_unused]] int which) {
#ifdef __linux__
    cpu_set_t allowed;
    if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0 || CPU_COUNT(&allowed) < 2) {
        return;
    }
    std::size_t processor = 0;
    for (int left = which; !CPU_ISSET(processor, &allowed) || left-- > 0;) {
        ++processor;
    }
    CPU_ZERO(&allowed);
    CPU_SET(processor, &allowed);
    ::sched_setaffinity(0, sizeof allowed, &allowed);
#endif
}

void await(const std::atomic<int>& value, int wanted) {
    constexpr int kSpins = 20000;
    for (int i = 0; value.load() < wanted; ++i) {
        if (i > kSpins) {
            std::this_thread::yield();
        }
    }
}

void idle(int steps) {
    for (int i = 0; i < steps; ++i) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

/// A reader marks its line while a writer shuts the door, again and again, the delay before it sought so that either is
/// first about as often. The reader has just written to memory that the other processor holds, which keeps its mark
/// waiting in its own, and has the door's state at hand: there either would overlook the other without a barrier.
TEST(SharedMutex, AReaderAndAWriterWhoComeAtOnceAreNeverInsideTogether) {
    constexpr int kRounds = 5000;
    constexpr int kWriterDelay = 1000;
    constexpr int kStep = 4;
    constexpr int kReads = 200;
    struct alignas(64) Line {
        std::atomic<int> value{0};
    };
    SharedMutex mutex;
    Line writing;
    Line ready;
    Line begun;
    std::array<Line, 32> written;
    int together = 0;
    std::thread reader([&] {
        stayOnProcessor(0);
        mutex.lock_shared();  // gives this thread a line of its own
        mutex.unlock_shared();
        int delay = kWriterDelay / 2;
        for (int round = 1; round <= kRounds; ++round) {
            ready.value = round;
            await(begun.value, round);
            if (mutex.try_lock_shared()) {
                mutex.unlock_shared();
            }
            idle(delay);
            for (Line& line : written) {
                line.value.store(round, std::memory_order_relaxed);
            }
            if (mutex.try_lock_shared()) {
                for (int i = 0; i < kReads; ++i) {
                    together += writing.value.load(std::memory_order_relaxed);
                }
                mutex.unlock_shared();
                delay += kStep;
            } else {
                delay = std::max(delay - kStep, 0);
            }
        }
    });
    std::thread writer([&] {
        stayOnProcessor(1);
        for (int round = 1; round <= kRounds; ++round) {
            await(ready.value, round);
            for (Line& line : written) {
                line.value.store(-round, std::memory_order_relaxed);
            }
            begun.value = round;
            idle(kWriterDelay);
            mutex.lock();
            writing.value.store(1, std::memory_order_relaxed);
            idle(2 * kReads);
            writing.value.store(0, std::memory_order_relaxed);
            mutex.unlock();
        }
    });
    reader.join();
    writer.join();
    EXPECT_EQ(together, 0);
}

TEST(SharedMutex, ManyShortLivedThreadsAndLocksWork) {
    int total = 0;
    for (int round = 0; round < 50; ++round) {
        const auto mutex = std::make_unique<SharedMutex>();
        int written = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 20; ++i) {
            threads.emplace_back([&, i] {
                if (i % 5 == 0) {
                    const std::lock_guard guard(*mutex);
                    ++written;
                } else {
                    mutex->lock_shared();
                    mutex->unlock_shared();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        total += written;
    }
    EXPECT_EQ(total, 200);
}

}  // namespace
}  // namespace mxservice
