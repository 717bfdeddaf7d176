#include "base/instrumentcenter/store/RecordCache.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <list>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace mxservice {
namespace {

struct Cache : RecordCache<std::string> {
    /// Threads have a number from their first question of a version; those without one note no hits but tell them at
    /// once.
    explicit Cache(int capacity) : RecordCache(capacity) { sys::ThreadLine::give(); }
};

boost::shared_ptr<std::string> text(const std::string& value) {
    return boost::make_shared<std::string>(value);
}

void put(Cache& cache, std::uint64_t key) {
    cache.insert(key, text(std::to_string(key)), cache.generation());
}

TEST(RecordCache, TheRecordThatFilledItGoesFirst) {
    Cache cache(2);
    put(cache, 1);
    put(cache, 2);
    put(cache, 3);
    EXPECT_TRUE(cache.find(1));
    EXPECT_FALSE(cache.find(2));
    EXPECT_TRUE(cache.find(3));
}

TEST(RecordCache, AHitOnTheOldestDoesNotSaveIt) {
    Cache cache(3);
    for (const std::uint64_t key : {1U, 2U, 3U}) {
        put(cache, key);
    }
    EXPECT_TRUE(cache.find(3));
    put(cache, 4);
    EXPECT_FALSE(cache.find(3)) << "the mark of the old end stayed on it";
    EXPECT_TRUE(cache.find(1) && cache.find(2) && cache.find(4));
}

TEST(RecordCache, CapacityOneAndNoneWork) {
    Cache one(1);
    for (std::uint64_t key = 1; key < 10; ++key) {
        put(one, key);
        ASSERT_TRUE(one.find(key));
        ASSERT_EQ(*one.find(key), std::to_string(key));
        ASSERT_FALSE(one.find(key - 1));
    }
    for (const int capacity : {0, -1, -2000000000}) {
        Cache none(capacity);
        put(none, 1);
        EXPECT_FALSE(none.find(1)) << capacity;
    }
}

TEST(RecordCache, ALoadReplacesCachedRecordsAndKeepsLateOldOnesOut) {
    Cache cache(4);
    put(cache, 1);
    put(cache, 2);
    const std::uint64_t before = cache.generation();
    cache.refresh(std::map<std::uint64_t, boost::shared_ptr<std::string>>{{1, text("new")}, {3, text("new")}});
    EXPECT_EQ(*cache.find(1), "new");
    EXPECT_EQ(*cache.find(2), "2");
    EXPECT_FALSE(cache.find(3)) << "a load brings nothing into the cache";
    cache.insert(3, text("read before the load"), before);
    EXPECT_FALSE(cache.find(3));
}

/// The recency rules as they read, over plain lists from the youngest to the oldest. A hit on the entry that carries
/// the old end's mark is followed by an insert at once, which chains all anew by their last use; with other hits
/// between, only the promises of the next tests hold. Now and then there are more hits than the cache notes before it
/// sorts them.
TEST(RecordCache, FollowsTheRulesOfALiteralModel) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (int round = 0; round < 200; ++round) {
        const int capacity = 2 + static_cast<int>(random() % 6);
        Cache cache(capacity);
        std::list<std::uint64_t> chain;
        std::list<std::uint64_t> byUse;
        const auto use = [&](std::uint64_t key) {
            byUse.remove(key);
            byUse.push_front(key);
        };
        std::uint64_t fresh = 1000;
        for (int step = 0; step < 100; ++step) {
            const auto hits = random() % 20 == 0 ? 300 : 1;
            for (int hit = 0; hit < hits && chain.size() > 1; ++hit) {
                const auto key = std::next(chain.begin(), static_cast<int>(random() % (chain.size() - 1)));
                ASSERT_TRUE(cache.find(*key)) << "step " << step;
                use(*key);
                chain.splice(chain.begin(), chain, key);
            }
            const bool full = static_cast<int>(chain.size()) == capacity;
            const bool onTheMark = full && random() % 4 == 0;
            const std::uint64_t oldest = full ? chain.back() : 0;
            if (onTheMark) {
                ASSERT_TRUE(cache.find(oldest)) << "step " << step;
            }
            put(cache, ++fresh);
            use(fresh);
            if (full) {
                ASSERT_FALSE(cache.find(oldest)) << "step " << step;
                byUse.remove(oldest);
                chain.pop_back();
                chain.push_front(fresh);
            } else {
                chain.push_back(fresh);
            }
            if (onTheMark) {
                chain = byUse;
            }
        }
    }
}

/// A hit on the entry that filled the cache must not leave others there for ever.
TEST(RecordCache, NothingStaysThatNobodyAsksFor) {
    for (const int capacity : {2, 4, 100}) {
        Cache cache(capacity);
        const auto entries = static_cast<std::uint64_t>(capacity);
        for (std::uint64_t key = 1; key <= entries; ++key) {
            put(cache, key);
        }
        ASSERT_TRUE(cache.find(entries));
        for (std::uint64_t key = 1000; key < 1000 + 2 * entries; ++key) {
            put(cache, key);
        }
        for (std::uint64_t key = 1; key <= entries; ++key) {
            EXPECT_FALSE(cache.find(key)) << key << " of " << capacity;
        }
    }
}

/// Hits on the oldest entry leave the rules' list in pieces; the cache must still keep what is asked for again.
TEST(RecordCache, StillCachesAfterHitsOnTheOldest) {
    Cache cache(100);
    const auto ask = [&](std::uint64_t key) {
        const bool hit = static_cast<bool>(cache.find(key));
        if (!hit) {
            put(cache, key);
        }
        return hit;
    };
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        ask(random() % 1000);
    }
    int hits = 0;
    for (int round = 0; round < 20; ++round) {
        for (std::uint64_t key = 5000; key < 5050; ++key) {
            hits += ask(key) ? 1 : 0;
        }
    }
    EXPECT_GT(hits, 20 * 50 * 8 / 10) << "half the capacity in hot keys, asked 20 times";
}

TEST(RecordCache, EveryKeyAnswersItsOwnRecordWhateverHappens) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (int capacity = 1; capacity < 8; ++capacity) {
        Cache cache(capacity);
        for (int step = 0; step < 20000; ++step) {
            const std::uint64_t key = random() % 12;
            const auto record = cache.find(key);
            if (record) {
                ASSERT_EQ(*record, std::to_string(key));
            } else {
                put(cache, key);
                ASSERT_TRUE(cache.find(key)) << "what was just inserted is there";
            }
            if (random() % 50 == 0) {
                put(cache, key);  // two threads that missed on the same key
            }
        }
    }
}

TEST(RecordCache, ThreadsMeetNothingButTheirOwnRecords) {
    constexpr int kThreads = 4;
    constexpr int kSteps = 20000;
    for (const int capacity : {1, 3, 50}) {
        Cache cache(capacity);
        std::atomic<int> strangers{0};
        std::vector<std::thread> threads;
        for (unsigned thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&, thread] {
                if (thread > 0) {
                    sys::ThreadLine::give();
                }
                std::mt19937_64 random(thread);
                for (int step = 0; step < kSteps; ++step) {
                    const std::uint64_t key = random() % 100 << 30U;
                    const auto record = cache.find(key);
                    if (!record) {
                        put(cache, key);
                    } else if (*record != std::to_string(key)) {
                        ++strangers;
                    }
                    if (step % 1000 == 0) {
                        cache.refresh(
                            std::map<std::uint64_t, boost::shared_ptr<std::string>>{{key, text(std::to_string(key))}});
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(strangers, 0);
        const CacheUse use = cache.use("");
        EXPECT_EQ(use.hits + use.misses, std::uint64_t{kThreads} * kSteps);
        EXPECT_EQ(use.used, static_cast<std::uint64_t>(capacity));
        for (std::uint64_t key = 1; key <= 3; ++key) {
            put(cache, key);
            EXPECT_TRUE(cache.find(key));
        }
    }
}

}  // namespace
}  // namespace mxservice
