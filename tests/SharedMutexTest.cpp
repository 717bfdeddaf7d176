#include "platform/utils/SharedMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/instrumentcenter/catalogue/Guarded.h"

namespace mxservice {
namespace {

struct Pair {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
};

/// Both kinds of the lock keep the same promises.
template <class Mutex>
class AnyLock : public testing::Test {};
using Locks = testing::Types<SharedMutex, EvenSharedMutex>;
TYPED_TEST_SUITE(AnyLock, Locks);

/// More threads than the lock has lines, so that lines are shared; readers must never see half a write, and no write
/// may be lost.
TYPED_TEST(AnyLock, ReadersSeeWholeWritesAndNoWriteIsLost) {
    constexpr int kReaders = 40;
    constexpr int kWriters = 3;
    constexpr int kWrites = 2000;
    Guarded<Pair, TypeParam> guarded;
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kReaders; ++i) {
        threads.emplace_back([&] {
            std::uint64_t last = 0;
            while (!done.load()) {
                const Pair seen = guarded.copy();
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
                const auto pair = guarded.write();
                ++pair->first;
                ++pair->second;
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
    EXPECT_EQ(guarded.read()->first, static_cast<std::uint64_t>(kWriters) * kWrites);
}

/// A writer that waits for a reader keeps later ones out, so that readers who come and go cannot keep it out for ever.
TYPED_TEST(AnyLock, AWriterWaitsForTheReaderInsideAndLaterReadersForTheWriter) {
    TypeParam mutex;
    std::atomic<bool> inside{false};
    std::atomic<bool> leave{false};
    std::atomic<bool> written{false};
    std::thread reader([&] {
        mutex.lock_shared();
        inside = true;
        inside.notify_all();
        leave.wait(false);
        mutex.unlock_shared();
    });
    inside.wait(false);
    mutex.lock_shared();  // together with the other one; gives this thread what tryEnter() needs
    mutex.unlock_shared();
    std::thread writer([&] {
        mutex.lock();
        written = true;
        mutex.unlock();
    });
    bool shut = false;
    constexpr int kAttempts = 1'000'000;
    for (int i = 0; i < kAttempts && !shut; ++i) {
        if (auto* const entered = mutex.tryEnter()) {
            TypeParam::leave(entered);
            std::this_thread::yield();
        } else {
            shut = true;
        }
    }
    EXPECT_TRUE(shut) << "readers come and go while a writer waits";
    EXPECT_FALSE(written);
    leave = true;
    leave.notify_all();
    reader.join();
    writer.join();
}

/// Two threads raise a value in two steps, what they read being the ground of what they commit: a writer let in between
/// would be lost. Readers go on all the time and see a value only rise.
TYPED_TEST(AnyLock, AnUpdateKeepsWritersOutAndReadersIn) {
    constexpr std::uint64_t kUpdates = 2000;
    Guarded<std::uint64_t, TypeParam> guarded(0);
    std::atomic<bool> done{false};
    std::atomic<int> fallen{0};
    std::thread reader([&] {
        std::uint64_t last = 0;
        while (!done.load()) {
            const std::uint64_t seen = guarded.answer([](const std::uint64_t& value) noexcept { return value; });
            fallen += seen < last ? 1 : 0;
            last = seen;
        }
    });
    const auto raise = [&] {
        for (std::uint64_t i = 0; i < kUpdates; ++i) {
            auto update = guarded.update();
            const std::uint64_t next = *update + 1;
            update.commit([next](std::uint64_t& value) { value = next; });
        }
    };
    std::thread other(raise);
    raise();
    other.join();
    {
        // No commit, no wait: a reader answers while the update is under way.
        const auto update = guarded.update();
        std::thread([&] { fallen += guarded.copy() == 2 * kUpdates ? 0 : 1; }).join();
    }
    done = true;
    reader.join();
    EXPECT_EQ(fallen, 0);
    EXPECT_EQ(guarded.copy(), 2 * kUpdates);
}

TYPED_TEST(AnyLock, ManyShortLivedThreadsAndLocksWork) {
    std::uint64_t total = 0;
    for (int round = 0; round < 50; ++round) {
        const auto guarded = std::make_unique<Guarded<std::uint64_t, TypeParam>>();
        std::vector<std::thread> threads;
        for (int i = 0; i < 20; ++i) {
            threads.emplace_back([&, i] {
                if (i % 5 == 0) {
                    ++*guarded->write();
                } else {
                    guarded->copy();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        total += guarded->copy();
    }
    EXPECT_EQ(total, 200U);
}

}  // namespace
}  // namespace mxservice
