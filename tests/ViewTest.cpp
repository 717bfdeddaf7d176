#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/weak_ptr.hpp>

#include <atomic>
#include <thread>

#include "base/instrumentcenter/InstrumentView.h"
#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"

// Versions of the in-memory catalogue: what is asked of one view is of one moment, and a load is seen whole or not at
// all.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Records of a day, told apart by their names: stocks that are issued, futures of which the n-th is main, options.
Instruments day(int generation, int size) {
    Instruments records;
    const auto add = [&](const std::string& market, const std::string& code) {
        const InstrumentPtr record = instrument(market, code);
        record->name = std::to_string(generation);
        records.push_back(record);
        return record;
    };
    // Codes come and go, so that a catalogue of one day put together with an index of another shows.
    for (int i = generation % 5; i < size; ++i) {
        add("BJ", std::to_string(i))->securityClass = 5;
        const InstrumentPtr contract = add("DCE", "m" + std::to_string(i));
        contract->productId = "m";
        contract->mainContractFlag = i % 7 == generation % 7 ? 1 : 0;
    }
    add("DCE", "SP " + std::to_string(generation) + "&x");
    return records;
}
const std::vector<std::string> kDay{"BJ", "DCE"};

class View : public CenterTest<ServerKind> {};

TEST_F(View, IsOfOneMomentWhateverIsLoadedMeanwhile) {
    const auto fund = etf("SH", "510050", "510051");
    load(kDay, day(1, 100));
    center().initEtfs({fund});
    center().initBonds({{"1", bond("1")}});
    center().initOtcInstruments({plan("1", 3)});
    center().initIssuanceInfos({issuance("1")});
    center().initTenderBondInfos({{"1", tenderBond("1")}});
    center().initCounterpartys({{"1", counterparty("1")}});
    const InstrumentView view = center().view();
    const InstrumentView copy = view;
    EXPECT_EQ(view.version(), center().version());
    const CInstrumentDetail* const found = view.find("DCEm1");
    ASSERT_NE(found, nullptr);

    load(kDay, day(2, 50));
    center().initEtfs({});
    center().initBonds({});
    center().initOtcInstruments({});
    center().initIssuanceInfos({});
    center().initTenderBondInfos({});
    center().initCounterpartys({});
    center().removeMarkets({"BJ"});
    EXPECT_FALSE(center().hasCode("BJ1") || asked().getEtf("SH510050") || asked().getBond("BANK1"));
    EXPECT_GT(center().version(), view.version());

    EXPECT_EQ(found->name, "1");
    EXPECT_EQ(view.get("DCEm1").get(), found);
    EXPECT_TRUE(view.hasCode("BJ1") && view.hasStock("BJ1") && view.hasFuture("DCEm1") &&
                view.hasFutureOption("DCEm1"));
    EXPECT_FALSE(view.hasStock("DCEm1") || view.hasFuture("BJ1") || view.hasCode("BJ") || view.hasCode("") ||
                 view.find(std::string("\0\xff", 2)) != nullptr || view.get(std::uint64_t{0}));
    EXPECT_THAT(view.getInstruments("BJ"), SizeIs(99));
    EXPECT_THAT(view.getInstruments(), SizeIs(200 + 1 - 2 + 2)) << "with the instruments of the fund and the bond";
    EXPECT_EQ(keysOf(view.getInstruments(OvTraderFuture)).size(), 100U);
    EXPECT_THAT(view.getStockIpoCodes(), SizeIs(99));
    EXPECT_THAT(view.getFutureMainInstruments("DCE"), SizeIs(15));
    EXPECT_THAT(view.getProductMainInstruments()["m"], SizeIs(15));
    EXPECT_THAT(view.getDceCrossPeriod(), ElementsAre(std::pair("1", "x")));
    EXPECT_EQ(view.getProductId("DCE", "m1"), "m");
    EXPECT_EQ(view.getEtf("SH510051"), fund);
    EXPECT_TRUE(view.hasEtf("SH510050") && view.hasBond("BANK1") && view.hasOtc("SOTC1") && view.hasIssuance("1") &&
                view.hasTenderBond("1"));
    EXPECT_TRUE(view.getBond("BANK1") && view.getCounterparty("1") && view.getOtcInstrument("SOTC1") &&
                view.getIssuanceInfo("1") && view.getTenderBondInfo("1"));
    EXPECT_THAT(view.getOtcInstruments(3), SizeIs(1));
    EXPECT_THAT(view.getOtcInstruments(4), IsEmpty());
    EXPECT_EQ(copy.getInstruments(), view.getInstruments());
}

TEST_F(View, RemovedMarketsLetGoOfTheirRecords) {
    load(kDay, day(1, 200));
    load({"SHGE"}, {instrument("SHGE", "1")});
    const boost::weak_ptr<CInstrumentDetail> record = asked().getInstrument("SHGE1");
    center().removeMarkets({"SHGE"});
    EXPECT_TRUE(record.expired());
}

TEST_F(View, OutlivesItsCenter) {
    auto center = std::make_unique<OpenServerCenter>();
    center->initInstruments(kDay, day(1, 10));
    const InstrumentView view = center->view();
    const CInstrumentDetail* const found = view.find("BJ5");
    center.reset();
    EXPECT_EQ(view.find(utils::hash("BJ5")), found);
    EXPECT_EQ(found->name, "1");
}

TEST_F(View, ManyKeysAtOnceAndAMarketWithoutAMap) {
    load(kDay, day(1, 100));
    std::vector<std::uint64_t> keys;
    for (int i = 0; i < 100; ++i) {
        keys.push_back(utils::hash("BJ" + std::to_string(i)));
    }
    std::vector<InstrumentPtr> records(keys.size() + 1, instrument("left", "alone"));
    EXPECT_EQ(center().resolve(keys.data(), keys.size(), records.data()), 99U);
    EXPECT_FALSE(records[0]) << "the first code is not of this day";
    for (std::size_t i = 1; i < keys.size(); ++i) {
        ASSERT_TRUE(records[i]);
        EXPECT_EQ(records[i]->code, std::to_string(i));
    }
    EXPECT_EQ(records.back()->market, "left");
    EXPECT_EQ(center().resolve(nullptr, 0, nullptr), 0U);

    std::set<std::string> visited;
    const InstrumentView view = center().view();
    view.visit("BJ", [&](const InstrumentPtr& record) {
        visited.insert(record->code);
        center().removeMarkets({"BJ"});  // whoever visits may change the catalogue
    });
    EXPECT_THAT(visited, SizeIs(99));
    center().view().visit("BJ", [](const InstrumentPtr&) { FAIL() << "removed"; });
    view.visit("never loaded", [](const InstrumentPtr&) { FAIL(); });
}

/// Opens the steps of a load.
class Steps : public CServerInstrumentCenter {
public:
    Steps() : CServerInstrumentCenter("test") {}
    using CServerInstrumentCenter::createExchangeDatas;
    using CServerInstrumentCenter::createFutureMainDatas;
    using CServerInstrumentCenter::createStkOptionCodes;
    using CServerInstrumentCenter::createStockCodes;
};

TEST(Publishing, ALoadIsOneVersionAndAStepAloneIsOne) {
    Steps center;
    std::uint64_t last = center.version();
    const auto isNext = [&] { return center.version() == ++last; };
    center.initInstruments(kDay, day(1, 10));
    EXPECT_TRUE(isNext());
    center.initEtfs({etf("SH", "1", "2")});
    EXPECT_TRUE(isNext());
    center.initBonds({{"1", bond("1")}});
    EXPECT_TRUE(isNext());
    center.removeMarkets({"BJ", "DCE"});
    EXPECT_TRUE(isNext());
    center.updateTenderBondInfos({tenderBond("1"), tenderBond("2")});
    EXPECT_TRUE(isNext()) << "a batch of changes";
    center.updateTenderBondInfos({nullptr});
    center.updateIssuanceInfos(0, {});
    center.removeMarkets({});
    center.createStkOptionCodes({});
    EXPECT_EQ(center.version(), last) << "nothing that readers could see";

    const InstrumentPtr main = instrument("DCE", "m1");
    main->mainContractFlag = 1;
    const std::map<std::uint64_t, std::map<std::uint64_t, InstrumentPtr>> grouped{
        {utils::hash("DCE"), {{utils::hash("DCEm1"), main}}}};
    center.createExchangeDatas(grouped);
    EXPECT_TRUE(isNext());
    EXPECT_TRUE(center.hasFuture("DCEm1"));
    EXPECT_THAT(center.getFutureMainInstruments("DCE"), IsEmpty());
    center.createFutureMainDatas(grouped);
    EXPECT_TRUE(isNext());
    EXPECT_THAT(center.getFutureMainInstruments("DCE"), SizeIs(1));
}

/// Whatever of one view is asked beside whatever else of it, it is of the same load.
TEST_F(View, NeverMixesTwoLoads) {
    constexpr int kLoads = 300;
    constexpr int kSize = 400;
    std::atomic<bool> done{false};
    std::atomic<int> mixed{0};
    std::atomic<int> asked{0};
    load(kDay, day(0, kSize));
    const auto read = [&] {
        std::uint64_t last = 0;
        while (!done.load()) {
            const InstrumentView view = center().view();
            const auto spreads = view.getDceCrossPeriod();
            const std::string generation = spreads.empty() ? "none" : spreads.front().first;
            bool good = view.version() >= last && spreads.size() == 1;
            last = view.version();
            for (const char* const market : {"BJ", "DCE"}) {
                view.visit(market, [&](const InstrumentPtr& record) {
                    good = good && record->name == generation && view.hasCode(record->getKey()) &&
                           view.find(record->getKey()) == record.get();
                });
            }
            const auto mains = view.getFutureMainInstruments("DCE");
            for (const auto& [key, main] : mains) {
                good = good && main->name == generation && main->mainContractFlag == 1;
            }
            for (const std::string& issue : view.getStockIpoCodes()) {
                good = good && view.hasStock(issue) && view.find(issue)->name == generation;
            }
            mixed += good && !mains.empty() ? 0 : 1;
            ++asked;
        }
    };
    std::thread first(read);
    std::thread second(read);
    for (int i = 1; i <= kLoads || asked.load() < kLoads; ++i) {
        load(kDay, day(i, kSize));
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(mixed, 0);
}

TEST_F(View, LoadsAtTheSameTimeLoseNothing) {
    constexpr int kLoads = 200;
    const std::uint64_t before = center().version();
    const auto loads = [&](const std::string& market) {
        for (int i = 0; i < kLoads; ++i) {
            // Few and many keys: both ways of changing an index.
            Instruments records;
            for (int code = 0; code < (i % 2 == 0 ? 3 : 3000); ++code) {
                records.push_back(instrument(market, std::to_string(code)));
            }
            load({market}, records);
        }
    };
    std::thread other([&] { loads("SZ"); });
    loads("NEEQ");
    other.join();
    EXPECT_EQ(center().version() - before, 2U * kLoads);
    for (const char* const market : {"SZ", "NEEQ"}) {
        EXPECT_THAT(center().view().getInstruments(market), SizeIs(3000));
        EXPECT_TRUE(center().hasCode(std::string(market) + "2999"));
    }
}

}  // namespace
}  // namespace mxservice
