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

/// Readers that come and go without a pause must not keep a writer out: this test ends only if the writer gets in.
TYPED_TEST(AnyLock, AWriterGetsInWhileReadersNeverPause) {
    TypeParam mutex;
    std::atomic<bool> written{false};
    std::atomic<int> started{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            ++started;
            while (!written.load()) {
                mutex.lock_shared();
                mutex.unlock_shared();
            }
        });
    }
    while (started != 4) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 1000; ++i) {
        mutex.lock();
        mutex.unlock();
    }
    written = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    SUCCEED();
}

/// A reader inside does not keep another one out: both must be inside at once for either to leave.
TYPED_TEST(AnyLock, ReadersAreInsideTogether) {
    TypeParam mutex;
    std::atomic<int> inside{0};
    const auto read = [&] {
        mutex.lock_shared();
        ++inside;
        while (inside.load() < 2) {
            std::this_thread::yield();
        }
        mutex.unlock_shared();
    };
    std::thread first(read);
    std::thread second(read);
    first.join();
    second.join();
    EXPECT_EQ(inside, 2);
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
