#include "base/instrumentcenter/store/CodeIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>
#include <vector>

namespace mxservice {
namespace {

/// Of a key that two markets of one load bring, the market with the higher key has it, as if they came one after the
/// other; clearing a market unfiles its keys even where another market has them by now.
TEST(CodeIndex, MarketsOfOneLoadFollowOneAnother) {
    CodeIndex index;
    KeySet first;
    KeySet second;
    for (std::uint64_t key = 1; key <= 1000; ++key) {
        first.insert(key);
        second.insert(key + 500);
    }
    index.install(std::map<MarketKey, KeySet>{{20, second}, {10, first}});
    EXPECT_EQ(index.marketOf(500), MarketKey{10});
    EXPECT_EQ(index.marketOf(501), MarketKey{20});
    EXPECT_EQ(index.sizes().front().keys, 1500U);
    EXPECT_EQ(index.keysOf(10).size(), 1000U);

    EXPECT_EQ(index.clear(10).size(), 1000U);
    EXPECT_FALSE(index.contains(700));
    EXPECT_TRUE(index.contains(1001));
    EXPECT_TRUE(index.knowsMarket(10) && index.keysOf(10).empty());
    EXPECT_EQ(index.sizes().front().keys, 500U);

    index.install(20, KeySet{1500});
    EXPECT_TRUE(index.contains(1001)) << "left behind by its market's new set";
    index.install(30, KeySet{1400});
    EXPECT_EQ(index.remove(20).size(), 499U);
    EXPECT_FALSE(index.contains(1001) || index.contains(1500));
    EXPECT_EQ(index.marketOf(1400), MarketKey{30}) << "filed there last, though another market brought it, too";
    EXPECT_EQ(index.markets(), (std::vector<MarketKey>{10, 20, 30}));
}

/// Whoever asks for the markets walks a table that stays, whatever is filed meanwhile.
TEST(CodeIndex, MarketsAreListedBesideLoads) {
    CodeIndex index;
    std::atomic<bool> done{false};
    std::thread loads([&] {
        for (MarketKey market = 0; market < 2000; ++market) {
            index.install(market % 50, KeySet{market});
        }
        done = true;
    });
    std::size_t last = 0;
    bool risen = true;
    while (!done.load()) {
        const std::vector<MarketKey> markets = index.markets();
        risen = risen && markets.size() >= last && std::is_sorted(markets.begin(), markets.end());
        last = markets.size();
    }
    loads.join();
    EXPECT_TRUE(risen);
    EXPECT_EQ(index.markets().size(), 50U);
}

}  // namespace
}  // namespace mxservice
