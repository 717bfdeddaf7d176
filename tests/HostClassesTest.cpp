#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <type_traits>

#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"

// What a host derives of records and centers, alike with both centers.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

template <class Kind>
class HostClasses : public CenterTest<Kind> {};

TYPED_TEST_SUITE(HostClasses, BothCenterKinds);

/// A host's own records, which call themselves something else.
class Renamed : public CInstrumentDetail {
public:
    explicit Renamed(const CInstrumentDetail& record) : CInstrumentDetail(record) {}
    std::string getKey() const override { return code + "." + market; }
};
class RenamedFund : public CETFDetail {
public:
    explicit RenamedFund(const CETFDetail& fund) : CETFDetail(fund) {}
    std::string getKey() const override { return "a fund"; }
};
class RenamedPlan : public COTCFundPlanInfo {
public:
    explicit RenamedPlan(const COTCFundPlanInfo& plan) : COTCFundPlanInfo(plan) {}
    std::string getKey() const override { return "a plan"; }
};

TYPED_TEST(HostClasses, KeysAreOfMarketAndCodeWhateverARecordCallsItself) {
    const PinnedDay day;
    const auto renamed = [](const std::string& market, const std::string& code) {
        auto record = boost::make_shared<Renamed>(*instrument(market, code));
        record->listingDate = "20260302";
        record->securityClass = 5;
        return record;
    };
    const auto engine = std::make_shared<FailingEngine>();
    TemporaryStore::service().setEngine(engine);
    engine->failWritesOf("OvIns_DCE");  // served as the host handed it in
    this->load({"SH", "NEEQ", "DCE"},
               {renamed("SH", "730001"), renamed("SH", "689009"), renamed("NEEQ", "430001"), renamed("DCE", "m2601")});
    IInstrumentCenter& center = this->asked();
    EXPECT_THAT(keysOf(center.getInstruments("DCE")), ElementsAre("DCEm2601"));
    EXPECT_THAT(keysOf(center.getInstruments("SH")), ElementsAre("SH689009", "SH730001"));
    EXPECT_THAT(center.getStockIpoCodes(), ElementsAre("SH730001"));
    EXPECT_THAT(center.getStockCdrCodes(), ElementsAre("SH689009"));
    EXPECT_THAT(center.getNeeqInquiryCodes(), ElementsAre("NEEQ430001"));

    engine->failWritesOf("OvIns_ALLETF");
    center.initEtfs({boost::make_shared<RenamedFund>(*etf("SH", "510050", "510051"))});
    EXPECT_THAT(center.getEtfs(), ElementsAre(testing::Key("SH510050")));
    engine->failWritesOf("OvIns_OTCINS");
    center.initOtcInstruments({boost::make_shared<RenamedPlan>(*plan("1", 1))});
    EXPECT_THAT(keysOf(center.getOtcInstruments()), ElementsAre("SOTC1"));
}

/// A host's own issuance, whose key takes a look at the center.
class Asking : public COTCSecuritiesIssuanceInfo {
public:
    explicit Asking(IInstrumentCenter& center) : center_(center) {}
    std::string getKey() const override { return center_.hasIssuance("none") ? "unexpected" : "asked"; }

private:
    IInstrumentCenter& center_;
};

TYPED_TEST(HostClasses, ARecordMayAskTheCenterForItsOwnKey) {
    IInstrumentCenter& center = this->asked();
    const auto asking = boost::make_shared<Asking>(center);
    center.initIssuanceInfos({asking});
    center.updateIssuanceInfos(0, {asking});
    EXPECT_TRUE(center.hasIssuance("asked"));
    center.updateIssuanceInfos(3, {asking});
    EXPECT_FALSE(center.hasIssuance("asked"));
}

/// A host that answers each list by the other form of the base class.
template <class Center>
class Crosswise : public Center {
public:
    using Names = std::list<std::string>;
    void getInstruments(InstrumentMap& out) override { out.merge(Center::getInstruments()); }
    InstrumentMap getInstruments() override {
        InstrumentMap out;
        Center::getInstruments(out);
        return out;
    }
    void getInstruments(const Names& markets, InstrumentMap& out) override {
        out.merge(Center::getInstruments(markets));
    }
    InstrumentMap getInstruments(const Names& markets) override {
        InstrumentMap out;
        Center::getInstruments(markets, out);
        return out;
    }
    void getInstruments(EOvTraderType type, InstrumentMap& out) override { out.merge(Center::getInstruments(type)); }
    InstrumentMap getInstruments(EOvTraderType type) override {
        InstrumentMap out;
        Center::getInstruments(type, out);
        return out;
    }
    void getInstruments(const std::string& market, std::list<InstrumentPtr>& out) override {
        for (const auto& [text, record] : Center::getInstruments(market)) {
            out.push_back(record);
        }
    }
    InstrumentMap getInstruments(const std::string& market) override {
        InstrumentMap out;
        std::list<InstrumentPtr> records;
        if constexpr (std::is_same_v<Center, OpenServerCenter>) {
            return Center::getInstruments(market);  // its list goes through this very slot, as promised
        }
        Center::getInstruments(market, records);
        for (const InstrumentPtr& record : records) {
            out.emplace(record->getKey(), record);
        }
        return out;
    }
};

TYPED_TEST(HostClasses, AHostMayOverrideEveryListByItsOtherForm) {
    Crosswise<typename TypeParam::Center> center;
    center.initInstruments({"SH", "SOTC"}, {instrument("SH", "1"), instrument("SOTC", "2")});
    IInstrumentCenter& asked = center;
    InstrumentMap all;
    asked.getInstruments(all);
    asked.getInstruments({"SH"}, all);
    asked.getInstruments(OvTraderAll, all);
    EXPECT_THAT(keysOf(all), ElementsAre("SH1", "SOTC2"));
    EXPECT_THAT(asked.getInstruments(), SizeIs(2));
    EXPECT_THAT(asked.getInstruments(OvTraderAll), SizeIs(2));
    EXPECT_THAT(asked.getInstruments(OvTraderStock), SizeIs(1));
    EXPECT_THAT(asked.getInstruments(std::list<std::string>{"SH"}), SizeIs(1));
    EXPECT_THAT(asked.getInstruments("SH"), SizeIs(1));
    std::list<InstrumentPtr> list;
    asked.getInstruments("SOTC", list);
    EXPECT_THAT(list, SizeIs(1));
}

/// The sets of a host's own implementation.
template <class Center>
class OwnSets : public Center {
public:
    using IInstrumentCenter::setLumoCodes;
    using IInstrumentCenter::setNeeqInquiryCodes;
    using IInstrumentCenter::setStkOptionUndlCodes;
    using IInstrumentCenter::setStockCdrCodes;
    using IInstrumentCenter::setStockIpoCodes;
};

TYPED_TEST(HostClasses, AHostsImplementationFillsTheCodeSets) {
    OwnSets<typename TypeParam::Center> own;
    own.setStockIpoCodes("SH", {"SH730001"});
    own.setStockIpoCodes("SZ", {"SZ301001"});
    own.setStockCdrCodes("SH", {"SH689009"});
    own.setNeeqInquiryCodes({"NEEQ1"});
    own.setStkOptionUndlCodes("SH", {"510050"});
    own.setLumoCodes({{"m1", "m2601"}});
    EXPECT_THAT(own.getStockIpoCodes(), ElementsAre("SH730001", "SZ301001"));
    EXPECT_THAT(own.getStockCdrCodes(), ElementsAre("SH689009"));
    EXPECT_THAT(own.getNeeqInquiryCodes(), ElementsAre("NEEQ1"));
    EXPECT_TRUE(own.isStkOptionUndlCode("SH", "510050"));
    EXPECT_EQ(own.getLumoCode("m1"), "m2601");
}

}  // namespace
}  // namespace mxservice
