#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

#include "base/instrumentcenter/InstrumentView.h"
#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"

namespace mxservice {
namespace {

class LoadTogether : public testing::Test {
protected:
    IInstrumentCenter& asked() { return center_; }

    OpenServerCenter center_;
};

TEST_F(LoadTogether, ADayOfAllCataloguesIsOneVersionAndOneChangeToldOf) {
    const InstrumentPtr same = instrument("SH", "1");
    center_.initInstruments({"SH", "DCE"}, {same, instrument("DCE", "gone")});
    std::vector<CatalogueChange> told;
    const auto subscription = center_.subscribe([&](const CatalogueChange& change) { told.push_back(change); });
    const auto version = center_.version();
    center_.loadTogether([&] {
        center_.initInstruments({"SH"}, {same, instrument("SH", "2")});
        center_.initEtfs({etf("SH", "510050", "510051")});
        center_.applyChanges({}, {"SH2"});  // a key that cannot be seen yet
        center_.applyChanges({instrument("SZ", "3")}, {});
        center_.removeMarkets({"DCE"});
        // The former state still, for whoever asks.
        EXPECT_TRUE(asked().hasCode("DCEgone"));
        EXPECT_FALSE(asked().hasCode("SZ3") || asked().getEtf("SH510050"));
        EXPECT_EQ(center_.version(), version);
        EXPECT_TRUE(told.empty());
    });
    EXPECT_EQ(center_.version(), version + 1);
    EXPECT_FALSE(asked().hasCode("DCEgone") || asked().hasCode("SH2"));
    EXPECT_TRUE(asked().hasCode("SH1") && asked().hasCode("SZ3") && asked().getEtf("SH510050"));
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told.front().version, version + 1);
    EXPECT_EQ(told.front().catalogues, std::vector<std::string>{"etfs"});
    std::set<std::string> keys;
    for (const auto& item : told.front().instruments) {
        const CInstrumentDetail& record = item.after ? *item.after : *item.before;
        keys.insert((item.after ? "+" : "-") + record.market + record.code);
    }
    // What came and went within was never there.
    EXPECT_EQ(keys, (std::set<std::string>{"+SZ3", "+SH510051", "-DCEgone"}));
    center_.loadTogether([] {});
    EXPECT_EQ(center_.version(), version + 1) << "nothing that readers could see";
}

TEST_F(LoadTogether, WhatThrowsIsNeverSeen) {
    const auto failing = [&] {
        center_.initInstruments({"HGT"}, {instrument("HGT", "1")});
        center_.initInstruments({"SH"}, {instrument("SH", "1")});
        throw std::runtime_error("no");
    };
    EXPECT_THROW(center_.loadTogether(failing), std::runtime_error);
    EXPECT_EQ(center_.version(), 0U);
    // One of two within may fail alone.
    center_.loadTogether([&] {
        center_.initInstruments({"SZ"}, {instrument("SZ", "1")});
        EXPECT_THROW(center_.loadTogether(failing), std::runtime_error);
        center_.loadTogether([&] { center_.initInstruments({"DCE"}, {instrument("DCE", "1")}); });
    });
    EXPECT_EQ(center_.version(), 1U);
    EXPECT_FALSE(asked().hasCode("SH1"));
    EXPECT_TRUE(asked().hasCode("SZ1") && asked().hasCode("DCE1"));
    // Nor is the connect part kept that it brought: both markets must come.
    center_.initInstruments({"SGT"}, {instrument("SGT", "2")});
    EXPECT_FALSE(asked().hasCode("HK1") || asked().hasCode("HK2"));
    center_.initInstruments({"HGT"}, {instrument("HGT", "3")});
    EXPECT_TRUE(asked().hasCode("HK2") && asked().hasCode("HK3"));
}

TEST_F(LoadTogether, WhoSubscribesWithinIsToldOfIt) {
    int told = 0;
    Subscription subscription;
    center_.loadTogether([&] {
        center_.initInstruments({"SH"}, {instrument("SH", "1")});
        subscription = center_.subscribe([&](const CatalogueChange& change) { told += change.version == 1 ? 1 : 100; });
    });
    EXPECT_EQ(told, 1);
}

TEST_F(LoadTogether, ThreadsLoseNothingAndReadersSeeAllOrNothing) {
    constexpr int kRounds = 200;
    std::atomic<int> torn{0};
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            const InstrumentView view = center_.view();
            const auto* const one = view.find("SHa");
            const auto* const other = view.find("SZa");
            torn += (one == nullptr) != (other == nullptr) || (one != nullptr && one->name != other->name) ? 1 : 0;
        }
    });
    const auto pairs = [&] {
        for (int round = 0; round < kRounds; ++round) {
            center_.loadTogether([&] {
                for (const char* const market : {"SH", "SZ"}) {
                    auto record = instrument(market, "a");
                    record->name = std::to_string(round);
                    center_.initInstruments({market}, {record});
                }
            });
        }
    };
    // Connect parts take the lock that a load together takes first.
    const auto parts = [&] {
        for (int round = 0; round < kRounds; ++round) {
            const std::string code = std::to_string(round);
            center_.initInstruments({round % 2 == 0 ? "HGT" : "SGT"}, {instrument("HK", code)});
            center_.applyChanges({instrument("DCE", code)}, {});
        }
    };
    std::thread first(pairs);
    std::thread second(parts);
    pairs();
    first.join();
    second.join();
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(asked().hasCode("DCE" + std::to_string(round)));
    }
}

}  // namespace
}  // namespace mxservice
