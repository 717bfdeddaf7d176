#include <algorithm>
#include <cstdlib>

#include "tools/inscenter/generate/FutureProducts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

constexpr std::int32_t kCall = 1;
constexpr std::int32_t kPut = 2;

/// The lowest of `count` strikes with the underlying's price in their middle, both in strike steps; at least 1.
std::int64_t lowestStrike(std::int64_t middle, std::size_t count) {
    return std::max<std::int64_t>(middle - static_cast<std::int64_t>(count) / 2, 1);
}

/// What the option is worth at once, and a time value that is largest at the money. All in one unit.
std::int64_t premium(std::int64_t underlying, std::int64_t strike, std::int32_t optionType) {
    const std::int64_t inside = optionType == kCall ? underlying - strike : strike - underlying;
    const std::int64_t apart = std::abs(underlying - strike);
    return std::max<std::int64_t>(inside, 0) + underlying * underlying / (40 * underlying + 400 * apart) + 1;
}

// Stock options

struct StockOptionMarket {
    const char* market;
    const char* underlyingMarket;
    Segment options;
    Segment funds;
    std::size_t firstCode;
    Listing (*fund)(const MarketDay&, std::size_t);
};
constexpr StockOptionMarket kStockOptionMarkets[] = {
    {"SHO", "SH", Segment::Sho, Segment::ShFunds, 10'008'001, shanghaiFund},
    {"SZO", "SZ", Segment::Szo, Segment::SzFunds, 90'004'001, shenzhenFund}};
constexpr std::size_t kExpiries = 4;
constexpr std::size_t kOptionsPerFund = 250;

/// This month, the next, and the two quarters' ends that follow.
YearMonth expiryMonth(const MarketDay& day, std::size_t expiry) {
    const YearMonth first = day.month();
    if (expiry < 2) {
        return first.plus(static_cast<int>(expiry));
    }
    const YearMonth later = first.plus(2);
    return later.plus((3 - later.month % 3) % 3 + 3 * static_cast<int>(expiry - 2));
}

struct StockOption {
    const StockOptionMarket& market;
    const Listing& fund;
    std::int64_t fundTicks;  ///< previous close of the fund, in 0.001
    YearMonth expiry;
    std::int32_t optionType;
    std::int64_t strike;  ///< in 0.05
};

CInstrumentDetail stockOption(const MarketDay& day, const StockOption& option, std::string code) {
    constexpr Tick kTick{1, 4};
    const std::int64_t underlying = option.fundTicks * 10;
    const std::int64_t strike = option.strike * 500;
    const std::int64_t price = premium(underlying, strike, option.optionType);

    CInstrumentDetail record = startRecord(day, option.market.market, std::move(code));
    const std::string strikeText = std::to_string(strike / 10);
    record.name = option.fund.name.text + (option.optionType == kCall ? "购" : "沽") +
                  std::to_string(option.expiry.month) + "月" + strikeText;
    record.spellName = option.fund.name.spell + "G" + std::to_string(option.expiry.month) + "Y" + strikeText;
    record.productId = option.fund.name.text + "(" + option.fund.code + ")";
    record.productName = option.fund.name.text + "期权";
    record.underlyingMarket = option.market.underlyingMarket;
    record.underlyingCode = option.fund.code;
    record.optionType = option.optionType;
    record.exerciseStyle = 1;
    record.strikePrice = kTick.price(strike);
    record.volumeMultiple = 10'000;
    setPriceBand(record, kTick, price, underlying / 10);
    record.preSettlementPrice = record.preClosePrice;
    record.marginUnit = decimal((price + underlying * 12 / 100) * record.volumeMultiple, kTick.decimals);
    setOrderSizes(record, 1, 50);
    record.maxMarketOrderVolume = 10;
    record.deliveryYear = option.expiry.year;
    record.deliveryMonth = option.expiry.month;
    record.listingDate = dateText(weekdayFrom(option.expiry.plus(-7).day(25)));
    record.expireDate = dateText(option.expiry.day(std::chrono::Wednesday[4]));
    record.exerciseDate = record.expireDate;
    record.delistingDate = record.expireDate;
    return record;
}

void writeStockOptionMarket(const MarketDay& day, const StockOptionMarket& market, RecordFile& file) {
    const std::size_t count = day.count(market.options);
    const std::size_t wanted = std::max<std::size_t>(count / kOptionsPerFund, 2);
    const std::size_t funds = std::clamp<std::size_t>(day.count(market.funds), 1, wanted);
    const std::size_t series = funds * kExpiries * 2;
    std::size_t code = market.firstCode;
    for (std::size_t i = 0; i < series; ++i) {
        const std::size_t fundIndex = i / (kExpiries * 2);
        const Listing fund = market.fund(day, fundIndex);
        const std::int64_t fundTicks = fundCloseTicks(day, market.underlyingMarket, fundIndex);
        const std::size_t strikes = evenShare(count, series, i);
        for (std::size_t j = 0; j < strikes; ++j, ++code) {
            const StockOption option{market,
                                     fund,
                                     fundTicks,
                                     expiryMonth(day, i / 2 % kExpiries),
                                     i % 2 == 0 ? kCall : kPut,
                                     lowestStrike(fundTicks / 50, strikes) + static_cast<std::int64_t>(j)};
            CInstrumentDetail record = stockOption(day, option, std::to_string(code));
            Dice dice = day.seed(market.market).dice(code);
            record.preOpenInterest = dice.between(0, 80'000);
            record.preVolume = dice.between(0, record.preOpenInterest);
            file.write(record);
        }
    }
}

// Options of the futures exchanges

/// "cu2605C70000", "m2605-C-2800", as the exchange writes it.
std::string optionCode(std::string_view market, const std::string& underlying, std::int32_t optionType,
                       std::int64_t strike) {
    const bool dashed = market == "CFFEX" || market == "DCE" || market == "GFEX";
    const std::string dash = dashed ? "-" : "";
    return underlying + dash + (optionType == kCall ? "C" : "P") + dash + std::to_string(strike);
}

std::string optionProductId(std::string_view market, const FutureProduct& product, std::int32_t optionType) {
    if (market == "CFFEX") {
        return product.id;
    }
    return std::string(product.id) + (market != "CZCE" ? "_o" : optionType == kCall ? "C" : "P");
}

struct FutureOption {
    const char* market;
    const FutureProduct& product;
    std::string underlying;  ///< code of the future, or of the index series
    YearMonth delivery;
    std::int64_t underlyingTicks;  ///< its settlement price
    std::int32_t optionType;
    std::int64_t strike;  ///< in the unit of the price
};

CInstrumentDetail futureOption(const MarketDay& day, const FutureOption& option) {
    const FutureProduct& product = option.product;
    const bool isIndex = product.cycle == Cycle::Index;
    std::int64_t unit = 1;  // the price's unit in the smallest decimal of the step
    for (int i = 0; i < product.tick.decimals; ++i) {
        unit *= 10;
    }
    const std::int64_t strikeTicks = option.strike * unit / product.tick.units;
    const std::int64_t price = premium(option.underlyingTicks, strikeTicks, option.optionType);

    CInstrumentDetail record =
        startRecord(day, option.market, optionCode(option.market, option.underlying, option.optionType, option.strike));
    record.name = product.name + option.delivery.yymm() + (option.optionType == kCall ? "购" : "沽") +
                  std::to_string(option.strike);
    record.productId = optionProductId(option.market, product, option.optionType);
    record.productName = std::string(product.name) + "期权";
    record.productGroup = isIndex ? 3 : 1;
    record.underlyingMarket = option.market;
    record.underlyingCode = option.underlying;
    record.optionType = option.optionType;
    record.exerciseStyle = isIndex ? 1 : 2;
    record.strikePrice = static_cast<double>(option.strike);
    record.volumeMultiple = product.multiple;
    setPriceBand(record, product.tick, price, option.underlyingTicks * product.marginPercent * 8 / 1'000);
    record.preSettlementPrice = record.preClosePrice;
    record.marginUnit =
        decimal((price + option.underlyingTicks * product.marginPercent / 100) * product.tick.units * product.multiple,
                product.tick.decimals);
    setOrderSizes(record, 1, 100);
    record.deliveryYear = option.delivery.year;
    record.deliveryMonth = option.delivery.month;
    // Options on futures end in the month before delivery.
    const Date last =
        isIndex ? option.delivery.day(std::chrono::Friday[3]) : weekdayFrom(option.delivery.plus(-1).day(12));
    record.listingDate = dateText(weekdayFrom(option.delivery.plus(-11).day(18)));
    record.expireDate = dateText(last);
    record.exerciseDate = record.expireDate;
    record.delistingDate = record.expireDate;
    return record;
}

constexpr std::size_t kIndexSeries = 6;
constexpr std::size_t kOptionsPerProduct = 200;

/// Deals the exchange's count to its products, their months, calls and puts.
void writeExchangeOptions(const MarketDay& day, const FutureExchange& exchange, RecordFile& file) {
    const std::size_t count = day.count(exchange.options);
    const std::span<const FutureProduct> products = exchange.withOptions();
    const FutureListing listing(day, exchange);
    const bool onIndexes = !exchange.optionProducts.empty();
    const std::size_t listed = onIndexes ? products.size() : std::min(products.size(), listing.products());
    const std::size_t used = std::clamp<std::size_t>(count / kOptionsPerProduct, 1, listed);
    for (std::size_t p = 0; p < used; ++p) {
        const FutureProduct& product = products[p];
        const std::size_t ofProduct = evenShare(count, used, p);
        const std::size_t series = 2 * std::max<std::size_t>(onIndexes ? kIndexSeries : listing.months(p), 1);
        for (std::size_t i = 0; i < series; ++i) {
            const YearMonth delivery = deliveryMonth(day, product, i / 2);
            const std::int64_t ticks = settlementTicks(day, product, i / 2);
            const std::size_t strikes = evenShare(ofProduct, series, i);
            const std::int64_t middle = static_cast<std::int64_t>(product.tick.price(ticks)) / product.strikeStep;
            for (std::size_t j = 0; j < strikes; ++j) {
                const std::int64_t strike = lowestStrike(middle, strikes) + static_cast<std::int64_t>(j);
                CInstrumentDetail record =
                    futureOption(day, {exchange.market, product, contractCode(exchange.market, product, delivery),
                                       delivery, ticks, i % 2 == 0 ? kCall : kPut, strike * product.strikeStep});
                Dice dice = day.seed("future option").child(record.code).dice(0);
                record.preOpenInterest = dice.between(0, 30'000);
                record.preVolume = dice.between(0, record.preOpenInterest);
                file.write(record);
            }
        }
    }
}

}  // namespace

void writeStockOptions(const MarketDay& day, RecordFile& file) {
    for (const StockOptionMarket& market : kStockOptionMarkets) {
        writeStockOptionMarket(day, market, file);
    }
}

void writeFutureOptions(const MarketDay& day, RecordFile& file) {
    for (const FutureExchange& exchange : futureExchanges()) {
        writeExchangeOptions(day, exchange, file);
    }
}

}  // namespace inscenter::generate
