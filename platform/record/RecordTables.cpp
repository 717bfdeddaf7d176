// The field tables: one line a field, in the order of the documents; dates are said to be such. Keys and order are
// stored; never change a line, add new ones at the end of a table.

#include <boost/make_shared.hpp>

#include <type_traits>
#include <utility>

#include "platform/record/Records.h"

namespace mxservice {
namespace {

template <class Member>
constexpr FieldKind kindOf() {
    if constexpr (std::is_same_v<Member, std::string>) {
        return FieldKind::Text;
    } else if constexpr (std::is_same_v<Member, std::int8_t>) {
        return FieldKind::Int8;
    } else if constexpr (std::is_same_v<Member, std::int32_t>) {
        return FieldKind::Int32;
    } else if constexpr (std::is_same_v<Member, std::uint32_t>) {
        return FieldKind::UInt32;
    } else if constexpr (std::is_same_v<Member, std::int64_t>) {
        return FieldKind::Int64;
    } else if constexpr (std::is_same_v<Member, double>) {
        return FieldKind::Double;
    } else {
        static_assert(std::is_same_v<Member, ComponentMap>, "a member type that no field kind stands for");
        return FieldKind::Components;
    }
}

/// Collects the lines of one class's table.
template <class Record>
class Table {
public:
    template <class Member>
    Table& field(const char* key, Member Record::*member) {
        fields_.emplace_back(key, kindOf<Member>(), offsetOf(member));
        return *this;
    }
    /// A text that is a date.
    Table& date(const char* key, std::string Record::*member) {
        fields_.emplace_back(key, FieldKind::Text, offsetOf(member), true);
        return *this;
    }
    /// A base's fields lie where they lie in the base: a record begins with it.
    Table& fieldsOf(const RecordType& base) {
        fields_.insert(fields_.end(), base.fields().begin(), base.fields().end());
        return *this;
    }
    const RecordType& named(const char* name, const char* telltale) {
        const RecordType::Maker maker = [] { return boost::shared_ptr<IData>(boost::make_shared<Record>()); };
        // Never destroyed: threads that outlive main() may still print or compare a record.
        return *new RecordType(name, telltale, sizeof(Record), maker, std::move(fields_));
    }

private:
    template <class Member>
    std::size_t offsetOf(Member Record::*member) const {
        // From the base, which is what a field is applied to, and measured on an object: offsetof need not take a class
        // that has one.
        const auto* const start = reinterpret_cast<const char*>(static_cast<const IData*>(&sample_));
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&(sample_.*member)) - start);
    }

    Record sample_;
    std::vector<Field> fields_;
};

template <class Record>
boost::shared_ptr<IData> copyOf(const Record& record) {
    return boost::make_shared<Record>(record);
}

void addInstrumentTexts(Table<CInstrumentDetail>& table) {
    using R = CInstrumentDetail;
    table.field("market", &R::market)
        .field("code", &R::code)
        .field("name", &R::name)
        .field("platformCode", &R::platformCode)
        .field("productId", &R::productId)
        .field("productName", &R::productName)
        .field("englishName", &R::englishName)
        .field("spellName", &R::spellName)
        .field("isin", &R::isin)
        .field("currency", &R::currency)
        .field("industry", &R::industry)
        .field("outerMarketName", &R::outerMarketName)
        .field("statusString", &R::statusString)
        .field("underlyingMarket", &R::underlyingMarket)
        .field("underlyingCode", &R::underlyingCode)
        .date("listingDate", &R::listingDate)
        .date("delistingDate", &R::delistingDate)
        .date("expireDate", &R::expireDate)
        .date("startDeliveryDate", &R::startDeliveryDate)
        .date("endDeliveryDate", &R::endDeliveryDate)
        .date("exerciseDate", &R::exerciseDate)
        .date("tradingDay", &R::tradingDay);
}

void addInstrumentNumbers(Table<CInstrumentDetail>& table) {
    using R = CInstrumentDetail;
    table.field("mainContractFlag", &R::mainContractFlag)
        .field("issueState", &R::issueState)
        .field("securityClass", &R::securityClass)
        .field("connectFlagValue", &R::connectFlagValue)
        .field("combinedConnectFlags", &R::combinedConnectFlags)
        .field("optionType", &R::optionType)
        .field("productGroup", &R::productGroup)
        .field("additionalIssueFlag", &R::additionalIssueFlag)
        .field("tradingStatus", &R::tradingStatus)
        .field("suspendedFlag", &R::suspendedFlag)
        .field("marginTradingFlag", &R::marginTradingFlag)
        .field("shortSellingFlag", &R::shortSellingFlag)
        .field("exerciseStyle", &R::exerciseStyle)
        .field("deliveryYear", &R::deliveryYear)
        .field("deliveryMonth", &R::deliveryMonth)
        .field("volumeMultiple", &R::volumeMultiple)
        .field("lotSize", &R::lotSize)
        .field("minLimitOrderVolume", &R::minLimitOrderVolume)
        .field("maxLimitOrderVolume", &R::maxLimitOrderVolume)
        .field("minMarketOrderVolume", &R::minMarketOrderVolume)
        .field("maxMarketOrderVolume", &R::maxMarketOrderVolume)
        .field("orderVolumeStep", &R::orderVolumeStep)
        .field("pricePrecision", &R::pricePrecision);
}

void addInstrumentAmounts(Table<CInstrumentDetail>& table) {
    using R = CInstrumentDetail;
    table.field("priceTick", &R::priceTick)
        .field("preClosePrice", &R::preClosePrice)
        .field("preSettlementPrice", &R::preSettlementPrice)
        .field("upperLimitPrice", &R::upperLimitPrice)
        .field("lowerLimitPrice", &R::lowerLimitPrice)
        .field("issuePrice", &R::issuePrice)
        .field("strikePrice", &R::strikePrice)
        .field("longMarginRatio", &R::longMarginRatio)
        .field("shortMarginRatio", &R::shortMarginRatio)
        .field("marginUnit", &R::marginUnit)
        .field("faceValue", &R::faceValue)
        .field("accruedInterest", &R::accruedInterest)
        .field("couponRate", &R::couponRate)
        .field("totalShares", &R::totalShares)
        .field("floatShares", &R::floatShares)
        .field("preOpenInterest", &R::preOpenInterest)
        .field("preVolume", &R::preVolume);
}

const RecordType& instrumentTable() {
    Table<CInstrumentDetail> table;
    addInstrumentTexts(table);
    addInstrumentNumbers(table);
    addInstrumentAmounts(table);
    return table.named("CInstrumentDetail", "platformCode");
}

const RecordType& componentTable() {
    using R = CETFComponentStockInfo;
    return Table<R>()
        .field("market", &R::market)
        .field("name", &R::name)
        .field("code", &R::code)
        .field("quantity", &R::quantity)
        .field("substituteFlag", &R::substituteFlag)
        .field("premiumRatio", &R::premiumRatio)
        .field("discountRatio", &R::discountRatio)
        .field("creationSubstituteAmount", &R::creationSubstituteAmount)
        .field("redemptionSubstituteAmount", &R::redemptionSubstituteAmount)
        .named("CETFComponentStockInfo", "substituteFlag");
}

const RecordType& etfTable() {
    using R = CETFDetail;
    return Table<R>()
        .field("type", &R::type)
        .field("exchid", &R::market)
        .field("etfcode", &R::etfCode)
        .field("prcode", &R::prCode)
        .field("name", &R::name)
        .field("cashbalance", &R::cashBalance)
        .field("maxcashratio", &R::maxCashRatio)
        .field("reportunit", &R::reportUnit)
        .field("navpercu", &R::navPerCu)
        .field("nav", &R::nav)
        .field("ecc", &R::ecc)
        .field("needpublish", &R::needPublish)
        .field("enablecreation", &R::enableCreation)
        .field("enableredemption", &R::enableRedemption)
        .field("creationlimit", &R::creationLimit)
        .field("redemptionlimit", &R::redemptionLimit)
        .date("tradingday", &R::tradingDay)
        .date("pretradingday", &R::preTradingDay)
        .field("stocks", &R::components)
        .named("CETFDetail", "etfcode");
}

const RecordType& bondTable() {
    using R = CBondInfoDetail;
    return Table<R>()
        .field("bondCode", &R::bondCode)
        .field("bondName", &R::bondName)
        .field("shanghaiCode", &R::shanghaiCode)
        .field("shenzhenCode", &R::shenzhenCode)
        .field("bondType", &R::bondType)
        .field("issuer", &R::issuer)
        .field("currency", &R::currency)
        .date("issueDate", &R::issueDate)
        .date("valueDate", &R::valueDate)
        .date("maturityDate", &R::maturityDate)
        .field("creditRating", &R::creditRating)
        .field("issuerRating", &R::issuerRating)
        .field("couponType", &R::couponType)
        .field("paymentFrequency", &R::paymentFrequency)
        .field("couponRate", &R::couponRate)
        .field("faceValue", &R::faceValue)
        .field("issuePrice", &R::issuePrice)
        .field("accruedInterest", &R::accruedInterest)
        .field("issueAmount", &R::issueAmount)
        .field("remainingYears", &R::remainingYears)
        .named("CBondInfoDetail", "bondCode");
}

const RecordType& tenderBondTable() {
    using R = CTenderBondInfoDetail;
    return Table<R>()
        .field("code", &R::code)
        .field("name", &R::name)
        .date("tenderDate", &R::tenderDate)
        .date("paymentDate", &R::paymentDate)
        .field("bondType", &R::bondType)
        .field("issuer", &R::issuer)
        .field("tenderMethod", &R::tenderMethod)
        .field("termDays", &R::termDays)
        .field("plannedAmount", &R::plannedAmount)
        .field("lowerLimit", &R::lowerLimit)
        .field("upperLimit", &R::upperLimit)
        .field("couponRate", &R::couponRate)
        .named("CTenderBondInfoDetail", "tenderDate");
}

const RecordType& counterpartyTable() {
    using R = CCounterpartyDetail;
    return Table<R>()
        .field("id", &R::id)
        .field("name", &R::name)
        .field("removed", &R::removed)
        .field("shortName", &R::shortName)
        .field("counterpartyType", &R::counterpartyType)
        .field("contact", &R::contact)
        .field("phone", &R::phone)
        .field("custodyAccount", &R::custodyAccount)
        .field("creditLimit", &R::creditLimit)
        .named("CCounterpartyDetail", "counterpartyType");
}

const RecordType& fundPlanTable() {
    // The plan's own fields stand first: its telltale must come before the instrument's.
    using R = COTCFundPlanInfo;
    return Table<R>()
        .field("planType", &R::planType)
        .field("riskLevel", &R::riskLevel)
        .field("manager", &R::manager)
        .date("openDate", &R::openDate)
        .date("closeDate", &R::closeDate)
        .field("minSubscribeAmount", &R::minSubscribeAmount)
        .field("subscribeStep", &R::subscribeStep)
        .field("expectedYield", &R::expectedYield)
        .field("managementFee", &R::managementFee)
        .fieldsOf(CInstrumentDetail::table())
        .named("COTCFundPlanInfo", "planType");
}

const RecordType& issuanceTable() {
    using R = COTCSecuritiesIssuanceInfo;
    return Table<R>()
        .field("code", &R::code)
        .field("name", &R::name)
        .field("issuanceState", &R::issuanceState)
        .field("issuer", &R::issuer)
        .date("startDate", &R::startDate)
        .date("endDate", &R::endDate)
        .date("valueDate", &R::valueDate)
        .date("maturityDate", &R::maturityDate)
        .field("issueAmount", &R::issueAmount)
        .field("issuePrice", &R::issuePrice)
        .field("couponRate", &R::couponRate)
        .field("minSubscribeAmount", &R::minSubscribeAmount)
        .named("COTCSecuritiesIssuanceInfo", "issuanceState");
}

const RecordType& priceSettingTable() {
    using R = COTCStockEnquiryPriceSetting;
    return Table<R>()
        .field("code", &R::code)
        .field("enquiryState", &R::enquiryState)
        .field("enquiryPrice", &R::enquiryPrice)
        .field("lowestPrice", &R::lowestPrice)
        .field("highestPrice", &R::highestPrice)
        .field("priceStep", &R::priceStep)
        .date("tradingDay", &R::tradingDay)
        .named("COTCStockEnquiryPriceSetting", "enquiryState");
}

}  // namespace

// Made by whoever asks first: what other units make before main() may ask already.
#define PM_RECORD_CLASS(Class, makeTable)             \
    const RecordType& Class::table() {                \
        static const RecordType& table = makeTable(); \
        return table;                                 \
    }                                                 \
    boost::shared_ptr<IData> Class::copy() const {    \
        return copyOf(*this);                         \
    }

PM_RECORD_CLASS(CInstrumentDetail, instrumentTable)
PM_RECORD_CLASS(CETFComponentStockInfo, componentTable)
PM_RECORD_CLASS(CETFDetail, etfTable)
PM_RECORD_CLASS(CBondInfoDetail, bondTable)
PM_RECORD_CLASS(CTenderBondInfoDetail, tenderBondTable)
PM_RECORD_CLASS(CCounterpartyDetail, counterpartyTable)
PM_RECORD_CLASS(COTCFundPlanInfo, fundPlanTable)
PM_RECORD_CLASS(COTCSecuritiesIssuanceInfo, issuanceTable)
PM_RECORD_CLASS(COTCStockEnquiryPriceSetting, priceSettingTable)

#undef PM_RECORD_CLASS

// Instruments first, for classes are looked for in this order, and nearly every document is one.
TypeManager::TypeManager()
    : types_{&CInstrumentDetail::table(),
             &CETFDetail::table(),
             &CETFComponentStockInfo::table(),
             &CBondInfoDetail::table(),
             &CTenderBondInfoDetail::table(),
             &CCounterpartyDetail::table(),
             &COTCFundPlanInfo::table(),
             &COTCSecuritiesIssuanceInfo::table(),
             &COTCStockEnquiryPriceSetting::table()} {}

}  // namespace mxservice
