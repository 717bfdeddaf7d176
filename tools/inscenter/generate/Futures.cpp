#include <algorithm>

#include "tools/inscenter/generate/FutureProducts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

/// 1 commodity, 2 interest rate, 3 index.
std::int32_t groupOf(const FutureProduct& product) {
    switch (product.cycle) {
        case Cycle::Quarterly:
            return 2;
        case Cycle::Index:
            return 3;
        case Cycle::Monthly:
        case Cycle::OddMonths:
            break;
    }
    return 1;
}

/// What contracts, continuous contracts and spreads of a product have in common.
CInstrumentDetail contract(const MarketDay& day, std::string_view market, const FutureProduct& product,
                           std::string code, std::int64_t ticks, Dice& dice) {
    CInstrumentDetail record = startRecord(day, market, std::move(code));
    record.productId = product.id;
    record.productName = product.name;
    record.productGroup = groupOf(product);
    record.volumeMultiple = product.multiple;
    // A move to the limit uses up four fifths of the margin.
    setPriceBand(record, product.tick, ticks, std::max<std::int64_t>(ticks * product.marginPercent * 8 / 1'000, 1));
    record.preSettlementPrice = record.preClosePrice;
    record.preClosePrice = product.tick.price(ticks + dice.between(-3, 3));
    record.longMarginRatio = decimal(product.marginPercent, 2);
    record.shortMarginRatio = record.longMarginRatio;
    record.marginUnit =
        decimal(ticks * product.tick.units * product.multiple * product.marginPercent, product.tick.decimals + 2);
    record.preOpenInterest = dice.between(10, 2'000'000);
    record.preOpenInterest /= dice.between(1, 40);
    record.preVolume = record.preOpenInterest / 2;
    setOrderSizes(record, 1, 500);
    record.maxMarketOrderVolume = market == "CZCE" ? 200 : 30;
    return record;
}

void setDelivery(const MarketDay& day, CInstrumentDetail& record, const FutureProduct& product,
                 const YearMonth& delivery) {
    using std::chrono::Friday;
    const Date last = product.cycle == Cycle::Index ? delivery.day(Friday[3]) : weekdayFrom(delivery.day(15));
    record.deliveryYear = delivery.year;
    record.deliveryMonth = delivery.month;
    record.listingDate = dateText(weekdayFrom(delivery.plus(-12).day(16)));
    record.expireDate = dateText(last);
    record.delistingDate = record.expireDate;
    record.startDeliveryDate = dateText(weekdayFrom(last + std::chrono::days(1)));
    record.endDeliveryDate = dateText(weekdayFrom(last + std::chrono::days(4)));
    record.tradingStatus = record.expireDate < day.today() ? 0 : 1;
}

void writeContract(const MarketDay& day, const FutureExchange& exchange, std::size_t productIndex, std::size_t number,
                   std::size_t months, RecordFile& file) {
    const FutureProduct& product = exchange.products[productIndex];
    const YearMonth delivery = deliveryMonth(day, product, number);
    Dice dice = day.seed("future").child(product.id).dice(number);
    CInstrumentDetail record = contract(day, exchange.market, product, contractCode(exchange.market, product, delivery),
                                        settlementTicks(day, product, number), dice);
    setDelivery(day, record, product, delivery);
    record.name = product.name + delivery.yymm();
    record.spellName = product.spell + delivery.yymm();
    if (record.market == "CZCE" && number % 2 == 0) {
        record.platformCode = product.id + delivery.yymm();
    }
    // The second month leads; every seventh product is just moving on to its third.
    const std::size_t main = std::min<std::size_t>(1, months - 1);
    const bool isNextMain = productIndex % 7 == 1 && number == main + 1;
    record.mainContractFlag = number == main || isNextMain ? 1 : 0;
    file.write(record);
}

struct Alias {
    const char* code;
    const char* platformCode;
    const char* name;
};
constexpr Alias kAliases[] = {{"888", "L8", "主连"}, {"000", "00", "连续"}, {"999", "main", "主力"}};

void writeAlias(const MarketDay& day, const FutureExchange& exchange, std::size_t productIndex, std::size_t number,
                RecordFile& file) {
    const FutureProduct& product = exchange.products[productIndex];
    const Alias& alias = kAliases[(productIndex + number) % std::size(kAliases)];
    Dice dice = day.seed("alias").child(product.id).dice(number);
    CInstrumentDetail record = contract(day, exchange.market, product, std::string(product.id) + alias.code,
                                        settlementTicks(day, product, 0), dice);
    record.platformCode = std::string(product.id) + alias.platformCode;
    record.name = std::string(product.name) + alias.name;
    record.listingDate = day.after(-3'000);
    file.write(record);
}

/// A spread of two legs: the price is their difference, which has limits on both sides of 0.
void writeSpread(const MarketDay& day, const FutureProduct& first, const FutureProduct& second,
                 const YearMonth& firstDelivery, const YearMonth& secondDelivery, std::string_view kind,
                 std::size_t number, RecordFile& file) {
    Dice dice = day.seed("spread").child(kind).dice(number);
    const std::string legs =
        contractCode("DCE", first, firstDelivery) + "&" + contractCode("DCE", second, secondDelivery);
    CInstrumentDetail record = startRecord(day, "DCE", std::string(kind) + " " + legs);
    record.name = record.code;
    record.productId = std::string(kind) + " " + first.id + "&" + second.id;
    record.productName = std::string(first.name) + (kind == "SP" ? "跨期" : std::string("&") + second.name);
    record.productGroup = 1;
    record.volumeMultiple = first.multiple;
    record.priceTick = first.tick.price(1);
    record.pricePrecision = first.tick.decimals;
    const std::int64_t spread = dice.between(-200, 200);
    record.preClosePrice = first.tick.price(spread);
    record.preSettlementPrice = record.preClosePrice;
    record.upperLimitPrice = first.tick.price(spread + first.price / 10);
    record.lowerLimitPrice = first.tick.price(spread - first.price / 10);
    setDelivery(day, record, first, firstDelivery);
    setOrderSizes(record, 1, 500);
    file.write(record);
}

/// Half the spreads are between months of one product, half between two products of one month; nearest months first.
void writeDceSpreads(const MarketDay& day, const FutureExchange& exchange, RecordFile& file) {
    const std::size_t count = day.count(Segment::DceSpreads);
    const std::size_t calendar = (count + 1) / 2;
    const std::size_t products = std::max<std::size_t>(FutureListing(day, exchange).products(), 2);
    for (std::size_t i = 0; i < calendar; ++i) {
        const FutureProduct& product = exchange.products[i % products];
        const std::size_t near = i / products;
        writeSpread(day, product, product, deliveryMonth(day, product, near), deliveryMonth(day, product, near + 1),
                    "SP", i, file);
    }
    for (std::size_t i = 0; i < count - calendar; ++i) {
        const FutureProduct& first = exchange.products[(i + 1) % products];
        const FutureProduct& second = exchange.products[i % products];
        // Both legs are listed in the months of the product that has fewer.
        const YearMonth delivery = deliveryMonth(day, second.cycle == Cycle::OddMonths ? second : first, i / products);
        writeSpread(day, first, second, delivery, delivery, "SPC", i, file);
    }
}

}  // namespace

void writeFutures(const MarketDay& day, RecordFile& file) {
    for (const FutureExchange& exchange : futureExchanges()) {
        const FutureListing listing(day, exchange);
        for (std::size_t product = 0; product < listing.products(); ++product) {
            for (std::size_t i = 0; i < listing.months(product); ++i) {
                writeContract(day, exchange, product, i, listing.months(product), file);
            }
            for (std::size_t i = 0; i < listing.aliases(product); ++i) {
                writeAlias(day, exchange, product, i, file);
            }
        }
        if (exchange.futures == Segment::DceFutures) {
            writeDceSpreads(day, exchange, file);
        }
    }
}

}  // namespace inscenter::generate
