#include "tests/SecondaryRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/CenterFixture.h"
#include "tests/LogCapture.h"

// ETFs, bonds, tender bonds, counterparties, OTC fund plans, issuance records and price settings.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

template <class Map>
std::vector<std::string> keysIn(const Map& map) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : map) {
        keys.push_back(key);
    }
    return keys;
}

// What both centers answer alike.

template <class Kind>
class Secondary : public CenterTest<Kind> {};

TYPED_TEST_SUITE(Secondary, BothCenterKinds);

TYPED_TEST(Secondary, AFundAnswersToBothItsKeys) {
    const auto fund = etf("SH", "510050", "510051");
    addComponent(*fund, "SH", "600000", "first");
    addComponent(*fund, "SH", "600036", "second");
    this->asked().initEtfs({fund, nullptr, etf("SZ", "159919", "159919")});
    IInstrumentCenter& center = this->asked();
    EXPECT_TRUE(center.hasEtf("SH510050") && center.hasEtf("SH510051") && center.hasEtf("SZ159919"));
    EXPECT_FALSE(center.hasEtf("510050") || center.hasEtf("SZ510050"));
    EXPECT_EQ(*center.getEtf("SH510051"), *fund);
    EXPECT_EQ(*center.getEtf("SH", "510050"), *fund);
    EXPECT_FALSE(center.getEtf("SH", "510052"));
    EXPECT_THAT(keysIn(center.getEtfs()), ElementsAre("SH510050", "SZ159919"));

    const InstrumentPtr pseudo = center.getInstrument("ETFINSTS510051");
    ASSERT_TRUE(pseudo);
    EXPECT_EQ(pseudo->market, "SH");
    EXPECT_EQ(pseudo->code, "510051");
    EXPECT_EQ(pseudo->name, "first") << "named after the first component";
    EXPECT_EQ(pseudo->platformCode, "510051");
    EXPECT_EQ(center.getInstrument("ETFINSTS", "159919")->name, "159919") << "an empty basket leaves the own code";
    EXPECT_THAT(keysOf(center.getInstruments("ETFINSTS")), ElementsAre("SH510051", "SZ159919"));

    center.initEtfs({etf("SH", "510300", "510301")});
    EXPECT_FALSE(center.hasEtf("SH510050") || center.getEtf("SH510050"));
    EXPECT_THAT(keysOf(center.getInstruments("ETFINSTS")), ElementsAre("SH510301"));
}

TYPED_TEST(Secondary, BondsAreInstrumentsOfTheInterbankMarket) {
    IInstrumentCenter& center = this->asked();
    center.initBonds({{"any key", bond("240001", "019733", "100001")}, {"none", nullptr}, {"b", bond("240002")}});
    EXPECT_TRUE(center.hasBond("BANK240001"));
    EXPECT_EQ(center.getBond("BANK240001")->bondName, "bond 240001");
    EXPECT_EQ(*center.getBond(utils::hash("BANK240001")), *center.getBond("BANK240001"));
    EXPECT_FALSE(center.getBond("240001"));
    EXPECT_THAT(keysIn(center.getBonds()), ElementsAre("240001", "240002"));
    EXPECT_EQ(center.getInstrument("BANK", "240002")->name, "bond 240002");
    EXPECT_EQ(center.getInstrument("BANK240002")->platformCode, "240002");

    const auto changed = bond("240001");
    changed->bondName = "changed";
    center.initBonds({{"240001", changed}});
    EXPECT_EQ(center.getBond("BANK240001")->bondName, "changed") << "also when the old one was read before";
    EXPECT_EQ(center.getInstrument("BANK240001")->name, "changed");
}

TYPED_TEST(Secondary, TenderBondsAndCounterpartiesAreReplacedWhole) {
    IInstrumentCenter& center = this->asked();
    center.initTenderBondInfos({{"T1", tenderBond("T1")}, {"T2", tenderBond("T2")}});
    center.initCounterpartys({{"C1", counterparty("C1")}, {"C2", counterparty("C2")}});
    center.initTenderBondInfos({{"T2", tenderBond("T2")}});
    center.initCounterpartys({{"C2", counterparty("C2")}});
    EXPECT_FALSE(center.hasTenderBond("T1") || center.getTenderBondInfo("T1") || center.getCounterparty("C1"));
    EXPECT_TRUE(center.hasTenderBond("T2") && center.getTenderBondInfo("T2") && center.getCounterparty("C2"));
    EXPECT_THAT(keysIn(center.getTrenderBondInfos()), ElementsAre("T2"));
    EXPECT_THAT(keysIn(center.getCounterpartys()), ElementsAre("C2"));
}

TYPED_TEST(Secondary, PlansAnswerAsPlansAndAsInstruments) {
    IInstrumentCenter& center = this->asked();
    center.initOtcInstruments({plan("P1", 1, "first"), plan("P1", 2, "second"), nullptr, plan("P2", 2)});
    EXPECT_TRUE(center.hasOtc("SOTCP1"));
    EXPECT_FALSE(center.hasOtc("P1") || center.hasCode("SOTCP1"));
    EXPECT_EQ(center.getOtcInstrument("SOTCP1")->name, "first") << "of two with one key the first stays";
    EXPECT_THAT(keysOf(center.getOtcInstruments()), ElementsAre("SOTCP1", "SOTCP2"));
    center.initOtcInstruments({plan("P2", 3, "new")});
    EXPECT_FALSE(center.hasOtc("SOTCP1"));
    EXPECT_FALSE(center.getOtcInstrument("SOTCP1"));
    EXPECT_EQ(center.getOtcInstrument("SOTCP2")->planType, 3);
    EXPECT_THAT(keysOf(center.getOtcInstruments()), ElementsAre("SOTCP2"));
}

TYPED_TEST(Secondary, IssuancesChangeByOperationCode) {
    IInstrumentCenter& center = this->asked();
    center.initIssuanceInfos({issuance("I1"), nullptr, issuance("I2")});
    EXPECT_TRUE(center.hasIssuance("I1") && center.getIssuanceInfo("I2"));
    for (const int nothing : {1, 4, -1}) {
        center.updateIssuanceInfos(nothing, {issuance("I3"), issuance("I1", "changed")});
    }
    EXPECT_THAT(keysIn(center.getIssuanceInfos()), ElementsAre("I1", "I2"));
    center.updateIssuanceInfos(0, {issuance("I3"), nullptr});
    center.updateIssuanceInfos(2, {issuance("I1", "changed")});
    center.updateIssuanceInfos(3, {issuance("I2"), issuance("unknown")});
    EXPECT_THAT(keysIn(center.getIssuanceInfos()), ElementsAre("I1", "I3"));
    EXPECT_EQ(center.getIssuanceInfo("I1")->name, "changed");
}

// What only the in-memory center does.

class ServerSecondary : public CenterTest<ServerKind> {};

TEST_F(ServerSecondary, TheFirstFundOfAKeyStays) {
    asked().initEtfs({etf("SH", "1", "2"), etf("SH", "2", "3")});
    EXPECT_EQ(asked().getEtf("SH2")->etfCode, "1");
    EXPECT_EQ(asked().getEtf("SH3")->etfCode, "2");
}

TEST_F(ServerSecondary, TenderBondsLoadByTheMapsKeyAndChangeByTheirOwnCode) {
    asked().initTenderBondInfos({{"key", tenderBond("code")}});
    EXPECT_TRUE(asked().hasTenderBond("key"));
    EXPECT_FALSE(asked().hasTenderBond("code"));
    asked().updateTenderBondInfos({tenderBond("code"), nullptr});
    EXPECT_TRUE(asked().getTenderBondInfo("code"));
    EXPECT_THAT(keysIn(asked().getTrenderBondInfos()), ElementsAre("code"));
}

TEST_F(ServerSecondary, AReplacedPlanLeavesItsGroup) {
    asked().initOtcInstruments({plan("P1", 1), plan("P2", 1)});
    const auto moved = plan("P1", 2, "moved");
    asked().updateOtcInstruments({moved, moved, nullptr, plan("P3", 1)});
    const auto group = [&](int number) {
        std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
        asked().getOtcInstruments(number, plans);
        std::vector<std::string> codes;
        for (const auto& each : plans) {
            codes.push_back(each->code);
        }
        return codes;
    };
    EXPECT_THAT(group(1), UnorderedElementsAre("P2", "P3"));
    EXPECT_THAT(group(2), ElementsAre("P1"));
    EXPECT_THAT(group(3), IsEmpty());
    EXPECT_THAT(group(-1), UnorderedElementsAre("P1", "P2", "P3"));
    EXPECT_EQ(asked().getOtcInstrument("SOTCP1"), moved);
}

TEST_F(ServerSecondary, LeavesCounterpartyChangesAndInterbankCodesOut) {
    asked().initBonds({{"b", bond("240001", "019733")}});
    asked().updateCounterpartyInfo(counterparty("C1"));
    EXPECT_FALSE(asked().getCounterparty("C1"));
    EXPECT_EQ(asked().getInterbankCode("SH019733"), "");
}

// What only the persisted center does.

class ClientSecondary : public CenterTest<ClientKind> {
protected:
    std::shared_ptr<FailingEngine> useFailingEngine() {
        auto engine = std::make_shared<FailingEngine>();
        TemporaryStore::service().setEngine(engine);
        return engine;
    }
};

TEST_F(ClientSecondary, ComponentsWithoutNameGetTheirInstruments) {
    load({"SH"}, {instrument("SH", "600000")});
    const auto fund = etf("SH", "510050", "510051");
    addComponent(*fund, "SH", "600000", "");
    addComponent(*fund, "SH", "600036", "");
    fund->components["null"] = nullptr;
    asked().initEtfs({fund});
    EXPECT_EQ(fund->components["600000"]->name, "name of SH600000");
    EXPECT_EQ(fund->components["600036"]->name, "");
    EXPECT_EQ(asked().getEtf("SH510050")->components["600000"]->name, "name of SH600000");
    EXPECT_EQ(asked().getInstrument("ETFINSTS510051")->name, "name of SH600000");
}

TEST_F(ClientSecondary, FundsThatCouldNotBeWrittenAnswerFromMemoryUntilALaterFailure) {
    const auto engine = useFailingEngine();
    engine->failWritesOf("OvIns_ALLETF");
    const LogCapture capture;
    const auto lost = etf("SH", "1", "2");
    asked().initEtfs({lost});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = ETFINSTS"), 1U);
    EXPECT_EQ(asked().getEtf("SH1"), lost);
    EXPECT_THAT(keysIn(asked().getEtfs()), ElementsAre("SH1"));
    engine->failWritesOf("");
    asked().initEtfs({etf("SH", "1", "2"), etf("SH", "3", "4")});
    EXPECT_EQ(asked().getEtf("SH1"), lost) << "kept although this load wrote the fund";
    EXPECT_EQ(asked().getEtf("SH3")->etfCode, "3");
    EXPECT_THAT(keysIn(asked().getEtfs()), ElementsAre("SH1", "SH3"));
    engine->failWritesOf("OvIns_ALLETF");
    asked().initEtfs({});
    EXPECT_THAT(keysIn(asked().getEtfs()), ElementsAre("SH1", "SH3")) << "nothing was written, so no write failed";
    asked().initEtfs({etf("SH", "5", "6")});
    EXPECT_FALSE(asked().getEtf("SH1"));
}

TEST_F(ClientSecondary, AKnownFundWhoseDocumentIsLostAnswersDefaults) {
    asked().initEtfs({etf("SH", "1", "2")});
    TemporaryStore::service().dropAllData("OvIns_ALLETF");
    ASSERT_TRUE(asked().getEtf("SH1"));
    EXPECT_EQ(*asked().getEtf("SH1"), CETFDetail());
}

TEST_F(ClientSecondary, BondsAndPlansThatCouldNotBeWrittenAnswerFromMemory) {
    const auto engine = useFailingEngine();
    const LogCapture capture;
    engine->failWritesOf("OvIns_BANKBOND");
    asked().initBonds({{"b", bond("240001")}});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = BANKBOND"), 1U);
    EXPECT_TRUE(asked().getBond("BANK240001"));
    EXPECT_THAT(asked().getBonds(), SizeIs(1));
    engine->failWritesOf("OvIns_OTCINS");
    asked().initOtcInstruments({plan("P1", 1)});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = OTCINS"), 1U);
    EXPECT_TRUE(asked().getOtcInstrument("SOTCP1"));
    EXPECT_THAT(asked().getOtcInstruments(), SizeIs(1));
    asked().initOtcInstruments({});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = OTCINS"), 2U) << "also of a load of nothing";
    engine->failWritesOf("");
    asked().initOtcInstruments({plan("P2", 1)});
    EXPECT_THAT(keysOf(asked().getOtcInstruments()), ElementsAre("SOTCP2")) << "the next load heals";
    engine->failWritesOf("OvIns_OTCINS");
    asked().initOtcInstruments({});
    EXPECT_THAT(asked().getOtcInstruments(), IsEmpty()) << "what could not be removed is no plan of today";
}

/// What is read while the write is under way comes from the old document, and must not stay.
TEST_F(ClientSecondary, AWriteLeavesNoOldBondOrPlanInTheCache) {
    const auto day = [&](const std::string& name) {
        const auto listed = bond("240001");
        listed->bondName = name;
        asked().initBonds({{"b", listed}});
        asked().initOtcInstruments({plan("P1", 1, name)});
    };
    day("old");
    const auto engine = useFailingEngine();
    std::set<std::string> met;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_BANKBOND") {
            met.insert(db + " " + asked().getBond("BANK240001")->bondName);
        } else if (db == "OvIns_OTCINS") {
            met.insert(db + " " + asked().getOtcInstrument("SOTCP1")->name);
        }
    });
    day("new");
    EXPECT_THAT(met, ElementsAre("OvIns_BANKBOND old", "OvIns_OTCINS old"));
    EXPECT_EQ(asked().getBond("BANK240001")->bondName, "new");
    EXPECT_EQ(asked().getOtcInstrument("SOTCP1")->name, "new");
}

TEST_F(ClientSecondary, AFundTooLargeForADocumentDoesNotKeepTheOthersOut) {
    const auto huge = etf("SH", "1", "2");
    huge->name.assign(bson::kMaxDocumentBytes, 'x');
    asked().initEtfs({huge, etf("SH", "3", "4")});
    EXPECT_EQ(asked().getEtf("SH1"), huge);
    const auto renamed = etf("SH", "3", "4");
    renamed->name = "day two";
    asked().initEtfs({renamed});
    EXPECT_EQ(asked().getEtf("SH3")->name, "day two");
}

TEST_F(ClientSecondary, AFundsDocumentMayLackAnyKey) {
    asked().initEtfs({etf("SH", "1", "2")});
    bson::BSONObjBuilder builder;
    builder.append("name", "kept").append("reportunit", 2.9).append("exchid", "SH");
    TemporaryStore::service().writeData("OvIns_ALLETF", std::to_string(utils::hash("SH1")), builder.obj(), false);
    EXPECT_EQ(asked().getEtf("SH1")->name, "kept");
    EXPECT_EQ(asked().getEtf("SH1")->reportUnit, 2);
    EXPECT_EQ(asked().getEtf("SH1")->etfCode, "");
}

TEST_F(ClientSecondary, InterbankCodesAreFoundByTheListings) {
    asked().initBonds({{"b", bond("240001", "019733", "100001")}, {"c", bond("240002")}});
    EXPECT_EQ(asked().getInterbankCode("SH019733"), "240001");
    EXPECT_EQ(asked().getInterbankCode("SZ100001"), "240001");
    EXPECT_EQ(asked().getInterbankCode("SZ019733"), "");
}

TEST_F(ClientSecondary, CounterpartyChangesInsertReplaceAndRemove) {
    asked().updateCounterpartyInfo(nullptr);
    asked().updateCounterpartyInfo(counterparty("gone", true));
    asked().updateCounterpartyInfo(counterparty("C1"));
    const auto replacement = counterparty("C1");
    asked().updateCounterpartyInfo(replacement);
    EXPECT_EQ(asked().getCounterparty("C1"), replacement);
    asked().updateCounterpartyInfo(counterparty("C1", true));
    EXPECT_THAT(asked().getCounterpartys(), IsEmpty());
}

TEST_F(ClientSecondary, PriceSettingsAndTheRemovalThatHitsTheIssuance) {
    asked().initIssuancePriceInfos({{"X", priceSetting("X", 1)}});
    asked().initIssuanceInfos({issuance("X"), issuance("Y")});
    asked().updateIssuancePriceInfo(0, nullptr);
    asked().updateIssuancePriceInfo(1, priceSetting("X", 9));
    asked().updateIssuancePriceInfo(2, priceSetting("X", 2));
    EXPECT_EQ(asked().getIssuancePriceInfo("X")->enquiryPrice, 2);
    asked().updateIssuancePriceInfo(3, priceSetting("X"));
    EXPECT_FALSE(asked().hasIssuance("X"));
    EXPECT_TRUE(asked().hasIssuance("Y"));
    EXPECT_THAT(keysIn(asked().getIssuancePriceInfos()), ElementsAre("X"));
}

TEST_F(ClientSecondary, DoesNothingWhereOnlyTheInMemoryCenterActs) {
    asked().initOtcInstruments({plan("P1", 1)});
    asked().updateOtcInstruments({plan("P2", 1)});
    asked().updateTenderBondInfos({tenderBond("T1")});
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
    asked().getOtcInstruments(-1, plans);
    EXPECT_THAT(plans, IsEmpty());
    EXPECT_FALSE(asked().hasOtc("SOTCP2") || asked().hasTenderBond("T1"));
    EXPECT_THAT(keysOf(asked().getInstruments(OvTraderOtc)), ElementsAre("SOTCP1"));
}

TYPED_TEST(Secondary, ABasketKeepsComponentsThatHaveNoCodeOfTheirOwn) {
    const auto fund = etf("SH", "510050", "510051");
    addComponent(*fund, "SH", "600000", "first");
    addComponent(*fund, "SH", "600001", "second");
    for (const auto& [key, component] : fund->components) {
        component->code.clear();
    }
    this->center().initEtfs({fund});
    const auto answered = this->asked().getEtf("SH510050");
    ASSERT_EQ(answered->components.size(), 2U);
    EXPECT_EQ(answered->components["600001"]->name, "second");
    EXPECT_EQ(fund->components["600001"]->code, "") << "the host's own record is left alone";
}

}  // namespace
}  // namespace mxservice
