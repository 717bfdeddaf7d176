#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <type_traits>

#include "tests/CenterFixture.h"

// What both centers answer alike.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Keys = std::vector<std::string>;

template <class Kind>
class Contract : public CenterTest<Kind> {};

TYPED_TEST_SUITE(Contract, BothCenterKinds);

const Keys kEveryMarket{"SH",   "SZ",  "BJ",   "HK",   "SHO",  "SZO",  "CFFEX", "SHFE", "DCE",
                        "CZCE", "INE", "GFEX", "NEEQ", "SHGE", "BANK", "WP",    "NYSE", "NASDAQ"};

/// Which predicates over the code index accept the key, by name.
Keys kindsOf(IInstrumentCenter& center, const std::string& key) {
    const std::vector<std::pair<const char*, bool (IInstrumentCenter::*)(const std::string&)>> predicates{
        {"code", &IInstrumentCenter::hasCode},
        {"stock", &IInstrumentCenter::hasStock},
        {"future", &IInstrumentCenter::hasFuture},
        {"futureOption", &IInstrumentCenter::hasFutureOption},
        {"skstock", &IInstrumentCenter::hasSkstock},
        {"option", &IInstrumentCenter::hasOption},
        {"neeq", &IInstrumentCenter::hasNeeq},
        {"gold", &IInstrumentCenter::hasGold},
        {"bond", &IInstrumentCenter::hasBond},
        {"outerFuture", &IInstrumentCenter::hasOuterFuture},
        {"outerStock", &IInstrumentCenter::hasOuterStock}};
    Keys kinds;
    for (const auto& [name, predicate] : predicates) {
        if ((center.*predicate)(key)) {
            kinds.emplace_back(name);
        }
    }
    return kinds;
}

TYPED_TEST(Contract, EachMarketIsWhatItIsAndNothingElse) {
    Instruments records;
    for (const std::string& market : kEveryMarket) {
        records.push_back(instrument(market, "1"));
    }
    this->load(kEveryMarket, records);
    const std::map<std::string, Keys> expected{
        {"SH", {"code", "stock"}},       {"SZ", {"code", "stock"}},        {"BJ", {"code", "stock"}},
        {"HK", {"code", "skstock"}},     {"SHO", {"code", "option"}},      {"SZO", {"code", "option"}},
        {"NEEQ", {"code", "neeq"}},      {"SHGE", {"code", "gold"}},       {"BANK", {"code", "bond"}},
        {"WP", {"code", "outerFuture"}}, {"NYSE", {"code", "outerStock"}}, {"NASDAQ", {"code", "outerStock"}}};
    for (const std::string& market : kEveryMarket) {
        const auto found = expected.find(market);
        const Keys kinds = found != expected.end() ? found->second : Keys{"code", "future", "futureOption"};
        EXPECT_EQ(kindsOf(this->asked(), market + "1"), kinds) << market;
    }
    EXPECT_TRUE(this->center().hasNyseStock("NYSE1"));
    EXPECT_FALSE(this->center().hasNasdaqStock("NYSE1"));
    EXPECT_TRUE(this->center().hasNasdaqStock("NASDAQ1"));
}

TYPED_TEST(Contract, ConnectPrefixesFoldAsEachOperationSays) {
    this->load({"HK", "SZ"}, {instrument("HK", "00700"), instrument("SZ", "00700")});
    IInstrumentCenter& center = this->asked();
    EXPECT_TRUE(center.hasCode("HGT00700") && center.hasCode("SGT00700") && center.hasCode("HK00700"));
    EXPECT_FALSE(center.hasCode("XHGT00700") || center.hasCode("HGT") || center.hasCode("HG"));
    EXPECT_TRUE(center.hasSkstock("SGT00700"));
    EXPECT_FALSE(center.hasSkstock("HGT00700")) << "folds its own prefix only";
    for (const char* const market : {"HK", "HGT", "SGT"}) {
        EXPECT_TRUE(center.getInstrument(market, "00700")) << market;
        EXPECT_TRUE(center.getInstrument(std::string(market) + "00700")) << market;
        EXPECT_THAT(keysOf(center.getInstruments(market)), ElementsAre("HK00700")) << market;
    }
    EXPECT_FALSE(center.getInstrument("HGT", "00701"));
}

TYPED_TEST(Contract, AConnectListingReplacesThePlainRecordAndStandsUnderItsOwnMarket) {
    for (const bool connectFirst : {true, false}) {
        Instruments records{instrument("HK", "00700"), instrument("HK", "00001")};
        records.insert(connectFirst ? records.begin() : records.end(), instrument("HGT", "00700"));
        this->load({"HK", "HGT"}, records);
        EXPECT_EQ(this->asked().getInstrument("HK00700")->market, "HGT");
        EXPECT_THAT(keysOf(this->asked().getInstruments("HK")), ElementsAre("HGT00700", "HK00001"));
    }
}

TYPED_TEST(Contract, ShanghaiSpecialRecordsFillGapsOnly) {
    const InstrumentPtr twin = instrument("SHFI", "600000");
    const InstrumentPtr alone = instrument("SHFI", "204001");
    this->load({"SH", "SHFI"}, {instrument("SH", "600000"), twin, alone});
    EXPECT_THAT(keysOf(this->asked().getInstruments("SH")), ElementsAre("SH204001", "SH600000"));
    EXPECT_EQ(this->asked().getInstrument("SH600000")->name, "name of SH600000");
    EXPECT_EQ(this->asked().getInstrument("SH204001")->name, "name of SHFI204001");
    EXPECT_EQ(twin->market, "SHFI") << "a dropped record is not touched";
    EXPECT_EQ(alone->market, "SH");
}

TYPED_TEST(Contract, AReloadReplacesItsMarketsAndLeavesOthers) {
    this->load({"SH", "SZ"}, {instrument("SH", "1"), instrument("SH", "2"), instrument("SZ", "3"), nullptr});
    const InstrumentPtr changed = instrument("SH", "1");
    changed->name = "changed";
    this->load({"SH"}, {changed, instrument("SH", "4")});
    EXPECT_THAT(keysOf(this->asked().getInstruments("SH")), ElementsAre("SH1", "SH4"));
    EXPECT_THAT(keysOf(this->asked().getInstruments("SZ")), ElementsAre("SZ3"));
    EXPECT_EQ(this->asked().getInstruments("SH")["SH1"]->name, "changed");
}

TYPED_TEST(Contract, EveryOverloadGivesTheSameRecords) {
    this->load({"SH", "SZ", "HK"}, {instrument("SH", "2"), instrument("SH", "10"), instrument("SZ", "3"),
                                    instrument("HK", "4"), instrument("nowhere", "5")});
    IInstrumentCenter& center = this->asked();
    EXPECT_THAT(keysOf(center.getInstruments()), ElementsAre("HK4", "SH10", "SH2", "SZ3", "nowhere5"));
    EXPECT_THAT(keysOf(center.getInstruments(std::list<std::string>{"SH", "SGT", "SH", "none"})),
                ElementsAre("HK4", "SH10", "SH2"));
    std::list<InstrumentPtr> list{nullptr};
    center.getInstruments("SH", list);
    ASSERT_THAT(list, SizeIs(3));
    EXPECT_EQ(list.back()->code, "2") << "appended in the order of the key texts";

    const InstrumentPtr mine = instrument("SH", "mine");
    InstrumentMap out{{"SH2", mine}};
    center.getInstruments(std::list<std::string>{"SH"}, out);
    EXPECT_THAT(keysOf(out), ElementsAre("SH10", "SH2"));
    EXPECT_EQ(out["SH2"], mine) << "what the caller holds already stays";
    center.getInstruments(out);
    EXPECT_THAT(out, SizeIs(5));
    EXPECT_EQ(out["SH2"], mine);
    EXPECT_EQ(center.getInstrument("nowhere5")->code, "5") << "an unknown market is filed under its own name";
}

TYPED_TEST(Contract, TraderTypesSelectTheirExchanges) {
    Instruments records;
    for (const std::string& market : kEveryMarket) {
        records.push_back(instrument(market, "1"));
    }
    const InstrumentPtr option = instrument("DCE", "m2601-C-3000");
    option->optionType = 1;
    records.push_back(option);
    this->load(kEveryMarket, records);
    const auto of = [&](int type) { return keysOf(this->asked().getInstruments(static_cast<EOvTraderType>(type))); };
    EXPECT_THAT(of(1), ElementsAre("BJ1", "SH1", "SZ1"));
    EXPECT_THAT(of(2), ElementsAre("CFFEX1", "CZCE1", "DCE1", "GFEX1", "INE1", "SHFE1"));
    EXPECT_THAT(of(1024), ElementsAre("DCEm2601-C-3000"));
    EXPECT_THAT(of(32), ElementsAre("SHO1", "SZO1"));
    EXPECT_THAT(of(4096), ElementsAre("SH1", "SZ1"));
    EXPECT_THAT(of(0), IsEmpty());
    for (const int everything : {4, 65536, 810495, 8388608, 2146762751}) {
        EXPECT_THAT(of(everything), SizeIs(records.size())) << everything;
    }
    InstrumentMap out{{"mine", option}};
    this->asked().getInstruments(OvTraderFuture, out);
    EXPECT_THAT(out, SizeIs(7)) << "the filter touches only what this call adds";
}

TYPED_TEST(Contract, StrangeKeysNeverHurt) {
    const std::string nul(
        "6\0"
        "1",
        3);
    const std::string notUtf8("\xC6\xBD\xFF");
    const std::string longCode(10000, 'x');
    Instruments records{instrument("SH", nul), instrument("SH", notUtf8), instrument("SH", longCode),
                        instrument("", ""), instrument(longCode, longCode)};
    records[0]->name = longCode;
    this->load({"SH", ""}, records);
    IInstrumentCenter& center = this->asked();
    EXPECT_TRUE(center.hasStock("SH" + nul));
    EXPECT_FALSE(center.hasStock("SH6"));
    EXPECT_EQ(center.getInstrument("SH", nul)->name, longCode);
    EXPECT_EQ(center.getInstrument("SH" + notUtf8)->code, notUtf8);
    EXPECT_EQ(center.getInstrument("SH" + longCode)->code, longCode);
    EXPECT_EQ(center.getInstrument(longCode, longCode)->market, longCode);
    EXPECT_TRUE(center.getInstrument(""));
    EXPECT_THAT(center.getInstruments("SH"), SizeIs(3));
}

TYPED_TEST(Contract, MainContractsAndSpreadsAreDerivedAndKept) {
    const auto contract = [](const std::string& market, const std::string& code, const std::string& product, int flag) {
        const InstrumentPtr record = instrument(market, code);
        record->productId = product;
        record->mainContractFlag = flag;
        return record;
    };
    this->load({"DCE", "CZCE"}, {contract("DCE", "m2601", "m", 1), contract("DCE", "m2605", "m", 1),
                                 contract("DCE", "a2601", "a", 1), contract("CZCE", "CF601", "CF", 0),
                                 contract("DCE", "SPC a2601&m2601", "", 0), contract("DCE", "SP m2601&m2605", "", 0)});
    IInstrumentCenter& center = this->asked();
    EXPECT_THAT(keysOf(center.getFutureMainInstruments("DCE")), ElementsAre("DCEa2601", "DCEm2601", "DCEm2605"));
    EXPECT_THAT(center.getFutureMainInstruments("CZCE"), IsEmpty());
    EXPECT_THAT(center.getFutureMainInstruments("SH"), IsEmpty());
    EXPECT_THAT(center.getProductMainInstruments()["m"], SizeIs(2));
    EXPECT_EQ(center.getProductId("DCE", "a2601"), "a");
    EXPECT_THAT(center.getDceCrossProduct(), ElementsAre(std::pair("a2601", "m2601")));
    EXPECT_THAT(center.getDceCrossPeriod(), ElementsAre(std::pair("m2601", "m2605")));

    this->load({"DCE"}, {contract("DCE", "m2605", "m", 1)});
    EXPECT_THAT(keysOf(center.getFutureMainInstruments("DCE")), ElementsAre("DCEm2605"));
    EXPECT_THAT(center.getProductMainInstruments()["m"], SizeIs(1));
    EXPECT_EQ(center.getProductMainInstruments().count("a"), 1U) << "a product that does not occur keeps its entry";
    EXPECT_THAT(center.getDceCrossProduct(), IsEmpty());
    EXPECT_EQ(center.getProductName("m"), "");

    this->load({"SH"}, {instrument("SH", "600000")});
    EXPECT_THAT(keysOf(center.getFutureMainInstruments("DCE")), ElementsAre("DCEm2605"));
}

TYPED_TEST(Contract, StockCodeSetsAreClassified) {
    const PinnedDay day;
    const auto issue = [](const std::string& market, const std::string& code) {
        const InstrumentPtr record = instrument(market, code);
        record->listingDate = "20260302";
        return record;
    };
    const InstrumentPtr yesterday = issue("SH", "732001");
    yesterday->listingDate = "20260301";
    const InstrumentPtr additional = issue("SH", "730002");
    additional->additionalIssueFlag = 1;
    const InstrumentPtr shenzhen = issue("SZ", "301999");
    shenzhen->issueState = -1;
    const InstrumentPtr receipt = issue("SZ", "001111");
    receipt->statusString = "NNNNNNN1";
    const InstrumentPtr beijing = instrument("BJ", "920001");
    beijing->securityClass = 5;
    const InstrumentPtr neeq = instrument("NEEQ", "430001");
    neeq->securityClass = 5;
    this->load({"SH", "SZ", "BJ", "NEEQ"},
               {issue("SH", "730001"), yesterday, additional, issue("SH", "600000"), instrument("SH", "689009"),
                shenzhen, receipt, issue("SZ", "301998"), issue("SZ", "370001"), beijing, neeq});
    IInstrumentCenter& center = this->asked();
    EXPECT_THAT(center.getStockIpoCodes(), ElementsAre("BJ920001", "SH730001", "SZ301999", "SZ370001"));
    EXPECT_THAT(center.getStockCdrCodes(), ElementsAre("SH689009", "SZ001111"));
    EXPECT_THAT(center.getNeeqInquiryCodes(), ElementsAre("NEEQ430001"));

    this->load({"HK"}, {});
    EXPECT_THAT(center.getStockIpoCodes(), SizeIs(4)) << "another market changes nothing";
    this->load({"NEEQ"}, {instrument("NEEQ", "430002")});
    EXPECT_THAT(center.getNeeqInquiryCodes(), SizeIs(1)) << "an empty result keeps the inquiry codes";
    this->load({"SZ"}, {shenzhen});
    EXPECT_THAT(center.getStockIpoCodes(), ElementsAre("SZ301999")) << "a load of one stock market empties the others";
    EXPECT_THAT(center.getStockCdrCodes(), IsEmpty());
}

TYPED_TEST(Contract, RemovedMarketsAreGoneWithWhatWasDerivedOfThem) {
    const PinnedDay day;
    const auto contract = [](const std::string& market, const std::string& code, const std::string& product) {
        const InstrumentPtr record = instrument(market, code);
        record->productId = product;
        record->mainContractFlag = product == "both" ? 0 : 1;
        return record;
    };
    const InstrumentPtr issue = instrument("SH", "730001");
    issue->listingDate = "20260302";
    const InstrumentPtr option = instrument("SHO", "1");
    option->productId = "50ETF(510050)";
    const InstrumentPtr inquiry = instrument("NEEQ", "1");
    inquiry->securityClass = 5;
    this->load({"SH", "SZ", "HK", "DCE", "SHFE", "SHO", "NEEQ"},
               {instrument("SH", "gone before"), instrument("SZ", "1"), instrument("HK", "1"),
                contract("DCE", "p1", "p"), contract("SHFE", "q1", "q"), contract("DCE", "b1", "both"),
                contract("SHFE", "b2", "both"), contract("DCE", "SP p1&p2", "p"), option, inquiry});
    this->load({"SH"}, {issue});
    ASSERT_THAT(this->asked().getStockIpoCodes(), SizeIs(1));
    this->center().removeMarkets({"SH", "HGT", "DCE", "SHO", "NEEQ", "never there"});
    IInstrumentCenter& center = this->asked();
    EXPECT_THAT(keysOf(center.getInstruments()), ElementsAre("SHFEb2", "SHFEq1", "SZ1"));
    for (const char* const key : {"SH730001", "SHgone before", "HK1", "DCEp1", "SHO1", "NEEQ1"}) {
        EXPECT_FALSE(center.hasCode(key) || center.getInstrument(key)) << key;
    }
    EXPECT_THAT(center.getStockIpoCodes(), IsEmpty());
    EXPECT_THAT(center.getNeeqInquiryCodes(), IsEmpty());
    EXPECT_FALSE(center.isStkOptionUndlCode("SH", "510050"));
    EXPECT_THAT(center.getFutureMainInstruments("DCE"), IsEmpty());
    EXPECT_THAT(center.getProductMainInstruments(), ElementsAre(testing::Key("q")));
    EXPECT_THAT(center.getProductInstruments("p"), IsEmpty());
    EXPECT_THAT(center.getProductInstruments("both"),
                testing::Each(testing::Pointee(testing::Field(&CInstrumentDetail::market, "SHFE"))));
    EXPECT_THAT(center.getDceCrossPeriod(), IsEmpty());
    this->load({"SH"}, {issue});
    EXPECT_THAT(keysOf(center.getInstruments("SH")), ElementsAre("SH730001")) << "and may come back";
}

TYPED_TEST(Contract, AReplacedMarketHasWhatTheBatchBringsAndNothingElse) {
    const auto main = [](const std::string& market, const std::string& code, const std::string& product) {
        const InstrumentPtr record = instrument(market, code);
        record->productId = product;
        record->mainContractFlag = 1;
        return record;
    };
    const InstrumentPtr inquiry = instrument("NEEQ", "1");
    inquiry->securityClass = 5;
    const InstrumentPtr option = instrument("SHO", "1");
    option->productId = "50ETF(510050)";
    this->load({"SH", "SZ", "HK", "DCE", "SHFE", "NEEQ", "SHO"},
               {instrument("SH", "1"), instrument("SH", "2"), instrument("SZ", "1"), instrument("HK", "1"),
                main("DCE", "a1", "a"), main("DCE", "b1", "b"), main("SHFE", "c1", "c"), inquiry, option});
    this->load({"SH"}, {instrument("SH", "2"), instrument("SH", "3")});  // leaves "SH1" to the in-memory center
    this->center().replaceInstruments({"SH", "DCE", "NEEQ", "SHO", "HK", "never there"},
                                      {instrument("SH", "3"), main("DCE", "b2", "b"), instrument("NEEQ", "2"),
                                       instrument("SHO", "2"), instrument("SZ", "2"), nullptr});
    IInstrumentCenter& center = this->asked();
    for (const char* const key : {"SH1", "SH2", "DCEa1", "DCEb1", "NEEQ1", "SHO1", "HK1"}) {
        EXPECT_FALSE(center.hasCode(key) || center.getInstrument(key)) << key;
    }
    EXPECT_THAT(keysOf(center.getInstruments("SH")), ElementsAre("SH3"));
    EXPECT_THAT(center.getInstruments("HK"), IsEmpty()) << "named, and nothing brought for it";
    EXPECT_THAT(keysOf(center.getFutureMainInstruments("DCE")), ElementsAre("DCEb2"));
    EXPECT_THAT(keysOf(center.getFutureMainInstruments("SHFE")), ElementsAre("SHFEc1"));
    EXPECT_THAT(center.getProductMainInstruments(), ElementsAre(testing::Key("b"), testing::Key("c")));
    EXPECT_THAT(center.getNeeqInquiryCodes(), IsEmpty());
    EXPECT_FALSE(center.isStkOptionUndlCode("SH", "510050"));
    EXPECT_TRUE(center.hasCode("SZ1") && center.hasCode("SZ2")) << "a market that is not named is loaded as ever";
}

/// A key that is there before and after a replacement or a change answers all the time, and never with a record older
/// than the last one that has ended.
TYPED_TEST(Contract, NeitherReplacementsNorChangesLeaveAGapForReaders) {
    if (kNamedPlatformOnly && std::is_same_v<TypeParam, ClientKind>) {
        GTEST_SKIP()
            << "no named operation replaces a database in one step: between drop and write records are missing";
    }
    constexpr int kReplacements = 40;
    constexpr int kRecords = 50;
    const auto batch = [](int generation) {
        Instruments records{instrument("SH", "passing" + std::to_string(generation))};
        for (int i = 0; i < kRecords; ++i) {
            records.push_back(instrument("SH", std::to_string(i)));
            records.back()->name = std::to_string(generation);
        }
        return records;
    };
    std::atomic<int> replaced{0};
    std::atomic<bool> done{false};
    this->center().replaceInstruments({"SH"}, batch(0));
    std::thread reloads([&] {
        for (int generation = 1; generation <= kReplacements; ++generation) {
            if (generation % 2 == 0) {
                this->center().replaceInstruments({"SH"}, batch(generation));
            } else {
                this->center().applyChanges(batch(generation), {"SHpassing" + std::to_string(generation - 1)});
            }
            replaced = generation;
        }
        done = true;
    });
    IInstrumentCenter& center = this->asked();
    int gaps = 0;
    int old = 0;
    do {
        for (int i = 0; i < kRecords; ++i) {
            const std::string key = "SH" + std::to_string(i);
            const int least = replaced;
            const InstrumentPtr record = center.getInstrument(key);
            gaps += record && center.hasStock(key) ? 0 : 1;
            old += record && std::stoi(record->name) < least ? 1 : 0;
        }
        gaps += center.getInstruments("SH").size() < kRecords + 1 ? 1 : 0;
    } while (!done);
    reloads.join();
    EXPECT_EQ(gaps, 0);
    EXPECT_EQ(old, 0);
    EXPECT_THAT(center.getInstruments("SH"), SizeIs(kRecords + 1));
}

TYPED_TEST(Contract, ManyKeysAtOnceAreAnsweredInTheirPlaces) {
    const std::uint64_t before = this->center().version();
    this->load({"SH", "SZ"}, {instrument("SH", "1"), instrument("SZ", "2")});
    const std::uint64_t loaded = this->center().version();
    EXPECT_GT(loaded, before);
    const std::vector<std::uint64_t> keys{utils::hash("SZ2"), 7, utils::hash("SH1"), utils::hash("SH1")};
    Instruments found(keys.size(), instrument("left", "over"));
    EXPECT_EQ(this->center().resolve(keys.data(), keys.size(), found.data()), 3U);
    EXPECT_EQ(found[0]->code, "2");
    EXPECT_FALSE(found[1]);
    EXPECT_EQ(found[2]->code + found[3]->code, "11");
    EXPECT_EQ(this->center().resolve(nullptr, 0, nullptr), 0U);
    EXPECT_EQ(this->center().version(), loaded) << "a question changes nothing";
    this->center().removeMarkets({"SZ"});
    EXPECT_GT(this->center().version(), loaded);
}

}  // namespace
}  // namespace mxservice
