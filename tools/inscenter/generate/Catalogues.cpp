// The catalogues of the interbank market and of over-the-counter issues.

#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

constexpr const char* kRatings[] = {"AAA", "AAA", "AA+", "AA", "A-1"};
constexpr const char* kBondTypes[] = {"国债", "地方政府债", "政策性金融债", "中期票据", "短期融资券", "同业存单"};

/// Of each eight bonds two are listed in Shanghai, two in Shenzhen, one in both.
void setListings(const MarketDay& day, mxservice::CBondInfoDetail& bond, std::size_t index) {
    const std::size_t place = index % 8;
    const std::size_t shanghai = index / 8 * 3 + (place == 7 ? 2 : place % 2);
    const std::size_t shenzhen = shanghai;
    if ((place == 3 || place == 4 || place == 7) && shanghai < day.count(Segment::ShBonds)) {
        bond.shanghaiCode = shanghaiBondCode(day, shanghai);
        bond.bondName = bondName(day, "SH", shanghai).text;
    }
    if ((place == 5 || place == 6 || place == 7) && shenzhen < day.count(Segment::SzBonds)) {
        bond.shenzhenCode = shenzhenBondCode(day, shenzhen);
        bond.bondName = bond.bondName.empty() ? bondName(day, "SZ", shenzhen).text : bond.bondName;
    }
}

}  // namespace

void writeInterbankBonds(const MarketDay& day, std::size_t count, RecordFile& file) {
    // Two digits of the year, two of the kind, then a number.
    static const CodeSeries kSeries{"2400####", "2402####", "2505####", "2528####",
                                    "2398####", "2281####", "2502####", "2600####"};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("interbank bond").dice(i);
        mxservice::CBondInfoDetail bond;
        bond.bondCode = kSeries.at(i, day.salt());
        setListings(day, bond, i);
        if (bond.bondName.empty()) {
            bond.bondName = bondName(day, "BANK", i).text;
        }
        bond.bondType = dice.pick(kBondTypes);
        bond.issuer = inventCompany(dice).full.text;
        bond.currency = "CNY";
        const std::int64_t age = dice.between(10, 2'000);
        const std::int64_t rest = dice.between(30, 7'000);
        bond.issueDate = day.after(-age - 3);
        bond.valueDate = day.after(-age);
        bond.maturityDate = day.after(rest);
        bond.creditRating = dice.pick(kRatings);
        bond.issuerRating = dice.pick(kRatings);
        bond.couponType = dice.oneIn(6) ? "浮动利率" : "固定利率";
        bond.paymentFrequency = dice.oneIn(3) ? 2 : 1;
        const std::int64_t coupon = dice.between(140, 520);
        bond.couponRate = decimal(coupon, 4);
        bond.faceValue = 100;
        bond.issuePrice = 100;
        bond.accruedInterest = decimal(coupon * (age % 365) * 1'000 / 365, 5);
        bond.issueAmount = static_cast<double>(dice.between(5, 1'500));
        bond.remainingYears = decimal(rest * 10'000 / 365, 4);
        file.write(bond);
    }
}

void writeTenderBonds(const MarketDay& day, std::size_t count, RecordFile& file) {
    static const CodeSeries kSeries{"T26####"};
    static constexpr const char* kMethods[] = {"荷兰式", "美国式", "混合式"};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("tender bond").dice(i);
        mxservice::CTenderBondInfoDetail bond;
        bond.code = kSeries.at(i, day.salt());
        bond.name = bondName(day, "tender", i).text;
        const std::int64_t ahead = dice.between(0, 20);
        bond.tenderDate = day.after(ahead);
        bond.paymentDate = day.after(ahead + 2);
        bond.bondType = dice.pick(kBondTypes);
        bond.issuer = inventCompany(dice).full.text;
        bond.tenderMethod = dice.pick(kMethods);
        bond.termDays = dice.small(1, 40) * 91;
        bond.plannedAmount = static_cast<double>(dice.between(5, 1'200));
        const std::int64_t middle = dice.between(150, 450);
        bond.lowerLimit = decimal(middle - 50, 2);
        bond.upperLimit = decimal(middle + 50, 2);
        bond.couponRate = decimal(middle, 4);
        file.write(bond);
    }
}

void writeCounterparties(const MarketDay& day, std::size_t count, RecordFile& file) {
    static const CodeSeries kSeries{"CP######"};
    struct Type {
        const char* name;
        const char* ending;
    };
    static constexpr Type kTypes[] = {{"银行", "银行股份有限公司"},
                                      {"证券公司", "证券股份有限公司"},
                                      {"基金公司", "基金管理有限公司"},
                                      {"保险公司", "人寿保险股份有限公司"},
                                      {"理财子公司", "理财有限责任公司"}};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("counterparty").dice(i);
        const Company company = inventCompany(dice);
        mxservice::CCounterpartyDetail party;
        party.id = kSeries.at(i, day.salt());
        const Type& type = dice.pick(kTypes);
        party.counterpartyType = type.name;
        party.name = company.brand.text + type.ending;
        party.shortName = company.brand.text;
        party.removed = i % 12 == 5 ? 1 : 0;
        party.contact = dice.oneIn(2) ? "交易部" : "固定收益部";
        party.phone = padded(static_cast<std::uint64_t>(dice.between(0, 99'999'999)), 8, "000-");
        party.custodyAccount = padded(static_cast<std::uint64_t>(dice.between(0, 9'999'999'999)), 10, "A");
        party.creditLimit = static_cast<double>(dice.between(1, 500) * 10'000'000);
        file.write(party);
    }
}

void writeIssuances(const MarketDay& day, std::size_t count, RecordFile& file) {
    static const CodeSeries kSeries{"SD####"};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("issuance").dice(i);
        const Name brand = inventCompany(dice).brand;
        mxservice::COTCSecuritiesIssuanceInfo issuance;
        issuance.code = kSeries.at(i, day.salt());
        issuance.name = brand.text + "收益凭证" + std::to_string(dice.between(1, 300)) + "号";
        issuance.issuanceState = dice.small(0, 3);
        issuance.issuer = brand.text + "证券";
        const std::int64_t start = dice.between(-5, 10);
        issuance.startDate = day.after(start);
        issuance.endDate = day.after(start + 5);
        issuance.valueDate = day.after(start + 6);
        issuance.maturityDate = day.after(start + 6 + dice.between(14, 730));
        issuance.issueAmount = static_cast<double>(dice.between(1, 200) * 1'000'000);
        issuance.issuePrice = 1;
        issuance.couponRate = decimal(dice.between(160, 450), 4);
        issuance.minSubscribeAmount = static_cast<double>(dice.between(1, 10) * 50'000);
        file.write(issuance);
    }
}

void writeIssuancePrices(const MarketDay& day, std::size_t count, RecordFile& file) {
    static const CodeSeries kSeries{"SD####"};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("issuance price").dice(i);
        mxservice::COTCStockEnquiryPriceSetting setting;
        // Every setting has its issuance, as long as there are as many of those.
        setting.code = kSeries.at(i, day.salt());
        setting.enquiryState = dice.small(0, 2);
        const std::int64_t price = dice.between(500, 6'000);
        setting.enquiryPrice = decimal(price, 2);
        setting.lowestPrice = decimal(price * 9 / 10, 2);
        setting.highestPrice = decimal(price * 11 / 10, 2);
        setting.priceStep = 0.01;
        setting.tradingDay = day.today();
        file.write(setting);
    }
}

}  // namespace inscenter::generate
