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
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override;
    boost::shared_ptr<IData> copy() const override;

    // What loads and derived catalogues look at, side by side: a load then waits for memory once a record. The order of
    // the documents is the field table's own.
    std::string market;                      ///< market name: "SH", "HK", "CFFEX", ...
    std::string code;                        ///< code within the market
    std::int32_t mainContractFlag = 0;       ///< 1: main contract of its product
    std::int32_t issueState = 0;             ///< as delivered; -1 belongs to a Shenzhen issue of today
    std::int32_t securityClass = 0;          ///< as delivered; 5: NEEQ inquiry, Beijing issue
    std::int32_t connectFlagValue = 0;       ///< eligibility bits of an "HGT" or "SGT" listing
    std::uint32_t combinedConnectFlags = 0;  ///< connect eligibility kept on the Hong Kong record
    std::int32_t optionType = 0;             ///< 0 none, 1 call, 2 put
    std::int32_t productGroup = 0;           ///< 0 none, 1 commodity, 2 interest rate, 3 index, 4 currency
    std::int32_t additionalIssueFlag = 0;    ///< 1: additional issue of a listed stock
    std::string productId;                   ///< futures product id; of a stock option "NAME(UNDERLYING)"
    std::string listingDate;                 ///< first trading day; of outer futures records the outer market key
    std::string statusString;                ///< one status character a position, as the exchange sends it

    // Names and other codes
    std::string name;              ///< display name, UTF-8
    std::string platformCode;      ///< a second code; continuous-contract aliases and foreign codes differ from `code`
    std::string productName;       ///< display name of the futures product
    std::string englishName;       ///< display name in English
    std::string spellName;         ///< initials for typing ahead
    std::string isin;              ///< ISO 6166
    std::string currency;          ///< ISO 4217
    std::string industry;          ///< industry class as delivered
    std::string outerMarketName;   ///< display name of an outer futures market
    std::string underlyingMarket;  ///< market of the underlying of an option or future
    std::string underlyingCode;    ///< code of the underlying

    // Dates
    std::string delistingDate;      ///< last day of the listing
    std::string expireDate;         ///< expiry of an option, last trading day of a future, maturity of a bond
    std::string startDeliveryDate;  ///< first day of delivery
    std::string endDeliveryDate;    ///< last day of delivery
    std::string exerciseDate;       ///< day on which an option is exercised
    std::string tradingDay;         ///< the day that this record describes

    // Status and delivery
    std::int32_t tradingStatus = 0;      ///< phase code as delivered
    std::int32_t suspendedFlag = 0;      ///< 1: suspended from trading
    std::int32_t marginTradingFlag = 0;  ///< may be bought on margin
    std::int32_t shortSellingFlag = 0;   ///< may be sold short
    std::int32_t exerciseStyle = 0;      ///< 0 none, 1 European, 2 American
    std::int32_t deliveryYear = 0;       ///< four digits
    std::int32_t deliveryMonth = 0;      ///< 1 to 12

    // Trading units and order sizes, in the instrument's own units (shares, lots, contracts)
    std::int32_t volumeMultiple = 0;        ///< underlying units a contract
    std::int32_t lotSize = 0;               ///< units a board lot
    std::int32_t minLimitOrderVolume = 0;   ///< of a limit order
    std::int32_t maxLimitOrderVolume = 0;   ///< of a limit order; 0: no limit known
    std::int32_t minMarketOrderVolume = 0;  ///< of a market order
    std::int32_t maxMarketOrderVolume = 0;  ///< of a market order; 0: no limit known
    std::int32_t orderVolumeStep = 0;       ///< order sizes are multiples of it
    std::int32_t pricePrecision = 0;        ///< decimals of a price
    double priceTick = 0;                   ///< smallest price step

    // Prices of the day
    double preClosePrice = 0;       ///< close of the previous day
    double preSettlementPrice = 0;  ///< settlement price of the previous day
    double upperLimitPrice = 0;     ///< highest price accepted today
    double lowerLimitPrice = 0;     ///< lowest price accepted today
    double issuePrice = 0;          ///< price of the issue
    double strikePrice = 0;         ///< of an option

    // Margin and interest
    double longMarginRatio = 0;   ///< of a bought contract's value; 0.1 is ten per cent
    double shortMarginRatio = 0;  ///< of a sold contract's value
    double marginUnit = 0;        ///< amount a contract, where the exchange gives it
    double faceValue = 0;         ///< of one bond
    double accruedInterest = 0;   ///< per face value
    double couponRate = 0;        ///< per year, 0.03 is three per cent

    // Quantities
    std::int64_t totalShares = 0;      ///< shares issued
    std::int64_t floatShares = 0;      ///< shares that can be traded
    std::int64_t preOpenInterest = 0;  ///< contracts
    std::int64_t preVolume = 0;        ///< units traded on the previous day
};

/// One component of an ETF's basket. Key: code.
class PM_PLATFORM_API CETFComponentStockInfo : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string market;                     ///< market of the component
    std::string name;                       ///< display name; the persisted center fills an empty one in
    std::string code;                       ///< code within the market
    std::int64_t quantity = 0;              ///< shares a creation unit
    std::int32_t substituteFlag = 0;        ///< cash substitution: 0 forbidden, 1 allowed, 2 required
    double premiumRatio = 0;                ///< premium on cash substitution at creation
    double discountRatio = 0;               ///< discount on cash substitution at redemption
    double creationSubstituteAmount = 0;    ///< fixed amount at creation
    double redemptionSubstituteAmount = 0;  ///< fixed amount at redemption
};

/// An exchange-traded fund with its creation and redemption parameters. Key: market directly followed by etfCode.
/// Document keys are given word for word in the table.
class PM_PLATFORM_API CETFDetail : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override;
    boost::shared_ptr<IData> copy() const override;

    std::int32_t type = 0;              ///< record type tag as delivered
    std::string market;                 ///< market of the fund
    std::string etfCode;                ///< trading code of the fund
    std::string prCode;                 ///< code for creation and redemption
    std::string name;                   ///< display name
    double cashBalance = 0;             ///< cash difference a creation unit of the previous day
    double maxCashRatio = 0;            ///< most of a basket that may be cash
    std::int32_t reportUnit = 0;        ///< fund units a creation unit
    double navPerCu = 0;                ///< net asset value a creation unit
    double nav = 0;                     ///< net asset value a fund unit
    double ecc = 0;                     ///< estimated cash component
    std::int32_t needPublish = 0;       ///< 1: the exchange publishes its estimated value
    std::int32_t enableCreation = 0;    ///< 1: open for creation
    std::int32_t enableRedemption = 0;  ///< 1: open for redemption
    std::int64_t creationLimit = 0;     ///< fund units a day; 0: no limit
    std::int64_t redemptionLimit = 0;   ///< fund units a day; 0: no limit
    std::string tradingDay;             ///< the day that this basket is for
    std::string preTradingDay;          ///< the trading day before
    ComponentMap components;            ///< the basket, by component code
};

/// An interbank bond. Key: bondCode.
class PM_PLATFORM_API CBondInfoDetail : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return bondCode; }
    boost::shared_ptr<IData> copy() const override;

    std::string bondCode;               ///< interbank code
    std::string bondName;               ///< display name
    std::string shanghaiCode;           ///< code of the same bond's listing on "SH"; empty when not listed
    std::string shenzhenCode;           ///< code of the same bond's listing on "SZ"; empty when not listed
    std::string bondType;               ///< as delivered
    std::string issuer;                 ///< name of the issuer
    std::string currency;               ///< ISO 4217
    std::string issueDate;              ///< day of the issue
    std::string valueDate;              ///< interest begins
    std::string maturityDate;           ///< day of repayment
    std::string creditRating;           ///< of the bond
    std::string issuerRating;           ///< of the issuer
    std::string couponType;             ///< as delivered
    std::int32_t paymentFrequency = 0;  ///< coupons a year
    double couponRate = 0;              ///< per year, 0.03 is three per cent
    double faceValue = 0;               ///< of one bond
    double issuePrice = 0;              ///< per face value of 100
    double accruedInterest = 0;         ///< per face value of 100
    double issueAmount = 0;             ///< hundred million
    double remainingYears = 0;          ///< to maturity
};

/// A bond on tender. Key: code.
class PM_PLATFORM_API CTenderBondInfoDetail : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;           ///< code of the tender
    std::string name;           ///< display name
    std::string tenderDate;     ///< day of the tender
    std::string paymentDate;    ///< day of payment
    std::string bondType;       ///< as delivered
    std::string issuer;         ///< name of the issuer
    std::string tenderMethod;   ///< as delivered
    std::int32_t termDays = 0;  ///< days to maturity
    double plannedAmount = 0;   ///< hundred million
    double lowerLimit = 0;      ///< price or rate, as the method says
    double upperLimit = 0;      ///< price or rate, as the method says
    double couponRate = 0;      ///< per year
};

/// A counterparty of the interbank market. Key: id.
class PM_PLATFORM_API CCounterpartyDetail : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return id; }
    boost::shared_ptr<IData> copy() const override;

    std::string id;                ///< the key
    std::string name;              ///< full name
    std::int8_t removed = 0;       ///< not 0: the counterparty is to be withdrawn
    std::string shortName;         ///< name for lists
    std::string counterpartyType;  ///< as delivered
    std::string contact;           ///< person to ask
    std::string phone;             ///< of the contact
    std::string custodyAccount;    ///< account for settlement
    double creditLimit = 0;        ///< amount; 0: none known
};

/// An OTC fund plan: an instrument with the terms of the plan. Key: as of an instrument.
class PM_PLATFORM_API COTCFundPlanInfo : public CInstrumentDetail {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    boost::shared_ptr<IData> copy() const override;

    std::int32_t planType = 0;      ///< the group that getOtcInstruments(group, ...) selects by
    std::int32_t riskLevel = 0;     ///< 1 lowest to 5 highest
    std::string manager;            ///< name of the manager
    std::string openDate;           ///< subscription begins
    std::string closeDate;          ///< subscription ends
    double minSubscribeAmount = 0;  ///< smallest first subscription
    double subscribeStep = 0;       ///< subscriptions are multiples of it
    double expectedYield = 0;       ///< per year
    double managementFee = 0;       ///< per year
};

/// An OTC securities issuance. Key: code.
class PM_PLATFORM_API COTCSecuritiesIssuanceInfo : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;                ///< the key
    std::string name;                ///< display name
    std::int32_t issuanceState = 0;  ///< as delivered
    std::string issuer;              ///< name of the issuer
    std::string startDate;           ///< subscription begins
    std::string endDate;             ///< subscription ends
    std::string valueDate;           ///< interest begins
    std::string maturityDate;        ///< day of repayment
    double issueAmount = 0;          ///< amount offered
    double issuePrice = 0;           ///< price of a unit
    double couponRate = 0;           ///< per year
    double minSubscribeAmount = 0;   ///< smallest subscription
};

/// The price setting of an OTC stock enquiry. Key: code.
class PM_PLATFORM_API COTCStockEnquiryPriceSetting : public IData {
public:
    /// The class's field table.
    static const RecordType& table();
    const RecordType& recordType() const override { return table(); }
    std::string getKey() const override { return code; }
    boost::shared_ptr<IData> copy() const override;

    std::string code;               ///< code of the issuance
    std::int32_t enquiryState = 0;  ///< as delivered
    double enquiryPrice = 0;        ///< price that is asked about
    double lowestPrice = 0;         ///< lowest bid accepted
    double highestPrice = 0;        ///< highest bid accepted
    double priceStep = 0;           ///< bids are multiples of it
    std::string tradingDay;         ///< the day that the setting is for
};

}  // namespace mxservice
