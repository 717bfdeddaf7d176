#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <thread>
#include <tuple>

#include "base/instrumentcenter/InstrumentView.h"
#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"
#include "tools/marketday/MarketDay.h"

// Contracts of products, option chains, listings by day: both centers, beside a filter over the markets' lists.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Keys = std::vector<std::string>;

const std::vector<std::string> kExchanges{"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"};
const std::vector<std::string> kDayMarkets{"SH",    "SZ",   "BJ",  "HK",   "HGT",  "SGT",  "SHFI",   "SHO",
                                           "SZO",   "NEEQ", "WP",  "SHGE", "BANK", "NYSE", "NASDAQ", "SOTC",
                                           "CFFEX", "SHFE", "DCE", "CZCE", "INE",  "GFEX"};

Keys keysOf(const Instruments& records) {
    Keys keys;
    for (const InstrumentPtr& record : records) {
        keys.push_back(record->getKey());
    }
    return keys;
}

InstrumentPtr future(const std::string& market, const std::string& code, const std::string& product,
                     const std::string& expiry) {
    const InstrumentPtr record = instrument(market, code);
    record->productId = product;
    record->expireDate = expiry;
    return record;
}

InstrumentPtr option(const std::string& market, const std::string& code, const std::string& underlyingMarket,
                     const std::string& underlyingCode, const std::string& expiry = "20260401", double strike = 1,
                     int type = 1) {
    const InstrumentPtr record = future(market, code, "options", expiry);
    record->underlyingMarket = underlyingMarket;
    record->underlyingCode = underlyingCode;
    record->strikePrice = strike;
    record->optionType = type;
    return record;
}

template <class Kind>
class Chains : public CenterTest<Kind> {
protected:
    /// The keys of what the markets list and `wanted` accepts, in the order of `rank`.
    template <class Wanted, class Rank>
    Keys judge(const std::vector<std::string>& markets, const Wanted& wanted, const Rank& rank) {
        Instruments found;
        for (const std::string& market : markets) {
            for (const auto& [key, record] : this->asked().getInstruments(market)) {
                if (wanted(*record)) {
                    found.push_back(record);
                }
            }
        }
        std::sort(found.begin(), found.end(), [&](const auto& a, const auto& b) { return rank(*a) < rank(*b); });
        return keysOf(found);
    }

    Keys contracts(const std::string& product) {
        return judge(
            kExchanges, [&](const auto& record) { return record.productId == product && record.optionType == 0; },
            [](const auto& record) { return std::tuple(record.expireDate, record.code, record.market); });
    }
    Keys chain(const std::string& market, const std::string& code) {
        return judge(
            {"SHO", "SZO", "WP", "CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"},
            [&](const auto& record) {
                return record.optionType != 0 && record.underlyingMarket == market && record.underlyingCode == code;
            },
            [](const auto& record) {
                return std::tuple(record.expireDate, record.strikePrice, record.optionType, record.market, record.code);
            });
    }
    Keys ofDay(const std::string& day, std::string CInstrumentDetail::*member) {
        std::vector<std::string> markets = kDayMarkets;
        std::erase_if(markets, [](const auto& name) { return name == "HGT" || name == "SGT" || name == "SHFI"; });
        return judge(
            markets, [&](const auto& record) { return record.*member == day; },
            [](const auto& record) {
                const bool connect = record.market == "HGT" || record.market == "SGT";
                return std::tuple(connect ? "HK" : record.market, record.code);
            });
    }

    Keys askedContracts(const std::string& product) { return keysOf(this->center().getContracts(product)); }
    Keys askedChain(const std::string& market, const std::string& code) {
        return keysOf(this->center().getOptionChain(market, code));
    }
};

TYPED_TEST_SUITE(Chains, BothCenterKinds);

TYPED_TEST(Chains, OfADayAreWhatAFilterFinds) {
    Instruments records;
    std::set<std::string> products;
    std::set<std::pair<std::string, std::string>> underlyings;
    std::set<std::string> days;
    marketday::MarketDay(2000, 7, "20260302").visit("instruments", [&](const auto& data) {
        const auto record = boost::static_pointer_cast<CInstrumentDetail>(data);
        records.push_back(record);
        products.insert(record->productId);
        underlyings.emplace(record->underlyingMarket, record->underlyingCode);
        for (const std::string& day : {record->listingDate, record->expireDate}) {
            if (records.size() % 40 == 0) {
                days.insert(day);
            }
        }
    });
    this->load(kDayMarkets, records);
    products.erase("");
    underlyings.erase({"", ""});
    days.erase("");
    std::size_t found = 0;
    for (const std::string& product : products) {
        const Keys expected = this->contracts(product);
        EXPECT_EQ(this->askedContracts(product), expected) << product;
        found += expected.size();
    }
    for (const auto& [market, code] : underlyings) {
        const Keys expected = this->chain(market, code);
        EXPECT_EQ(this->askedChain(market, code), expected) << market << code;
        found += expected.size();
    }
    EXPECT_GT(found, 500U) << "the day has hardly a contract";
    for (const std::string& day : days) {
        EXPECT_EQ(keysOf(this->center().getListed(day)), this->ofDay(day, &CInstrumentDetail::listingDate)) << day;
        EXPECT_EQ(keysOf(this->center().getExpiring(day)), this->ofDay(day, &CInstrumentDetail::expireDate)) << day;
    }
}

TYPED_TEST(Chains, ContractsAreFuturesByExpiryThenCode) {
    this->load({"DCE", "SHFE", "WP"}, {future("DCE", "m2", "m", "20260301"), future("DCE", "m1", "m", "20260301"),
                                       future("DCE", "m0", "m", "20260401"), future("DCE", "unknown", "m", ""),
                                       future("SHFE", "m1", "m", "20260301"), option("DCE", "mC", "DCE", "m1"),
                                       future("WP", "m3", "m", "20260301"), future("DCE", "none", "", "")});
    this->center().getContracts("m");
    EXPECT_THAT(this->askedContracts("m"), ElementsAre("DCEunknown", "DCEm1", "SHFEm1", "DCEm2", "DCEm0"));
    EXPECT_THAT(this->askedContracts(""), IsEmpty());
    EXPECT_THAT(this->askedContracts("unknown"), IsEmpty());
    EXPECT_THAT(this->askedContracts("options"), IsEmpty());
}

TYPED_TEST(Chains, AnOptionBelongsToWhatItNames) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    const InstrumentPtr inProduct = option("SZO", "4", "", "");
    inProduct->productId = "300ETF(159919)";
    this->load(
        {"SHO", "SZO", "DCE", "SHFE", "CFFEX", "SH"},
        {option("SHO", "1", "SH", "510050", "20260401", 2, 2), option("SHO", "2", "", "510050", "20260401", 2, 1),
         option("SHO", "3", "SH", "510050", "20260401", 1, 2), option("SHO", "5", "SH", "510050", ""),
         option("SHO", "6", "SZ", "510050"), option("SHO", "7", "SH", "510050", "20260401", 1, 0), inProduct,
         option("SHO", "8", "SH", "510050", "20260401", none), option("SHO", "9", "SH", "510050", "20260401", none, 2),
         option("CFFEX", "IO2", "SH", "510050", "20260401", 2, 2), option("CFFEX", "IO1", "", "IO"),
         option("DCE", "m1-C", "", "m1"), option("DCE", "m1-P", "DCE", "m1", "20260401", 1, 2),
         option("DCE", "cu", "SHFE", "cu1"), option("SH", "stock", "SH", "510050")});
    EXPECT_THAT(this->askedChain("SH", "510050"),
                ElementsAre("SHO5", "SHO3", "SHO2", "CFFEXIO2", "SHO1", "SHO8", "SHO9"));
    EXPECT_THAT(this->askedChain("SZ", "159919"), ElementsAre("SZO4"));
    EXPECT_THAT(this->askedChain("DCE", "m1"), ElementsAre("DCEm1-C", "DCEm1-P"));
    EXPECT_THAT(this->askedChain("CFFEX", "IO"), ElementsAre("CFFEXIO1"));
    for (const auto& [market, code] : std::vector<std::pair<std::string, std::string>>{
             {"SHFE", "cu1"}, {"SZ", "510050"}, {"S", "H510050"}, {"", ""}, {"DCE", ""}, {"HK", "1"}, {"DC", "Em1"}}) {
        EXPECT_THAT(this->askedChain(market, code), IsEmpty()) << market << code;
    }
}

TYPED_TEST(Chains, WhatIsListedTwiceInHongKongIsOneRecord) {
    const std::string day = "20260302";
    Instruments records{instrument("HK", "2"),  instrument("HGT", "2"), instrument("SGT", "1"), instrument("HK", "3"),
                        instrument("SHO", "1"), instrument("BJ", "9"),  instrument("WP", "CL")};
    for (const InstrumentPtr& record : records) {
        record->listingDate = day;
    }
    records.back()->listingDate = "NYMEX";
    this->load({"HK", "HGT", "SGT", "SHO", "BJ", "WP"}, records);
    EXPECT_THAT(keysOf(this->center().getListed(day)), ElementsAre("BJ9", "SGT1", "HGT2", "HK3", "SHO1"));
    EXPECT_THAT(this->center().getListed(""), IsEmpty());
    EXPECT_THAT(this->center().getExpiring(""), IsEmpty());
    EXPECT_THAT(this->center().getExpiring(day), IsEmpty());
}

TYPED_TEST(Chains, FollowEveryChangeOfTheRecords) {
    const auto expectAll = [&](const char* when) {
        EXPECT_EQ(this->askedChain("SH", "1"), this->chain("SH", "1")) << when;
        EXPECT_EQ(this->askedChain("DCE", "m1"), this->chain("DCE", "m1")) << when;
        EXPECT_EQ(this->askedContracts("m"), this->contracts("m")) << when;
        EXPECT_EQ(keysOf(this->center().getExpiring("20260401")),
                  this->ofDay("20260401", &CInstrumentDetail::expireDate))
            << when;
    };
    EXPECT_THAT(this->askedChain("SH", "1"), IsEmpty());
    this->load({"SHO", "DCE"}, {option("SHO", "1", "SH", "1"), option("SHO", "2", "SH", "1"),
                                option("DCE", "C", "DCE", "m1"), future("DCE", "m1", "m", "20260501")});
    EXPECT_THAT(this->askedChain("SH", "1"), ElementsAre("SHO1", "SHO2"));
    expectAll("first load");
    this->load({"SHO"}, {option("SHO", "2", "SH", "1"), option("SHO", "3", "SH", "1", "20260301")});
    EXPECT_THAT(this->askedChain("SH", "1"), ElementsAre("SHO3", "SHO2")) << "not the one that the list has lost";
    expectAll("reload of one market");
    this->load({"SHO"}, {option("SHO", "2", "SH", "2"), option("SHO", "3", "SH", "1", "20260401")});
    EXPECT_THAT(this->askedChain("SH", "1"), ElementsAre("SHO3")) << "the same keys, other records";
    expectAll("changed records");
    this->center().initBonds({});
    expectAll("a load of something else");
    this->center().applyChanges({option("SHO", "2", "SH", "1"), option("SHO", "4", "SH", "1", "20260301")}, {"SHO3"});
    EXPECT_THAT(this->askedChain("SH", "1"), ElementsAre("SHO4", "SHO2"));
    expectAll("changes of single records");
    this->center().replaceInstruments({"DCE"}, {future("DCE", "m2", "m", "20260401")});
    EXPECT_THAT(this->askedContracts("m"), ElementsAre("DCEm2"));
    expectAll("replacement");
    this->center().removeMarkets({"SHO"});
    EXPECT_THAT(this->askedChain("SH", "1"), IsEmpty());
    expectAll("removal");
}

TYPED_TEST(Chains, ABondIsItsInstruments) {
    this->load({"SH", "SZ"}, {instrument("SH", "10"), instrument("SZ", "20"), instrument("SZ", "10")});
    this->center().initBonds({{"a", bond("1", "10", "20")}, {"b", bond("2", "", "21")}, {"c", bond("3", "10", "10")}});
    EXPECT_THAT(keysOf(this->center().getBondListings("1")), ElementsAre("BANK1", "SH10", "SZ20"));
    EXPECT_THAT(keysOf(this->center().getBondListings("2")), ElementsAre("BANK2"));
    EXPECT_THAT(keysOf(this->center().getBondListings("3")), ElementsAre("BANK3", "SH10", "SZ10"));
    EXPECT_THAT(this->center().getBondListings("10"), IsEmpty());
}

class ServerChains : public CenterTest<ServerKind> {};

TEST_F(ServerChains, OfAViewAreOfItsMoment) {
    load({"SHO"}, {option("SHO", "1", "SH", "1")});
    const InstrumentView before = center().view();
    load({"SHO"}, {option("SHO", "2", "SH", "1")});
    EXPECT_THAT(keysOf(center().getOptionChain("SH", "1")), ElementsAre("SHO2"));
    EXPECT_THAT(keysOf(before.getOptionChain("SH", "1")), ElementsAre("SHO1"));
    EXPECT_THAT(keysOf(before.getExpiring("20260401")), ElementsAre("SHO1"));
}

TEST_F(ServerChains, TakeMemoryOnceTheyAreAskedFor) {
    load({"SHO"}, {option("SHO", "1", "SH", "1"), option("SHO", "2", "SH", "2")});
    const auto indexes = [this] {
        std::map<std::string, std::uint64_t> keys;
        for (const IndexSize& size : center().statistics().indexes) {
            keys[size.name] = size.keys;
        }
        return keys;
    };
    const auto before = indexes();
    center().getOptionChain("SH", "1");
    center().getExpiring("");
    auto expected = before;
    expected.insert({{"contracts by product", 0}, {"options by underlying", 2}, {"records by expiry", 1}});
    EXPECT_EQ(indexes(), expected);
    center().initTenderBondInfos({});
    EXPECT_EQ(indexes(), expected) << "nothing that they are made of has changed";
    load({"SZ"}, {instrument("SZ", "1")});
    EXPECT_EQ(indexes().count("options by underlying"), 0U);
}

TEST_F(ServerChains, AreTheSameForAllWhoAskFirst) {
    Instruments records;
    for (int i = 0; i < 300; ++i) {
        records.push_back(option("SHO", std::to_string(1000 + i), "SH", "1", "20260401", i));
    }
    for (int round = 0; round < 20; ++round) {
        load({"SHO"}, records);
        std::vector<std::size_t> sizes(4);
        std::vector<std::thread> askers;
        for (std::size_t& size : sizes) {
            askers.emplace_back([&] { size = center().getOptionChain("SH", "1").size(); });
        }
        for (std::thread& asker : askers) {
            asker.join();
        }
        EXPECT_THAT(sizes, testing::Each(records.size()));
    }
}

class ClientChains : public CenterTest<ClientKind> {};

TEST_F(ClientChains, HaveWhatTheStoreRefusedAndLeaveTheCacheAlone) {
    const auto engine = std::make_shared<FailingEngine>();
    store_.service().setEngine(engine);
    load({"SHO", "CFFEX"}, {option("SHO", "0", "SH", "1"), option("CFFEX", "1", "SH", "1", "20260301")});
    engine->failWritesOf("OvIns_SHO");
    load({"SHO"}, {option("SHO", "1", "SH", "1"), option("SHO", "2", "SH", "2")});
    EXPECT_THAT(keysOf(center().getOptionChain("SH", "1")), ElementsAre("CFFEX1", "SHO1"));
    EXPECT_THAT(keysOf(center().getExpiring("20260401")), ElementsAre("SHO1", "SHO2"));
    EXPECT_EQ(center().statistics().caches.front().used, 0U);
    engine->failWritesOf("");
    load({"SHO"}, {option("SHO", "1", "SH", "2")});
    EXPECT_THAT(keysOf(center().getOptionChain("SH", "1")), ElementsAre("CFFEX1")) << "not what was refused before";
}

}  // namespace
}  // namespace mxservice
