#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "base/instrumentcenter/catalogue/LayeredIndex.h"
#include "system/Published.h"

// What versions are made of: values that readers never wait for, and indexes that share what they do not change.

namespace mxservice {
namespace {

struct Number : std::enable_shared_from_this<Number> {
    explicit Number(int number) : first(number), second(number) {}
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;
    ~Number() {
        first = -1;
        second = -2;
    }
    std::atomic<int> first;
    std::atomic<int> second;
};

/// More threads than have a line of their own ask while the value is replaced; none may meet one that is destroyed.
TEST(Published, NoReaderMeetsAValueThatIsGone) {
    constexpr unsigned kThreads = sys::ThreadLine::kOwned + 8;
    constexpr int kVersions = 400;
    sys::Published<Number> published(std::make_shared<const Number>(0));
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::atomic<unsigned> ready{0};
    std::vector<std::thread> readers;
    for (unsigned i = 0; i < kThreads; ++i) {
        readers.emplace_back([&] {
            ++ready;
            int last = 0;
            while (!done.load(std::memory_order_relaxed)) {
                const int answer = published.ask([](const Number& number) noexcept {
                    const int first = number.first.load(std::memory_order_relaxed);
                    return first == number.second.load(std::memory_order_relaxed) ? first : -1;
                });
                const auto held = published.hold();
                wrong += answer < last || held->first != held->second || held->first < answer ? 1 : 0;
                last = answer;
                std::this_thread::yield();
            }
        });
    }
    while (ready.load() < kThreads) {
        std::this_thread::yield();
    }
    const auto held = published.hold();
    for (int i = 1; i <= kVersions; ++i) {
        published.update([](const Number& number) { return std::make_shared<const Number>(number.first + 1); });
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(held->first, 0) << "what is held lives on";
    EXPECT_EQ(published.hold()->first, kVersions);
    EXPECT_THROW(published.update([](const Number&) -> std::shared_ptr<const Number> { throw std::bad_alloc(); }),
                 std::bad_alloc);
    EXPECT_EQ(published.hold()->first, kVersions) << "a change that throws has changed nothing";
}

/// Whoever replaces a value waits for the readers inside, and for no others.
TEST(Published, ReplacingWaitsForTheReadersInside) {
    sys::Published<Number> published(std::make_shared<const Number>(0));
    std::atomic<int> step{0};
    std::thread reader([&] {
        published.ask([&](const Number& number) noexcept {
            step = 1;
            while (step.load() == 1) {
                std::this_thread::yield();
            }
            return number.first.load();
        });
        step = 3;
    });
    while (step.load() == 0) {
        std::this_thread::yield();
    }
    std::atomic<bool> replaced{false};
    std::thread writer([&] {
        published.update([](const Number&) { return std::make_shared<const Number>(1); });
        replaced = true;
    });
    while (published.hold()->first != 1) {  // others see the new value at once
        std::this_thread::yield();
    }
    EXPECT_FALSE(replaced);
    step = 2;
    reader.join();
    writer.join();
    EXPECT_TRUE(replaced);
}

using Model = std::map<std::uint64_t, int>;

void expectSame(const LayeredIndex<int>& index, const Model& model) {
    ASSERT_EQ(index.size(), model.size());
    std::size_t visited = 0;
    bool same = true;
    index.visitAll([&](StockKey key, int value) {
        const auto found = model.find(key);
        same = same && found != model.end() && found->second == value;
        ++visited;
    });
    EXPECT_TRUE(same);
    EXPECT_EQ(visited, model.size());
    for (const auto& [key, value] : model) {
        const int* const found = index.find(key);
        same = same && found != nullptr && *found == value && !index.contains(key + 1);
    }
    ASSERT_TRUE(same);
}

/// Changes of all sizes on copies of copies, beside a plain map; the copies that were kept stay as they were.
TEST(LayeredIndex, ChangesAsAMapAndLeavesCopiesAlone) {
    std::mt19937_64 random(20260302);
    LayeredIndex<int> index;
    Model model;
    std::vector<std::pair<LayeredIndex<int>, Model>> kept;
    for (int round = 0; round < 200; ++round) {
        const std::size_t count = round % 10 == 0 ? 20000 : random() % 400;
        // Spread as hashes are: the tables take their keys as they stand.
        const auto key = [&] { return (random() % 30000) * 0x9E3779B97F4A7C15U; };
        if (random() % 4 != 0) {
            std::vector<std::pair<std::uint64_t, int>> entries;
            for (std::size_t i = 0; i < count; ++i) {
                entries.emplace_back(key(), static_cast<int>(random() % 1000));
            }
            index.put(entries.size(), [&](const auto& putOne) {
                bool known = true;
                for (const auto& [at, value] : entries) {
                    known = known && putOne(at, value) == (model.count(at) != 0);
                    model[at] = value;
                }
                EXPECT_TRUE(known) << "putting tells whether the key was there";
            });
        } else {
            KeySet keys;
            for (std::size_t i = 0; i < count; ++i) {
                keys.insert(key());
            }
            for (const StockKey erased : keys) {
                model.erase(erased);
            }
            index.erase(keys);
        }
        if (round % 30 == 0) {
            kept.emplace_back(index, model);
        }
        if (round % 7 == 0) {
            expectSame(index, model);
        }
    }
    for (const auto& [copy, then] : kept) {
        expectSame(copy, then);
    }
}

}  // namespace
}  // namespace mxservice
