#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <tuple>

#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"

// What the centers tell of their loads, caches and tables.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

template <class Center>
MarketLoad marketLoad(const Center& center, const std::string& market) {
    for (const MarketLoad& load : center.statistics().markets) {
        if (load.market == market) {
            EXPECT_EQ(load.received + load.restored, load.stored + load.outranked) << market;
            return load;
        }
    }
    ADD_FAILURE() << market << " is not there";
    return {};
}

/// received, restored, stored, replaced, removed, outranked, unwritten
using Counts = std::tuple<unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned>;

template <class Center>
Counts counts(const Center& center, const std::string& market) {
    const MarketLoad load = marketLoad(center, market);
    return {load.received, load.restored, load.stored, load.replaced, load.removed, load.outranked, load.unwritten};
}

/// What the last load says that it dropped: key, position, reason.
using Dropped = std::tuple<std::string, unsigned, std::string>;

template <class Center>
std::vector<Dropped> dropped(const Center& center) {
    std::vector<Dropped> dropped;
    for (const DroppedRecord& record : center.statistics().lastLoad.dropped) {
        dropped.emplace_back(record.key, record.position, record.reason);
    }
    return dropped;
}

std::uint64_t keysIn(const CenterStatistics& statistics, const std::string& index) {
    const auto found = std::find_if(statistics.indexes.begin(), statistics.indexes.end(),
                                    [&](const IndexSize& size) { return size.name == index; });
    EXPECT_NE(found, statistics.indexes.end()) << index;
    return found == statistics.indexes.end() ? 0 : found->keys;
}

template <class Kind>
class Statistics : public CenterTest<Kind> {};
TYPED_TEST_SUITE(Statistics, BothCenterKinds);

TYPED_TEST(Statistics, ALoadAccountsForEveryRecord) {
    this->load({"SH", "SHFI", "HK", "HGT", "SGT"},
               {instrument("SH", "1"), instrument("SH", "2"), nullptr, instrument("SH", "2"), instrument("SHFI", "1"),
                instrument("SHFI", "3"), instrument("HK", "1"), instrument("HGT", "1"), instrument("SGT", "2")});
    EXPECT_EQ(counts(this->center(), "SH"), Counts(5, 0, 3, 0, 0, 2, 0));
    EXPECT_EQ(counts(this->center(), "HK"), Counts(3, 0, 2, 0, 0, 1, 0));
    EXPECT_THAT(
        dropped(this->center()),
        UnorderedElementsAre(Dropped("", 2, "an empty pointer"), Dropped("SH2", 0, "a later record has the same key"),
                             Dropped("SHFI1", 0, "an SH record of the code goes first"),
                             Dropped("HK1", 0, "a connect listing of the code goes first")));
    const CenterStatistics statistics = this->center().statistics();
    EXPECT_EQ(statistics.lastLoad.number, 1U);
    EXPECT_EQ(statistics.lastLoad.records, 9U);
    EXPECT_EQ(statistics.lastLoad.empty, 1U);
    EXPECT_EQ(statistics.lastLoad.waiting, 0U);
    std::chrono::nanoseconds inSteps{};
    for (const LoadStep& step : statistics.lastLoad.steps) {
        inSteps += step.time;
    }
    EXPECT_GT(inSteps.count(), 0);
    EXPECT_LE(inSteps, statistics.lastLoad.time) << "steps are parts of the load";
    EXPECT_EQ(statistics.markets.size(), 2U);
    EXPECT_THAT(statistics.failedWrites, IsEmpty());
    EXPECT_EQ(keysIn(statistics, "market by key"), 5U);
    EXPECT_EQ(keysIn(statistics, "keys by market"), 5U);
}

TYPED_TEST(Statistics, APseudoMarketHasItsOwnName) {
    this->center().initEtfs({etf("SH", "1", "11"), nullptr, etf("SH", "2", "22"), etf("SH", "3", "22")});
    EXPECT_EQ(counts(this->center(), "ETFINSTS"), Counts(3, 0, 2, 0, 0, 1, 0));
    this->center().initEtfs({});
    EXPECT_EQ(marketLoad(this->center(), "ETFINSTS").stored, 0U);
    EXPECT_EQ(this->center().statistics().lastLoad.number, 0U) << "no load of instruments";
}

TYPED_TEST(Statistics, AnotherMarketsLoadLeavesTheReportAlone) {
    this->load({"SZ"}, {instrument("SZ", "1")});
    this->load({"SH"}, {instrument("SH", "1"), instrument("SH", "2")});
    EXPECT_EQ(counts(this->center(), "SZ"), Counts(1, 0, 1, 0, 0, 0, 0));
    EXPECT_EQ(this->center().statistics().lastLoad.records, 2U);
    EXPECT_EQ(this->center().statistics().lastLoad.number, 2U);
}

TYPED_TEST(Statistics, NamesFewOfTheDropped) {
    Instruments records(5);
    for (int i = 0; i < 10; ++i) {
        records.push_back(instrument("HK", "1"));
    }
    this->load({"HK", "SZ"}, records);
    EXPECT_THAT(dropped(this->center()), SizeIs(8));
    EXPECT_EQ(dropped(this->center())[4], Dropped("", 4, "an empty pointer"));
    EXPECT_EQ(dropped(this->center())[7], Dropped("HK1", 0, "an earlier record has the same key"));
    this->load({"SZ"}, {instrument("SZ", "1")});
    EXPECT_THAT(dropped(this->center()), IsEmpty());
}

class ServerStatistics : public CenterTest<ServerKind> {};

TEST_F(ServerStatistics, ReloadedKeysAreReplacedAndNoneRemoved) {
    load({"SH"}, {instrument("SH", "1"), instrument("SH", "2")});
    load({"SH"}, {instrument("SH", "2"), instrument("SH", "3")});
    EXPECT_EQ(counts(center(), "SH"), Counts(2, 0, 2, 1, 0, 0, 0));
    EXPECT_EQ(keysIn(center().statistics(), "records"), 3U);
}

TEST_F(ServerStatistics, RecordsOfOneConnectMarketWait) {
    load({"HGT"}, {instrument("HGT", "1"), nullptr, instrument("SH", "1"), instrument("HGT", "2")});
    LoadReport report = center().statistics().lastLoad;
    EXPECT_EQ(std::tuple(report.records, report.empty, report.foreign, report.waiting), std::tuple(4U, 1U, 1U, 2U));
    EXPECT_THAT(dropped(center()),
                ElementsAre(Dropped("", 1, "an empty pointer"),
                            Dropped("SH1", 0, "not of Hong Kong, in a load of one connect market alone")));
    EXPECT_THAT(center().statistics().markets, IsEmpty());
    load({"SGT"}, {instrument("SGT", "2")});
    report = center().statistics().lastLoad;
    EXPECT_EQ(std::tuple(report.records, report.foreign, report.waiting), std::tuple(1U, 0U, 0U));
    EXPECT_EQ(counts(center(), "HK"), Counts(3, 0, 2, 0, 0, 1, 0)) << "those that waited count now";
    EXPECT_THAT(dropped(center()), ElementsAre(Dropped("HGT2", 0, "a later record has the same key")));
}

class ClientStatistics : public CenterTest<ClientKind> {};

TEST_F(ClientStatistics, ReloadReplacesSomeKeysAndRemovesOthers) {
    load({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2"), instrument("SZ", "3")});
    load({"SZ"}, {instrument("SZ", "3"), instrument("SZ", "4")});
    EXPECT_EQ(counts(center(), "SZ"), Counts(2, 0, 2, 1, 2, 0, 0));
    load({"SZ"}, {instrument("SH", "1")});
    EXPECT_EQ(counts(center(), "SZ"), Counts(0, 0, 0, 0, 2, 0, 0)) << "named, and nothing came";
}

TEST_F(ClientStatistics, LoadsAtTheSameTimeDoNotMix) {
    const auto engine = std::make_shared<FailingEngine>();
    store_.service().setEngine(engine);
    load({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2")});
    bool met = false;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_SZ" && !std::exchange(met, true)) {
            load({"BJ"}, {instrument("BJ", "1")});
            EXPECT_EQ(counts(center(), "SZ"), Counts(2, 0, 2, 0, 0, 0, 0)) << "its reload has not ended";
        }
    });
    load({"SZ"}, {instrument("SZ", "2"), instrument("SZ", "2"), instrument("SZ", "3")});
    EXPECT_EQ(counts(center(), "SZ"), Counts(3, 0, 2, 1, 1, 1, 0));
    EXPECT_EQ(counts(center(), "BJ"), Counts(1, 0, 1, 0, 0, 0, 0));
}

TEST_F(ClientStatistics, APartialListingIsCompletedFromTheStore) {
    load({"HK"}, {instrument("HK", "1"), instrument("HK", "2")});
    load({"HGT"}, {instrument("HGT", "2")});
    EXPECT_EQ(counts(center(), "HK"), Counts(1, 2, 2, 2, 0, 1, 0));
    EXPECT_THAT(dropped(center()), ElementsAre(Dropped("HK2", 0, "a connect listing of the code goes first")));
}

TEST_F(ClientStatistics, FailedWritesAreCountedByDatabase) {
    const auto engine = std::make_shared<FailingEngine>();
    store_.service().setEngine(engine);
    engine->failWritesOf("OvIns_SZ");
    load({"SZ", "DCE"}, {instrument("SZ", "1"), instrument("DCE", "m1")});
    load({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2")});
    EXPECT_EQ(marketLoad(center(), "SZ").unwritten, 2U);
    EXPECT_EQ(marketLoad(center(), "DCE").unwritten, 0U);
    EXPECT_EQ(keysIn(center().statistics(), "records not written"), 2U);
    engine->failWritesOf("OvRawSH");
    load({"SH"}, {instrument("SH", "1")});
    engine->failWritesOf("OvIns_ALLETF");
    center().initEtfs({etf("SH", "1", "2")});
    std::vector<std::pair<std::string, std::uint64_t>> failed;
    for (const FailedWrites& writes : center().statistics().failedWrites) {
        failed.emplace_back(writes.database, writes.writes);
        EXPECT_EQ(writes.reason, kNamedPlatformOnly ? "not told, see the store's log" : "injected") << writes.database;
    }
    EXPECT_THAT(failed,
                ElementsAre(std::pair("OvIns_ALLETF", 1U), std::pair("OvIns_SZ", 2U), std::pair("OvRawSH", 1U)));
}

TEST_F(ClientStatistics, ReasonsAreThoseOfTheLastFailure) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "no named operation tells why";
    }
    const auto reasons = [this] {
        std::map<std::string, std::string> byDatabase;
        for (const FailedWrites& failed : center().statistics().failedWrites) {
            byDatabase[failed.database] = failed.reason;
        }
        return byDatabase;
    };
    const auto loadAll = [this] {
        const InstrumentPtr main = instrument("DCE", "m1");
        main->mainContractFlag = 1;
        main->productId = "m";
        load({"SH", "DCE"}, {instrument("SH", "1"), main});
        center().initEtfs({etf("SH", "1", "2")});
        center().initBonds({{"1", bond("1")}});
        center().initOtcInstruments({plan("1", 1)});
    };
    const auto all = [](unsigned databases, const char* reason) {
        return testing::AllOf(SizeIs(databases), testing::Each(testing::Pair(testing::_, testing::HasSubstr(reason))));
    };
    TemporaryStore::service().setRootPath("");
    loadAll();
    EXPECT_THAT(reasons(), all(9, "setRootPath"));
    std::ofstream(store_.path()) << "a file";
    TemporaryStore::service().setRootPath(store_.path().string());
    loadAll();
    EXPECT_THAT(reasons(), all(10, "Not a directory")) << "products now, too, of the batch that was unwritten";

    // One bond that fits no document, and then the store refuses the rest for another reason.
    std::filesystem::remove(store_.path());
    const auto engine = std::make_shared<FailingEngine>();
    TemporaryStore::service().setEngine(engine);
    engine->onWrite([&, writes = 0](const std::string& db) mutable {
        writes += db == "OvIns_BANKBOND" ? 1 : 0;
        engine->failWritesOf(writes == 2 ? "OvIns_BANKBOND" : "");
    });
    const auto huge = bond("2");
    huge->bondName.assign(std::size_t{17} << 20, 'x');
    center().initBonds({{"1", bond("1")}, {"2", huge}});
    EXPECT_EQ(reasons()["OvIns_BANKBOND"], "injected");
}

TEST_F(ClientStatistics, ACacheCountsItsHitsMissesAndEvictions) {
    OpenClientCenter small(2);
    small.initInstruments({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2"), instrument("SZ", "3")});
    for (const char* const key : {"SZ1", "SZ1", "SZ2", "SZ3", "SZ9"}) {
        small.getInstrument(key);
    }
    small.getInstruments("SZ");
    const CacheUse use = small.statistics().caches.front();
    EXPECT_EQ(std::tuple(use.name, use.capacity, use.used), std::tuple("instruments", 2U, 2U));
    EXPECT_EQ(std::tuple(use.hits, use.misses, use.evictions), std::tuple(1U, 3U, 1U))
        << "an unknown key does not reach the cache, and a list leaves it alone";
}

}  // namespace
}  // namespace mxservice
