#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"

namespace mxservice {
namespace {

using Records = std::map<std::string, boost::shared_ptr<CInstrumentDetail>>;
using Text = const std::string&;
template <class Record>
using ByKey = std::map<std::string, boost::shared_ptr<Record>>;
template <class Record>
using All = std::vector<boost::shared_ptr<Record>>;

static_assert(!std::has_virtual_destructor_v<IInstrumentCenter>);
static_assert(!std::is_destructible_v<IInstrumentCenter>, "a center is destroyed through its own class");
static_assert(!std::has_virtual_destructor_v<CServerInstrumentCenter>);
static_assert(!std::has_virtual_destructor_v<CClientInstrumentCenter>);

#if defined(__GNUC__) && defined(__x86_64__) && !defined(_WIN32)

/// On the Itanium C++ ABI a pointer to a virtual member function holds one more than the offset of its slot.
template <class Operation>
std::size_t slotOf(Operation operation) {
    std::size_t words[2];
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
    EXPECT_EQ(words[0] & 1U, 1U) << "not virtual";
    return (words[0] - 1) / sizeof(void*);
}

template <class Result, class... Arguments>
using Operation = Result (IInstrumentCenter::*)(Arguments...);

using I = IInstrumentCenter;

template <class Add>
void addLoadsAndPredicates(const Add& add) {
    add(Operation<void, const std::vector<std::string>&, const All<CInstrumentDetail>&>(&I::initInstruments));
    add(Operation<void, const All<CETFDetail>&>(&I::initEtfs));
    add(Operation<void, const ByKey<CBondInfoDetail>&>(&I::initBonds));
    add(Operation<void, const ByKey<CCounterpartyDetail>&>(&I::initCounterpartys));
    add(Operation<void, const All<COTCFundPlanInfo>&>(&I::initOtcInstruments));
    add(Operation<void, const All<COTCSecuritiesIssuanceInfo>&>(&I::initIssuanceInfos));
    add(Operation<void, const ByKey<COTCStockEnquiryPriceSetting>&>(&I::initIssuancePriceInfos));
    add(Operation<void, const ByKey<CTenderBondInfoDetail>&>(&I::initTenderBondInfos));
    add(Operation<void, const All<COTCFundPlanInfo>&>(&I::updateOtcInstruments));
    add(Operation<void, int, const All<COTCSecuritiesIssuanceInfo>&>(&I::updateIssuanceInfos));
    add(Operation<void, int, const boost::shared_ptr<COTCStockEnquiryPriceSetting>&>(&I::updateIssuancePriceInfo));
    add(Operation<void, const All<CTenderBondInfoDetail>&>(&I::updateTenderBondInfos));
    add(Operation<void, const boost::shared_ptr<CCounterpartyDetail>&>(&I::updateCounterpartyInfo));
    for (const auto predicate :
         {&I::hasCode, &I::hasStock, &I::hasFuture, &I::hasHkstock, &I::hasSkstock, &I::hasOption, &I::hasFutureOption,
          &I::hasNeeq, &I::hasGold, &I::hasEtf, &I::hasBond, &I::hasOtc, &I::hasIssuance, &I::hasTenderBond,
          &I::hasOuterFuture, &I::hasOuterStock}) {
        add(predicate);
    }
}

template <class Add>
void addInstrumentQuestions(const Add& add) {
    add(Operation<boost::shared_ptr<CInstrumentDetail>, std::uint64_t>(&I::getInstrument));
    add(Operation<boost::shared_ptr<CInstrumentDetail>, Text>(&I::getInstrument));
    add(Operation<boost::shared_ptr<CInstrumentDetail>, Text, Text>(&I::getInstrument));
    add(Operation<void, Text, std::list<boost::shared_ptr<CInstrumentDetail>>&>(&I::getInstruments));
    add(Operation<void, const std::list<std::string>&, Records&>(&I::getInstruments));
    add(Operation<void, EOvTraderType, Records&>(&I::getInstruments));
    add(Operation<void, Records&>(&I::getInstruments));
    add(Operation<Records, const std::list<std::string>&>(&I::getInstruments));
    add(Operation<Records, Text>(&I::getInstruments));
    add(Operation<Records, EOvTraderType>(&I::getInstruments));
    add(Operation<Records>(&I::getInstruments));
    add(Operation<Records, Text>(&I::getFutureMainInstruments));
    add(Operation<std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>>>(
        &I::getProductMainInstruments));
    add(Operation<std::list<boost::shared_ptr<CInstrumentDetail>>, Text>(&I::getProductInstruments));
    add(Operation<std::string, Text, Text>(&I::getProductId));
    add(Operation<std::string, Text>(&I::getProductName));
    add(&I::getDceCrossProduct);
    add(&I::getDceCrossPeriod);
}

template <class Add>
void addOtherQuestions(const Add& add) {
    add(Operation<boost::shared_ptr<CETFDetail>, Text>(&I::getEtf));
    add(Operation<boost::shared_ptr<CETFDetail>, Text, Text>(&I::getEtf));
    add(Operation<ByKey<CETFDetail>>(&I::getEtfs));
    add(Operation<boost::shared_ptr<CBondInfoDetail>, std::uint64_t>(&I::getBond));
    add(Operation<boost::shared_ptr<CBondInfoDetail>, Text>(&I::getBond));
    add(Operation<ByKey<CBondInfoDetail>>(&I::getBonds));
    add(Operation<boost::shared_ptr<CCounterpartyDetail>, Text>(&I::getCounterparty));
    add(Operation<ByKey<CCounterpartyDetail>>(&I::getCounterpartys));
    add(Operation<std::string, Text>(&I::getInterbankCode));
    add(Operation<void, int, All<COTCFundPlanInfo>&>(&I::getOtcInstruments));
    add(Operation<Records>(&I::getOtcInstruments));
    add(Operation<boost::shared_ptr<COTCFundPlanInfo>, Text>(&I::getOtcInstrument));
    add(Operation<ByKey<COTCSecuritiesIssuanceInfo>>(&I::getIssuanceInfos));
    add(Operation<boost::shared_ptr<COTCSecuritiesIssuanceInfo>, Text>(&I::getIssuanceInfo));
    add(Operation<ByKey<COTCStockEnquiryPriceSetting>>(&I::getIssuancePriceInfos));
    add(Operation<boost::shared_ptr<COTCStockEnquiryPriceSetting>, Text>(&I::getIssuancePriceInfo));
    add(Operation<ByKey<CTenderBondInfoDetail>>(&I::getTrenderBondInfos));
    add(Operation<boost::shared_ptr<CTenderBondInfoDetail>, Text>(&I::getTenderBondInfo));
    add(&I::getOutterProductName);
    add(&I::getOutterProduct);
    add(&I::getOutterMarketName);
    add(&I::getOutterMarket);
    add(&I::getMarketProductList);
    add(&I::isCommodityProduct);
    add(&I::isInterestProduct);
    add(&I::clearPersist);
}

TEST(InterfaceSlots, StandInTheFixedOrder) {
    std::vector<std::size_t> slots;
    const auto add = [&](auto operation) { slots.push_back(slotOf(operation)); };
    addLoadsAndPredicates(add);
    addInstrumentQuestions(add);
    addOtherQuestions(add);
    ASSERT_EQ(slots.size(), 73U);
    for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(slots[i], i);
    }
    EXPECT_EQ(slotOf(&CServerInstrumentCenter::hasNyseStock), 73U);
    EXPECT_EQ(slotOf(&CServerInstrumentCenter::hasNasdaqStock), 74U);
    EXPECT_EQ(slotOf(&CClientInstrumentCenter::hasNyseStock), 73U);
    EXPECT_EQ(slotOf(&CClientInstrumentCenter::hasNasdaqStock), 74U);
}

#endif

}  // namespace
}  // namespace mxservice
