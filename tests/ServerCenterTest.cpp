#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/CenterFixture.h"
#include "tests/LogCapture.h"

// What only the in-memory center does.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ServerCenter : public CenterTest<ServerKind> {};

TEST_F(ServerCenter, RecordsAreSharedNotCopied) {
    const InstrumentPtr record = instrument("SH", "600000");
    load({"SH"}, {record});
    EXPECT_EQ(asked().getInstrument("SH600000"), record);
    EXPECT_EQ(asked().getInstruments("SH")["SH600000"], record);
}

TEST_F(ServerCenter, ConnectListingsAreFiledUnderHongKongOnly) {
    load({"HGT", "SZ"}, {instrument("HGT", "00700")});
    EXPECT_FALSE(asked().hasHkstock("HGT00700") || asked().hasHkstock("HK00700") || asked().hasHkstock("SGT00700"));
    EXPECT_TRUE(asked().hasSkstock("HK00700"));
    EXPECT_EQ(asked().getInstrument("SGT00700")->market, "HGT") << "no relabelled copies here";
}

TEST_F(ServerCenter, ConnectSnapshotsWaitForBothMarkets) {
    const InstrumentPtr plain = instrument("HK", "00700");
    load({"HGT"}, {instrument("HGT", "00700"), instrument("HGT", "00001"), instrument("SH", "600000"), nullptr});
    load({"HK"}, {plain});
    EXPECT_THAT(asked().getInstruments(), IsEmpty());
    load({"SGT"}, {instrument("SGT", "00002")});
    EXPECT_THAT(keysOf(asked().getInstruments("HK")), ElementsAre("HGT00001", "HK00700", "SGT00002"));
    EXPECT_EQ(asked().getInstrument("HK00700"), plain) << "here the plain record replaces the connect listing";
    EXPECT_EQ(plain->combinedConnectFlags, 1U);
    EXPECT_EQ(asked().getInstrument("SGT00002")->combinedConnectFlags, 3U);
    EXPECT_FALSE(asked().hasCode("SH600000")) << "records of other markets are left out";
}

TEST_F(ServerCenter, KeysThatAReloadLacksStayUntilTheMarketIsCleared) {
    load({"SH"}, {instrument("SH", "1"), instrument("SH", "2")});
    load({"SH"}, {instrument("SH", "2")});
    EXPECT_TRUE(asked().hasStock("SH1") && asked().getInstrument("SH1"));
    EXPECT_THAT(keysOf(asked().getInstruments("SH")), ElementsAre("SH2"));
    center().clearDatas({"SH", "none"});
    EXPECT_FALSE(asked().hasStock("SH2") || asked().getInstrument("SH2"));
    EXPECT_THAT(asked().getInstruments("SH"), IsEmpty());

    load({"HGT", "SZ"}, {instrument("HGT", "00700")});
    center().clearDatas({"SGT"});
    EXPECT_FALSE(asked().hasCode("HK00700"));
}

TEST_F(ServerCenter, LoadsLogTheirSteps) {
    const LogCapture capture;
    load({"SH", "SZ"}, {instrument("SH", "1")});
    EXPECT_THAT(capture.texts(),
                ElementsAre("[inscenter] init instruments [1] for [2] markets", "[inscenter] create exchange datas",
                            "[inscenter] create future main datas", "[inscenter] create future product datas",
                            "[inscenter] create stock codes", "[inscenter] create neeq codes",
                            "[inscenter] create stock option codes"));
    const LogCapture::Line first = capture.lines().front();
    EXPECT_EQ(first.file, "base/instrumentcenter/CServerInstrumentCenter");
    EXPECT_NE(first.function.find("doInitInstruments"), std::string::npos);
}

/// Virtual slots are asked, not bodies: a host's override is honoured.
class OverridingCenter : public OpenServerCenter {
public:
    using OpenServerCenter::getInstrument;
    boost::shared_ptr<CInstrumentDetail> getInstrument(uint64 key) override {
        return key == utils::hash("HK1") ? instrument("own", "1") : nullptr;
    }
    bool hasNasdaqStock(const std::string& code) override { return code == "mine"; }
};

TEST(ServerCenterSlots, OverloadsGoThroughTheirSlots) {
    OverridingCenter center;
    IInstrumentCenter& asked = center;
    EXPECT_EQ(asked.getInstrument("HGT1")->market, "own");
    EXPECT_EQ(asked.getInstrument("SGT", "1")->market, "own");
    EXPECT_TRUE(asked.hasOuterStock("mine"));
}

TEST_F(ServerCenter, LeavesOutWhatItDoesNotKeep) {
    const auto setting = boost::make_shared<COTCStockEnquiryPriceSetting>();
    setting->code = "P1";
    asked().initIssuancePriceInfos({{"P1", setting}});
    asked().updateIssuancePriceInfo(0, setting);
    EXPECT_FALSE(asked().getIssuancePriceInfo("P1"));
    EXPECT_THAT(asked().getIssuancePriceInfos(), IsEmpty());
    const InstrumentPtr product = instrument("WP", "GC");
    product->mainContractFlag = 1;
    product->productGroup = 1;
    product->productId = "GC";
    load({"WP"}, {product});
    EXPECT_THAT(asked().getOutterProduct(), IsEmpty());
    EXPECT_THAT(center().getExchanges(OvTraderForeign), IsEmpty());
    EXPECT_FALSE(asked().isCommodityProduct("GC"));
    EXPECT_NO_THROW(asked().clearPersist("/nonexistent"));
}

}  // namespace
}  // namespace mxservice
