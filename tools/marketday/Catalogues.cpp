// The catalogues beside the instruments: baskets of funds, the interbank market, over-the-counter plans and issues.

#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>

#include "tools/marketday/Day.h"
#include "tools/marketday/Names.h"

namespace marketday {
namespace {

constexpr const char* kRatings[] = {"AAA", "AAA", "AA+", "AA", "A-1"};  // twice what most have
constexpr const char* kBondTypes[] = {"国债", "地方政府债", "政策性金融债", "中期票据", "短期融资券", "同业存单"};

double amount(std::int64_t units) {
    return static_cast<double>(units);
}

/// Adds up to `size` different stocks of one market. Every tenth comes without a name, which the catalogue fills in
/// from the stock's own record.
void addComponents(const Day& day, const std::string& market, std::size_t size, mxservice::CETFDetail& etf,
                   Dice& dice) {
    const std::size_t stocks = day.count(market, Kind::Share);
    size = std::min(size, stocks);
    const auto start = dice.between<std::size_t>(0, 1'000'000);
    for (std::size_t i = 0; i < size; ++i) {
        // Steps of that width do not come round before all are taken, so no stock is there twice.
        const Record stock = listed(day, market, Kind::Share, (start + i * (stocks / size)) % stocks);
        const auto component = boost::make_shared<mxservice::CETFComponentStockInfo>();
        component->market = market;
        component->code = stock->code;
        component->name = dice.oneIn(10) ? std::string() : stock->name;
        component->quantity = dice.between(1, 90) * 100;
        component->substituteFlag = dice.oneIn(12) ? 2 : 1;
        if (component->substituteFlag == 2) {  // cash alone: an amount, where others have ratios
            component->creationSubstituteAmount = decimal(component->quantity * dice.between(300, 6'000), 2);
            component->redemptionSubstituteAmount = component->creationSubstituteAmount;
        } else {
            component->premiumRatio = decimal(dice.between(5, 15), 2);
            component->discountRatio = component->premiumRatio;
        }
        etf.components.emplace(stock->code, component);
    }
}

std::size_t basketSize(Dice& dice) {
    const std::int64_t kind = dice.between(1, 10);
    return dice.between<std::size_t>(kind <= 6 ? 10 : kind <= 9 ? 50 : 120, kind <= 6 ? 50 : kind <= 9 ? 120 : 300);
}

Data etf(const Day& day, std::size_t index) {
    // The funds of both markets in turn; those that come first are ETFs.
    const std::string market = index % 2 == 0 ? "SH" : "SZ";
    if (index / 2 >= day.count(market, Kind::Fund)) {
        return nullptr;
    }
    const Record fund = listed(day, market, Kind::Fund, index / 2);
    Dice dice = day.dice("ETF", index);
    const auto etf = boost::make_shared<mxservice::CETFDetail>();
    etf->type = 1;
    etf->market = market;
    etf->etfCode = fund->code;
    etf->prCode = fund->code;
    if (market == "SH") {
        etf->prCode.back() = '1';  // in Shenzhen creation goes under the fund's own code
    }
    etf->name = fund->name;
    etf->reportUnit = dice.between<std::int32_t>(1, 20) * 100'000;
    etf->nav = fund->preClosePrice;
    // In whole thousandths: a product of doubles would leave its last digit to the machine.
    etf->navPerCu = decimal(std::llround(etf->nav * 1'000) * etf->reportUnit, 3);
    etf->cashBalance = decimal(dice.between(-3'000'000, 9'000'000), 2);
    etf->ecc = decimal(dice.between(-3'000'000, 9'000'000), 2);
    etf->maxCashRatio = decimal(dice.between(1, 10) * 5, 2);
    etf->needPublish = 1;
    etf->enableCreation = dice.oneIn(25) ? 0 : 1;
    etf->enableRedemption = dice.oneIn(25) ? 0 : 1;
    etf->creationLimit = dice.oneIn(3) ? 0 : dice.between(1, 900) * etf->reportUnit;
    etf->redemptionLimit = etf->creationLimit;
    etf->tradingDay = day.today;
    // The trading day before, over a weekend.
    const bool isMonday = std::chrono::weekday(day.date) == std::chrono::Monday;
    etf->preTradingDay = dateText(day.date - std::chrono::days(isMonday ? 3 : 1));
    const std::size_t size = basketSize(dice);
    const std::size_t foreign = dice.oneIn(3) ? size * 2 / 5 : 0;  // from the other exchange
    addComponents(day, market, size - foreign, *etf, dice);
    addComponents(day, market == "SH" ? "SZ" : "SH", foreign, *etf, dice);
    return etf;
}

/// Of each eight bonds two are listed in Shanghai, two in Shenzhen, one in both.
void setListings(const Day& day, mxservice::CBondInfoDetail& bond, std::size_t index) {
    const std::size_t place = index % 8;
    const std::size_t number = index / 8 * 3 + (place == 7 ? 2 : place % 2);
    if ((place == 5 || place == 6 || place == 7) && number < day.count("SZ", Kind::Bond)) {
        const Record listing = listed(day, "SZ", Kind::Bond, number);
        bond.shenzhenCode = listing->code;
        bond.bondName = listing->name;
    }
    if ((place == 3 || place == 4 || place == 7) && number < day.count("SH", Kind::Bond)) {
        const Record listing = listed(day, "SH", Kind::Bond, number);
        bond.shanghaiCode = listing->code;
        bond.bondName = listing->name;
    }
}

Data interbankBond(const Day& day, std::size_t index) {
    Dice dice = day.dice("interbank bond", index);
    const auto bond = boost::make_shared<mxservice::CBondInfoDetail>();
    // Two digits of the year, two of the kind, then a number.
    bond->bondCode = day.code("2400#### 2402#### 2505#### 2528#### 2398#### 2281#### 2502#### 2600####", index);
    const std::int64_t age = dice.between(10, 2'000);
    const std::int64_t rest = dice.between(30, 7'000);
    const std::int64_t coupon = dice.between(140, 520);
    bond->issueDate = day.after(-age - 3);
    bond->valueDate = day.after(-age);
    bond->maturityDate = day.after(rest);
    bond->bondName = inventBond(dice, std::stoi(bond->issueDate.substr(0, 4))).text;
    setListings(day, *bond, index);  // behind the name: a listed bond bears that of its listing
    bond->bondType = dice.pick(kBondTypes);
    bond->issuer = inventCompany(dice).full.text;
    bond->currency = "CNY";
    bond->creditRating = dice.pick(kRatings);
    bond->issuerRating = dice.pick(kRatings);
    bond->couponType = dice.oneIn(6) ? "浮动利率" : "固定利率";
    bond->paymentFrequency = dice.oneIn(3) ? 2 : 1;
    bond->couponRate = decimal(coupon, 4);
    bond->faceValue = 100;
    bond->issuePrice = 100;
    bond->accruedInterest = decimal(coupon * (age % 365) * 1'000 / 365, 5);
    bond->issueAmount = amount(dice.between(5, 1'500));
    bond->remainingYears = decimal(rest * 10'000 / 365, 4);
    return bond;
}

Data tenderBond(const Day& day, std::size_t index) {
    static constexpr const char* kMethods[] = {"荷兰式", "美国式", "混合式"};
    Dice dice = day.dice("tender bond", index);
    const std::int64_t ahead = dice.between(0, 20);
    const std::int64_t rate = dice.between(150, 450);
    const auto bond = boost::make_shared<mxservice::CTenderBondInfoDetail>();
    bond->code = day.code("T26####", index);
    bond->name = inventBond(dice, static_cast<int>(day.month().year())).text;
    bond->tenderDate = day.after(ahead);
    bond->paymentDate = day.after(ahead + 2);
    bond->bondType = dice.pick(kBondTypes);
    bond->issuer = inventCompany(dice).full.text;
    bond->tenderMethod = dice.pick(kMethods);
    bond->termDays = dice.between<std::int32_t>(1, 40) * 91;
    bond->plannedAmount = amount(dice.between(5, 1'200));
    bond->lowerLimit = decimal(rate - 50, 2);
    bond->upperLimit = decimal(rate + 50, 2);
    bond->couponRate = decimal(rate, 4);
    return bond;
}

Data counterparty(const Day& day, std::size_t index) {
    struct Type {
        const char* name;
        const char* ending;
    };
    static constexpr Type kTypes[] = {{"银行", "银行股份有限公司"},
                                      {"证券公司", "证券股份有限公司"},
                                      {"基金公司", "基金管理有限公司"},
                                      {"保险公司", "人寿保险股份有限公司"},
                                      {"理财子公司", "理财有限责任公司"}};
    Dice dice = day.dice("counterparty", index);
    const Type& type = dice.pick(kTypes);
    const auto party = boost::make_shared<mxservice::CCounterpartyDetail>();
    party->id = day.code("CP######", index);
    party->counterpartyType = type.name;
    party->shortName = inventCompany(dice).brand.text;
    party->name = party->shortName + type.ending;
    // Some that were withdrawn: a load leaves them out.
    party->removed = index % 12 == 5 ? 1 : 0;
    party->contact = dice.oneIn(2) ? "交易部" : "固定收益部";
    // An area that there is not: nobody is called by an invented number.
    party->phone = fmt::format("000-{:08}", dice.between(0, 99'999'999));
    party->custodyAccount = fmt::format("A{:010}", dice.between(0, 9'999'999'999));
    party->creditLimit = amount(dice.between(1, 500) * 10'000'000);
    return party;
}

Data fundPlan(const Day& day, std::size_t index) {
    static constexpr const char* kForms[] = {"稳健", "日盈", "月享", "固收增强", "量化", "现金管理"};
    Dice dice = day.dice("fund plan", index);
    const auto plan = boost::make_shared<mxservice::COTCFundPlanInfo>();
    static_cast<mxservice::CInstrumentDetail&>(*plan) =
        *startRecord(day, index % 3 == 2 ? "SOTC" : "OTC", day.code("PA#### PB#### PC####", index));
    const Name brand = inventCompany(dice).brand;
    const auto number = dice.between(1, 99);
    // All groups, so that none that is asked for is empty.
    plan->planType = static_cast<std::int32_t>(index % 5) + 1;
    plan->name = fmt::format("{}{}{}号", brand.text, dice.pick(kForms), number);
    plan->spellName = fmt::format("{}{}", brand.spell, number);
    plan->englishName = brand.english + " Plan";
    plan->manager = brand.text + "资产管理";
    plan->listingDate = day.after(-dice.between(30, 2'000));
    setPrices(*plan, {1, 4}, dice.between(9'500, 16'000), 0);
    setOrderSizes(*plan, 1, 100'000'000);
    plan->faceValue = 1;
    plan->riskLevel = dice.between<std::int32_t>(1, 5);
    plan->openDate = day.after(-dice.between(1, 60));
    plan->closeDate = day.after(dice.between(5, 400));
    plan->minSubscribeAmount = amount(dice.between(1, 100) * 10'000);
    plan->subscribeStep = 1'000;
    plan->expectedYield = decimal(dice.between(180, 650), 4);
    plan->managementFee = decimal(dice.between(2, 20), 3);
    return plan;
}

constexpr const char* kIssuanceCodes = "SD####";  // every price setting has its issuance

Data issuance(const Day& day, std::size_t index) {
    Dice dice = day.dice("issuance", index);
    const std::string brand = inventCompany(dice).brand.text;
    // So that of five days each some have ended, some are open, and some are still to come.
    const std::int64_t start = dice.between(-5, 10);
    const auto issuance = boost::make_shared<mxservice::COTCSecuritiesIssuanceInfo>();
    issuance->code = day.code(kIssuanceCodes, index);
    issuance->name = fmt::format("{}收益凭证{}号", brand, dice.between(1, 300));
    issuance->issuanceState = dice.between<std::int32_t>(0, 3);
    issuance->issuer = brand + "证券";
    issuance->startDate = day.after(start);
    issuance->endDate = day.after(start + 5);
    issuance->valueDate = day.after(start + 6);
    issuance->maturityDate = day.after(start + 6 + dice.between(14, 730));
    issuance->issueAmount = amount(dice.between(1, 200) * 1'000'000);
    issuance->issuePrice = 1;
    issuance->couponRate = decimal(dice.between(160, 450), 4);
    issuance->minSubscribeAmount = amount(dice.between(1, 10) * 50'000);
    return issuance;
}

Data issuancePrice(const Day& day, std::size_t index) {
    Dice dice = day.dice("issuance price", index);
    const std::int64_t price = dice.between(500, 6'000);
    const auto setting = boost::make_shared<mxservice::COTCStockEnquiryPriceSetting>();
    setting->code = day.code(kIssuanceCodes, index);
    setting->enquiryState = dice.between<std::int32_t>(0, 2);
    setting->enquiryPrice = decimal(price, 2);
    setting->lowestPrice = decimal(price * 9 / 10, 2);
    setting->highestPrice = decimal(price * 11 / 10, 2);
    setting->priceStep = 0.01;
    setting->tradingDay = day.today;
    return setting;
}

constexpr Catalogue kTable[] = {
    {"etfs", etf, 75, 8, 1'100},
    {"bonds", interbankBond, 15, 24, 60'000},
    {"tenderbonds", tenderBond, 2'000, 6, 200},
    {"counterparties", counterparty, 60, 12, 4'000},
    {"otcfundplans", fundPlan, 60, 12, 3'000},
    {"issuances", issuance, 100, 8, 2'000},
    {"issuanceprices", issuancePrice, 150, 6, 1'500},
};

}  // namespace

const std::span<const Catalogue> kCatalogues = kTable;

}  // namespace marketday
