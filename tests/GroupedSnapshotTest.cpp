#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <random>
#include <set>

#include "base/instrumentcenter/catalogue/DroppedRecords.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "platform/utils/Utils.h"

namespace mxservice {
namespace {

InstrumentPtr instrument(const std::string& market, const std::string& code) {
    auto record = boost::make_shared<CInstrumentDetail>();
    record->market = market;
    record->code = code;
    return record;
}

void groupRecords(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped, ConnectListings& listings) {
    DroppedList unheard;
    mxservice::groupRecords(records, grouped, listings, unheard);
}

/// The rules as they read, one record after the other.
void groupOneByOne(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped, ConnectListings& listings) {
    for (const InstrumentPtr& record : records) {
        if (!record) {
            continue;
        }
        const std::string market = record->market;
        if (market == "HGT" || market == "SGT") {
            const auto key = utils::hash("HK" + record->code);
            listings[key].emplace(utils::hash(market), record->connectFlagValue);
            grouped[utils::hash("HK")][key] = record;
        } else if (market == "HK") {
            grouped[utils::hash("HK")].emplace(utils::hash("HK" + record->code), record);
        } else if (market == "SHFI") {
            if (grouped[utils::hash("SH")].emplace(utils::hash("SH" + record->code), record).second) {
                record->market = "SH";
            }
        } else {
            grouped[utils::hash(market)][utils::hash(market + record->code)] = record;
        }
    }
}

std::vector<InstrumentPtr> randomBatch(std::mt19937_64& random) {
    const std::vector<std::string> markets{"SH", "SHFI", "HK", "HGT", "SGT", "SZ", "DCE", "", "SH\0", "nowhere"};
    std::vector<InstrumentPtr> batch;
    for (int i = 0; i < 60; ++i) {
        if (random() % 12 == 0) {
            batch.push_back(nullptr);
            continue;
        }
        if (random() % 6 == 0 && !batch.empty()) {
            batch.push_back(batch[random() % batch.size()]);  // its market may have been changed since
            continue;
        }
        batch.push_back(instrument(markets[random() % markets.size()], std::to_string(random() % 6)));
        batch.back()->connectFlagValue = static_cast<std::int32_t>(random() % 4);
    }
    return batch;
}

std::vector<InstrumentPtr> copies(const std::vector<InstrumentPtr>& records) {
    std::vector<InstrumentPtr> all;
    std::map<InstrumentPtr, InstrumentPtr> copyOf;  // what comes twice is one record in the copy, too
    for (const InstrumentPtr& record : records) {
        InstrumentPtr& copy = copyOf[record];
        copy = copy || !record ? copy : boost::make_shared<CInstrumentDetail>(*record);
        all.push_back(copy);
    }
    return all;
}

/// Which record of the batch stands where, and what market field it ended with.
std::map<std::uint64_t, std::map<std::uint64_t, std::pair<std::ptrdiff_t, std::string>>> places(
    const GroupedSnapshot& grouped, const std::vector<InstrumentPtr>& batch) {
    std::map<std::uint64_t, std::map<std::uint64_t, std::pair<std::ptrdiff_t, std::string>>> where;
    for (const auto& [market, records] : grouped) {
        for (const auto& [key, record] : records) {
            const auto found = std::find(batch.begin(), batch.end(), record);
            where[market][key] = {found - batch.begin(), record->market};
        }
    }
    return where;
}

TEST(GroupRecords, GivesWhatOneRecordAfterTheOtherGives) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (int round = 0; round < 300; ++round) {
        const std::vector<InstrumentPtr> first = randomBatch(random);
        const std::vector<InstrumentPtr> second = copies(first);
        GroupedSnapshot grouped;
        GroupedSnapshot expected;
        ConnectListings listings;
        ConnectListings expectedListings;
        // In two calls, as the persisted center adds what it restores.
        const auto half = static_cast<std::ptrdiff_t>(first.size() / 2);
        groupRecords({first.begin(), first.begin() + half}, grouped, listings);
        groupRecords({first.begin() + half, first.end()}, grouped, listings);
        groupOneByOne(second, expected, expectedListings);
        ASSERT_EQ(places(grouped, first), places(expected, second));
        ASSERT_EQ(listings, expectedListings);
        for (std::size_t i = 0; i < first.size(); ++i) {
            ASSERT_EQ(first[i] ? first[i]->market : "", second[i] ? second[i]->market : "") << "dropped record " << i;
        }
    }
}

TEST(ConnectEligibility, SetsFlagsOnlyWhereTheyAreZero) {
    const std::vector<InstrumentPtr> records{instrument("HGT", "1"), instrument("SGT", "1"), instrument("HGT", "2"),
                                             instrument("SGT", "3"), instrument("HK", "4"),  instrument("HGT", "5")};
    records[5]->combinedConnectFlags = 9;
    GroupedSnapshot grouped;
    ConnectListings listings;
    groupRecords(records, grouped, listings);
    markConnectEligibility(grouped, listings);
    const auto flags = [&](const std::string& code) {
        return grouped[marketKey("HK")][stockKey("HK", code)]->combinedConnectFlags;
    };
    EXPECT_EQ(flags("1"), 5U);
    EXPECT_EQ(flags("2"), 1U);
    EXPECT_EQ(flags("3"), 3U);
    EXPECT_EQ(flags("4"), 0U);
    EXPECT_EQ(flags("5"), 9U);
}

TEST(DceSpreads, OnlyTheTwoFormsCount) {
    GroupedSnapshot grouped;
    ConnectListings listings;
    EXPECT_FALSE(deriveDceSpreads(grouped));
    std::vector<InstrumentPtr> records;
    for (const char* const code : {"SPC a2101&m2101", "SP a2101&a2105", "SP", "SPCX", "SP a2101", "SP  b1&b2",
                                   "SP a2101&a2105&a2109", "SP c1&", "sp d1&d2", "SPC e1&e2 ", "SPX f1&f2", "a2101"}) {
        records.push_back(instrument("DCE", code));
    }
    records.push_back(instrument("SHFE", "SP x1&x2"));
    groupRecords(records, grouped, listings);
    const std::optional<DceSpreads> spreads = deriveDceSpreads(grouped);
    ASSERT_TRUE(spreads);
    const auto sorted = [](const SpreadPairs& pairs) { return std::set(pairs.begin(), pairs.end()); };
    using Pairs = std::set<std::pair<std::string, std::string>>;
    EXPECT_EQ(sorted(spreads->crossProduct), (Pairs{{"a2101", "m2101"}}));
    EXPECT_EQ(sorted(spreads->crossPeriod), (Pairs{{"a2101", "a2105"}, {"c1", ""}, {"f1", "f2"}}));
}

TEST(MainContracts, EveryFlaggedRecordOfAFuturesMarketIsOne) {
    std::vector<InstrumentPtr> records{instrument("DCE", "m1"), instrument("DCE", "m2"), instrument("DCE", "m3"),
                                       instrument("INE", "sc1"), instrument("WP", "GC")};
    for (const std::size_t i : {0U, 1U, 4U}) {
        records[i]->mainContractFlag = 1;
    }
    records[2]->mainContractFlag = 2;
    for (const InstrumentPtr& record : records) {
        record->productId = "m";
    }
    GroupedSnapshot grouped;
    ConnectListings listings;
    groupRecords(records, grouped, listings);
    const auto mains = deriveMainContracts(grouped, futureMarketKeys());
    ASSERT_EQ(mains.size(), 2U);
    EXPECT_EQ(mains.at(marketKey("DCE")).byProduct.at("m"), (KeySet{stockKey("DCE", "m1"), stockKey("DCE", "m2")}));
    EXPECT_TRUE(mains.at(marketKey("INE")).all.empty()) << "an exchange without main contracts has an empty entry";
    EXPECT_TRUE(mains.at(marketKey("INE")).byProduct.empty());
    EXPECT_EQ(deriveProductContracts(grouped, futureMarketKeys()).at("m").size(), 4U);
}

TEST(OptionUnderlyings, StandInTheFirstParentheses) {
    std::vector<InstrumentPtr> records{instrument("SHO", "1"), instrument("SHO", "2"), instrument("SHO", "3"),
                                       instrument("SHO", "4"), instrument("SZO", "5"), instrument("DCE", "6")};
    const std::vector<std::string> products{"50ETF(510050)",     "none",     "empty()",
                                            "(510300)x(510500)", "a(159919", "b(1)"};
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i]->productId = products[i];
    }
    GroupedSnapshot grouped;
    ConnectListings listings;
    groupRecords(records, grouped, listings);
    const std::map<std::string, std::set<std::uint64_t>> expected{
        {"SH", {utils::hash("510050"), utils::hash("510300")}}, {"SZ", {utils::hash("159919")}}};
    EXPECT_EQ(deriveOptionUnderlyings(grouped), expected);
}

}  // namespace
}  // namespace mxservice
