#include <boost/make_shared.hpp>

#include <algorithm>

#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CETFComponentStockInfo;
using mxservice::CETFDetail;

std::size_t basketSize(Dice& dice) {
    const std::int64_t kind = dice.between(1, 10);
    return static_cast<std::size_t>(kind <= 6   ? dice.between(10, 50)
                                    : kind <= 9 ? dice.between(50, 120)
                                                : dice.between(120, 300));
}

/// Adds up to `size` different stocks of one market. Every tenth comes without a name, which the catalogue fills in
/// from the stock's own record.
void addComponents(const MarketDay& day, std::string_view market, std::size_t size, CETFDetail& etf, Dice& dice) {
    const bool isShanghai = market == "SH";
    const std::size_t stocks = day.count(isShanghai ? Segment::ShStocks : Segment::SzStocks);
    size = std::min(size, stocks);
    const std::size_t step = size == 0 ? 0 : stocks / size;
    const auto start = static_cast<std::size_t>(dice.between(0, 1'000'000));
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t index = (start + i * step) % stocks;
        const Listing stock = isShanghai ? shanghaiStock(day, index) : shenzhenStock(day, index);
        const auto component = boost::make_shared<CETFComponentStockInfo>();
        component->market = market;
        component->code = stock.code;
        component->name = dice.oneIn(10) ? std::string() : stock.name.text;
        component->quantity = dice.between(1, 90) * 100;
        component->substituteFlag = dice.oneIn(12) ? 2 : 1;
        if (component->substituteFlag == 2) {
            component->creationSubstituteAmount = decimal(component->quantity * dice.between(300, 6'000), 2);
            component->redemptionSubstituteAmount = component->creationSubstituteAmount;
        } else {
            component->premiumRatio = decimal(dice.between(5, 15), 2);
            component->discountRatio = component->premiumRatio;
        }
        etf.components.emplace(stock.code, component);
    }
}

CETFDetail makeEtf(const MarketDay& day, std::string_view market, std::size_t fundIndex, const Listing& fund) {
    Dice dice = day.seed("ETF").child(market).dice(fundIndex);
    CETFDetail etf;
    etf.type = 1;
    etf.market = market;
    etf.etfCode = fund.code;
    etf.prCode = fund.code;
    if (etf.market == "SH") {
        etf.prCode.back() = '1';
    }
    etf.name = fund.name.text;
    etf.reportUnit = dice.small(1, 20) * 100'000;
    const std::int64_t close = fundCloseTicks(day, market, fundIndex);
    const std::int64_t nav = std::max<std::int64_t>(close + dice.between(-20, 20), 1);
    etf.nav = decimal(nav, 3);
    etf.navPerCu = decimal(nav * etf.reportUnit, 3);
    etf.cashBalance = decimal(dice.between(-3'000'000, 9'000'000), 2);
    etf.ecc = decimal(dice.between(-3'000'000, 9'000'000), 2);
    etf.maxCashRatio = decimal(dice.between(1, 10) * 5, 2);
    etf.needPublish = 1;
    etf.enableCreation = dice.oneIn(25) ? 0 : 1;
    etf.enableRedemption = dice.oneIn(25) ? 0 : 1;
    etf.creationLimit = dice.oneIn(3) ? 0 : dice.between(1, 900) * etf.reportUnit;
    etf.redemptionLimit = etf.creationLimit;
    etf.tradingDay = day.today();
    // The trading day before, over a weekend.
    const bool isMonday = std::chrono::weekday(day.date()) == std::chrono::Monday;
    etf.preTradingDay = dateText(day.date() - std::chrono::days(isMonday ? 3 : 1));

    const std::size_t size = basketSize(dice);
    const std::size_t foreign = dice.oneIn(3) ? size * 2 / 5 : 0;  // from the other exchange
    addComponents(day, market, size - foreign, etf, dice);
    addComponents(day, market == "SH" ? "SZ" : "SH", foreign, etf, dice);
    return etf;
}

bool isEtf(const Listing& fund) {
    const std::string start = fund.code.substr(0, 2);
    return start == "15" || start == "51" || start == "52" || start == "53" || start == "56" || start == "58";
}

/// Up to `count` ETFs of the market's listed funds; answers how many.
std::size_t writeMarketEtfs(const MarketDay& day, std::string_view market, std::size_t count, RecordFile& file) {
    const bool isShanghai = market == "SH";
    const std::size_t funds = day.count(isShanghai ? Segment::ShFunds : Segment::SzFunds);
    std::size_t written = 0;
    for (std::size_t i = 0; i < funds && written < count; ++i) {
        const Listing fund = isShanghai ? shanghaiFund(day, i) : shenzhenFund(day, i);
        if (isEtf(fund)) {
            file.write(makeEtf(day, market, i, fund));
            ++written;
        }
    }
    return written;
}

}  // namespace

void writeEtfs(const MarketDay& day, std::size_t count, RecordFile& file) {
    const std::size_t shanghai = writeMarketEtfs(day, "SH", (count + 1) / 2, file);
    writeMarketEtfs(day, "SZ", count - shanghai, file);
}

}  // namespace inscenter::generate
