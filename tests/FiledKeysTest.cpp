#include "base/instrumentcenter/catalogue/FiledKeys.h"

#include <gtest/gtest.h>

#include <memory>

namespace mxservice {
namespace {

std::shared_ptr<const KeySet> keysFrom(StockKey first, StockKey last) {
    auto keys = std::make_shared<KeySet>();
    for (StockKey key = first; key <= last; ++key) {
        keys->insert(key);
    }
    return keys;
}

bool isFiledUnder(const FiledKeys& filed, StockKey key, MarketKey market) {
    const MarketKey* const found = filed.marketOf(key);
    return found != nullptr && *found == market;
}

/// Of a key that two markets of one load bring, the market with the higher key has it, as if they came one after the
/// other; clearing a market unfiles its keys even where another market has them by now.
TEST(FiledKeys, MarketsOfOneLoadFollowOneAnother) {
    FiledKeys filed;
    filed.file({{20, keysFrom(501, 1500)}, {10, keysFrom(1, 1000)}});
    EXPECT_TRUE(isFiledUnder(filed, 500, 10));
    EXPECT_TRUE(isFiledUnder(filed, 501, 20));
    EXPECT_EQ(filed.sizes().front().keys, 1500U);
    EXPECT_EQ(filed.keysOf(10)->size(), 1000U);

    const FiledKeys before = filed;
    EXPECT_EQ(filed.unfileListed(10).size(), 1000U);
    EXPECT_EQ(filed.marketOf(700), nullptr);
    EXPECT_TRUE(isFiledUnder(filed, 1001, 20));
    EXPECT_TRUE(filed.keysOf(10) != nullptr && filed.keysOf(10)->empty());
    EXPECT_EQ(filed.sizes().front().keys, 500U);
    EXPECT_TRUE(isFiledUnder(before, 700, 20)) << "a copy shares its tables, but not their changes";

    filed.file({{20, keysFrom(1500, 1500)}});
    EXPECT_TRUE(isFiledUnder(filed, 1001, 20)) << "left behind by its market's new set";
    filed.file({{30, keysFrom(1400, 1400)}});
    EXPECT_EQ(filed.unfileAll(20).size(), 499U);
    EXPECT_EQ(filed.marketOf(1001), nullptr);
    EXPECT_EQ(filed.marketOf(1500), nullptr);
    EXPECT_TRUE(isFiledUnder(filed, 1400, 30)) << "filed there last, though another market brought it, too";
}

}  // namespace
}  // namespace mxservice
