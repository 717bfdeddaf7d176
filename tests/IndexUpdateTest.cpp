#include "base/instrumentcenter/catalogue/IndexUpdate.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <map>
#include <random>

#include "base/instrumentcenter/catalogue/CodeIndex.h"
#include "platform/record/Records.h"

namespace mxservice {
namespace {

using Pointer = boost::shared_ptr<CInstrumentDetail>;

/// Updates of all sizes, in place and through a copy, some of them growing the table, leave what a plain map has; a
/// record that was replaced or erased is let go.
TEST(IndexUpdate, LeavesWhatTheChangesSayWhateverTheirNumber) {
    std::mt19937_64 random(7);
    Guarded<HashIndex<Pointer>> guarded;
    std::map<std::uint64_t, Pointer> expected;
    for (const std::size_t changes : {1U, 64U, 65U, 5000U, 10U, 64U, 3000U, 1U, 65U, 40000U, 2U}) {
        std::map<std::uint64_t, Pointer> batch;
        while (batch.size() < changes) {
            const std::uint64_t key = random() % 50000;
            batch[key] = key % 7 == 0 ? nullptr : boost::make_shared<CInstrumentDetail>();
        }
        updateIndex(guarded, batch.size(), [&](HashIndex<Pointer>& index) {
            for (const auto& [key, record] : batch) {
                if (record) {
                    index[key] = record;
                } else {
                    index.erase(key);
                }
            }
        });
        for (auto& [key, record] : batch) {
            record ? void(expected[key] = record) : void(expected.erase(key));
        }
        batch.clear();
        const auto index = guarded.read();
        ASSERT_EQ(index->size(), expected.size()) << changes;
        for (const auto& [key, record] : expected) {
            const auto found = index->find(key);
            ASSERT_TRUE(found != index->end() && found->second == record) << key;
            ASSERT_EQ(record.use_count(), 2) << key;  // the index and the map: what a copy held is gone
        }
    }
}

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
}

}  // namespace
}  // namespace mxservice
