#pragma once

// Every record class of the catalogue. A member that is added here is added to the class's table in RecordTables.cpp,
// and has then its document form, equality, JSON, CSV and printing. Document keys are the member names except in
// CETFDetail; they are stored, never change one.
//
// Dates are texts of the form YYYYMMDD; an empty date is unknown. Prices, ratios and amounts are doubles in the
// record's currency; 0 is unknown. Flags are 1 for yes, 0 for no, unless said otherwise.

#include <cstdint>
#include <string>

#include "platform/Export.h"
#include "platform/record/IData.h"
#include "platform/record/RecordHelpers.h"
#include "platform/record/RecordType.h"

namespace mxservice {

/// A tradable instrument of any market. Key: market directly followed by code.
class PM_PLATFORM_API CInstrumentDetail : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override;
    boost::shared_ptr<IData> copy() const override;

    // Identity
    std::string market;            ///< market name: "SH", "HK", "CFFEX", ...
    std::string code;              ///< code within the market
    std::string name;              ///< display name, UTF-8
    std::string platformCode;      ///< a second code; continuous-contract aliases and foreign codes differ from `code`
    std::string productId;         ///< futures product id; of a stock option "NAME(UNDERLYING)"
    std::string productName;       ///< display name of the futures product
    std::string englishName;       ///< display name in English
    std::string spellName;         ///< initials for typing ahead
    std::string isin;              ///< ISO 6166
    std::string currency;          ///< ISO 4217
    std::string industry;          ///< industry class as delivered
    std::string outerMarketName;   ///< display name of an outer futures market
    std::string statusString;      ///< one status character a position, as the exchange sends it
    std::string underlyingMarket;  ///< market of the underlying of an option or future
    std::string underlyingCode;    ///< code of the underlying

    // Dates
    std::string listingDate;    ///< first trading day; of outer futures records the outer market key
    std::string delistingDate;  ///< last day of the listing
    std::string expireDate;     ///< expiry of an option, last trading day of a future, maturity of a bond
    std::string startDeliveryDate;
    std::string endDeliveryDate;
    std::string exerciseDate;
    std::string tradingDay;  ///< the day that this record describes

    // Classification
    std::int32_t mainContractFlag = 0;       ///< 1: main contract of its product
    std::int32_t issueState = 0;             ///< as delivered; -1 belongs to a Shenzhen issue of today
    std::int32_t securityClass = 0;          ///< as delivered; 5: NEEQ inquiry, Beijing issue
    std::int32_t connectFlagValue = 0;       ///< eligibility bits of an "HGT" or "SGT" listing
    std::uint32_t combinedConnectFlags = 0;  ///< connect eligibility kept on the Hong Kong record
    std::int32_t optionType = 0;             ///< 0 none, 1 call, 2 put
    std::int32_t productGroup = 0;           ///< 0 none, 1 commodity, 2 interest rate, 3 index, 4 currency
    std::int32_t additionalIssueFlag = 0;    ///< 1: additional issue of a listed stock
    std::int32_t tradingStatus = 0;          ///< phase code as delivered
    std::int32_t suspendedFlag = 0;
    std::int32_t marginTradingFlag = 0;  ///< may be bought on margin
    std::int32_t shortSellingFlag = 0;   ///< may be sold short
    std::int32_t exerciseStyle = 0;      ///< 0 none, 1 European, 2 American
    std::int32_t deliveryYear = 0;       ///< four digits
    std::int32_t deliveryMonth = 0;      ///< 1 to 12

    // Trading units and order sizes, in the instrument's own units (shares, lots, contracts)
    std::int32_t volumeMultiple = 0;  ///< underlying units a contract
    std::int32_t lotSize = 0;         ///< units a board lot
    std::int32_t minLimitOrderVolume = 0;
    std::int32_t maxLimitOrderVolume = 0;
    std::int32_t minMarketOrderVolume = 0;
    std::int32_t maxMarketOrderVolume = 0;
    std::int32_t orderVolumeStep = 0;
    std::int32_t pricePrecision = 0;  ///< decimals of a price
    double priceTick = 0;             ///< smallest price step

    // Prices of the day
    double preClosePrice = 0;
    double preSettlementPrice = 0;
    double upperLimitPrice = 0;
    double lowerLimitPrice = 0;
    double issuePrice = 0;
    double strikePrice = 0;

    // Margin and interest
    double longMarginRatio = 0;
    double shortMarginRatio = 0;
    double marginUnit = 0;
    double faceValue = 0;        ///< of one bond
    double accruedInterest = 0;  ///< per face value
    double couponRate = 0;       ///< per year, 0.03 is three per cent

    // Quantities
    std::int64_t totalShares = 0;
    std::int64_t floatShares = 0;
    std::int64_t preOpenInterest = 0;  ///< contracts
    std::int64_t preVolume = 0;        ///< units traded on the previous day
};

/// One component of an ETF's basket. Key: code.
class PM_PLATFORM_API CETFComponentStockInfo : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string market;
    std::string name;
    std::string code;
    std::int64_t quantity = 0;            ///< shares a creation unit
    std::int32_t substituteFlag = 0;      ///< cash substitution: 0 forbidden, 1 allowed, 2 required
    double premiumRatio = 0;              ///< premium on cash substitution at creation
    double discountRatio = 0;             ///< discount on cash substitution at redemption
    double creationSubstituteAmount = 0;  ///< fixed amount at creation
    double redemptionSubstituteAmount = 0;
};

/// An exchange-traded fund with its creation and redemption parameters. Key: market directly followed by etfCode.
/// Document keys are given word for word in the table.
class PM_PLATFORM_API CETFDetail : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override;
    boost::shared_ptr<IData> copy() const override;

    std::int32_t type = 0;  ///< record type tag as delivered
    std::string market;
    std::string etfCode;  ///< trading code of the fund
    std::string prCode;   ///< code for creation and redemption
    std::string name;
    double cashBalance = 0;
    double maxCashRatio = 0;
    std::int32_t reportUnit = 0;  ///< fund units a creation unit
    double navPerCu = 0;          ///< net asset value a creation unit
    double nav = 0;               ///< net asset value a fund unit
    double ecc = 0;               ///< estimated cash component
    std::int32_t needPublish = 0;
    std::int32_t enableCreation = 0;
    std::int32_t enableRedemption = 0;
    std::int64_t creationLimit = 0;
    std::int64_t redemptionLimit = 0;
    std::string tradingDay;
    std::string preTradingDay;
    ComponentMap components;
};

/// An interbank bond. Key: bondCode.
class PM_PLATFORM_API CBondInfoDetail : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return bondCode; }
    boost::shared_ptr<IData> copy() const override;

    std::string bondCode;  ///< interbank code
    std::string bondName;
    std::string shanghaiCode;  ///< code of the same bond's listing on "SH"; empty when not listed
    std::string shenzhenCode;  ///< code of the same bond's listing on "SZ"; empty when not listed
    std::string bondType;
    std::string issuer;
    std::string currency;
    std::string issueDate;
    std::string valueDate;  ///< interest begins
    std::string maturityDate;
    std::string creditRating;
    std::string issuerRating;
    std::string couponType;
    std::int32_t paymentFrequency = 0;  ///< coupons a year
    double couponRate = 0;              ///< per year, 0.03 is three per cent
    double faceValue = 0;
    double issuePrice = 0;
    double accruedInterest = 0;
    double issueAmount = 0;  ///< hundred million
    double remainingYears = 0;
};

/// A bond on tender. Key: code.
class PM_PLATFORM_API CTenderBondInfoDetail : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;
    std::string name;
    std::string tenderDate;
    std::string paymentDate;
    std::string bondType;
    std::string issuer;
    std::string tenderMethod;
    std::int32_t termDays = 0;
    double plannedAmount = 0;  ///< hundred million
    double lowerLimit = 0;     ///< price or rate, as the method says
    double upperLimit = 0;
    double couponRate = 0;  ///< per year
};

/// A counterparty of the interbank market. Key: id.
class PM_PLATFORM_API CCounterpartyDetail : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return id; }
    boost::shared_ptr<IData> copy() const override;

    std::string id;
    std::string name;
    std::int8_t removed = 0;  ///< not 0: the counterparty is to be withdrawn
    std::string shortName;
    std::string counterpartyType;
    std::string contact;
    std::string phone;
    std::string custodyAccount;
    double creditLimit = 0;
};

/// An OTC fund plan: an instrument with the terms of the plan. Key: as of an instrument.
class PM_PLATFORM_API COTCFundPlanInfo : public CInstrumentDetail {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    boost::shared_ptr<IData> copy() const override;

    std::int32_t planType = 0;   ///< the group that getOtcInstruments(group, ...) selects by
    std::int32_t riskLevel = 0;  ///< 1 lowest to 5 highest
    std::string manager;
    std::string openDate;
    std::string closeDate;
    double minSubscribeAmount = 0;
    double subscribeStep = 0;
    double expectedYield = 0;  ///< per year
    double managementFee = 0;  ///< per year
};

/// An OTC securities issuance. Key: code.
class PM_PLATFORM_API COTCSecuritiesIssuanceInfo : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;
    std::string name;
    std::int32_t issuanceState = 0;
    std::string issuer;
    std::string startDate;
    std::string endDate;
    std::string valueDate;
    std::string maturityDate;
    double issueAmount = 0;
    double issuePrice = 0;
    double couponRate = 0;  ///< per year
    double minSubscribeAmount = 0;
};

/// The price setting of an OTC stock enquiry. Key: code.
class PM_PLATFORM_API COTCStockEnquiryPriceSetting : public IData {
public:
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;
    std::int32_t enquiryState = 0;
    double enquiryPrice = 0;
    double lowestPrice = 0;
    double highestPrice = 0;
    double priceStep = 0;
    std::string tradingDay;
};

}  // namespace mxservice
