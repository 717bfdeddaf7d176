// What is traded by contract: futures at home and abroad, gold, spreads, options on futures, indexes and funds.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "tools/marketday/Day.h"
#include "tools/marketday/Products.h"

namespace marketday {
namespace {

using mxservice::CInstrumentDetail;
using std::chrono::days;
using std::chrono::months;

/// The delivery month of a product's contract, counted from the nearest.
Month deliveryMonth(const Day& day, const Product& product, std::size_t number) {
    const auto place = static_cast<int>(number);
    const auto quarter = [](Month from) { return from + months((12 - static_cast<unsigned>(from.month())) % 3); };
    const Month now = day.month();
    const Month next = now + months(1);
    switch (product.cycle) {
        case Cycle::OddMonths:
            return next + months(static_cast<unsigned>(now.month()) % 2 + 2 * number);
        case Cycle::Quarterly:
            return quarter(product.outer != nullptr ? next : now) + months(3 * place);
        case Cycle::IndexMonths:
        case Cycle::IndexSeries:
            // This month, the next one, and the quarters after them.
            return place < 2 ? now + months(place) : quarter(next + months(1)) + months(3 * (place - 2));
        case Cycle::Monthly:
        case Cycle::Spot:
            break;
    }
    return next + months(place);
}

std::int64_t marginOf(const Product& product) {
    return product.marginPercent > 0 ? product.marginPercent : 100;
}

/// What all contracts of a product have in common; their settlement price of the day before is so many steps.
Record contract(const Day& day, const Product& product, std::string code, std::int64_t ticks, Dice& dice) {
    Record record = startRecord(day, product.market, std::move(code));
    record->name = product.name;
    record->spellName = product.spell;
    record->productId = product.id;
    record->productName = product.name;
    record->productGroup = static_cast<std::int32_t>(product.group);
    record->volumeMultiple = product.multiple;
    record->listingDate = day.after(-dice.between(1'000, 7'000));
    // A move to the limit uses up four fifths of the margin. The close is up to three steps off the settlement price
    // and must lie within the limits.
    const std::int64_t band = product.marginPercent > 0 ? ticks * product.marginPercent * 8 / 1'000 : ticks / 10;
    setPrices(*record, product.tick, ticks, product.outer != nullptr ? 0 : std::max<std::int64_t>(band, 4));
    record->preSettlementPrice = record->preClosePrice;
    record->preClosePrice = product.tick.price(ticks + dice.between(-3, 3));
    record->longMarginRatio = decimal(marginOf(product), 2);
    record->shortMarginRatio = record->longMarginRatio;
    record->preVolume = dice.mostlyLow(5, 1'000'000);
    record->preOpenInterest = product.marginPercent > 0 ? 2 * record->preVolume : 0;
    setOrderSizes(*record, 1, 500);
    record->maxMarketOrderVolume = record->market == "CZCE" ? 200 : 30;
    if (product.outer != nullptr) {
        record->currency = product.outer->currency;
        // Outer futures carry their market's key in place of a date.
        record->listingDate = product.outer->key;
        record->outerMarketName = product.outer->name;
    } else {
        record->marginUnit =
            decimal(ticks * product.tick.units * product.multiple * marginOf(product), product.tick.decimals + 2);
    }
    return record;
}

std::int64_t settlementTicks(const Product& product, Dice& dice) {
    return product.price * dice.between(950, 1'050) / 1'000;
}

void setLastDay(const Day& day, CInstrumentDetail& record, Month month, Date last) {
    record.deliveryYear = static_cast<int>(month.year());
    record.deliveryMonth = static_cast<int>(static_cast<unsigned>(month.month()));
    record.expireDate = dateText(last);
    record.delistingDate = record.expireDate;
    record.tradingStatus = record.expireDate < day.today ? 0 : 1;
}

/// The contract of a month: "rb2605", and "MA605" on the exchange that leaves the decade out.
Record monthContract(const Day& day, const Product& product, Month month) {
    const std::string delivery = yymm(month);
    const auto number = static_cast<std::size_t>(std::stoi(delivery));
    Dice dice = day.dice(product.id, number);
    const bool isShort = product.market == std::string_view("CZCE");
    Record record =
        contract(day, product, product.id + delivery.substr(isShort ? 1 : 0), settlementTicks(product, dice), dice);
    record->name += delivery;
    if (product.outer != nullptr) {
        // The letters by which exchanges abroad call the twelve months.
        record->platformCode =
            fmt::format("{}{}{}", product.id, "FGHJKMNQUVXZ"[static_cast<unsigned>(month.month()) - 1],
                        static_cast<int>(month.year()) % 10);
        setLastDay(day, *record, month, weekdayFrom((month - months(1)) / 20));
        return record;
    }
    record->spellName += delivery;
    // Half of them come with the decade on the platform, so that a second code is asked for here, too.
    if (isShort && number % 2 == 0) {
        record->platformCode = product.id + delivery;
    }
    const bool isIndex = product.cycle == Cycle::IndexMonths || product.cycle == Cycle::IndexSeries;
    const Date last = isIndex ? Date(month / std::chrono::Friday[3]) : weekdayFrom(month / 15);
    setLastDay(day, *record, month, last);
    record->listingDate = dateText(weekdayFrom((month - months(12)) / 16));
    record->startDeliveryDate = dateText(weekdayFrom(last + days(1)));
    record->endDeliveryDate = dateText(weekdayFrom(last + days(4)));
    return record;
}

struct Alias {
    const char* code;
    const char* platformCode;
    const char* name;
};
constexpr Alias kAliases[] = {{"888", "L8", "主连"}, {"000", "00", "连续"}, {"999", "main", "主力"}};

/// A continuous contract, at the price of the nearest: the same throws of the dice. Only the endings of its platform
/// code tell it from a month, so each of them is there in a day of any size.
Record aliasContract(const Day& day, const Product& product, const Alias& alias) {
    Dice nearest = day.dice(product.id, static_cast<std::size_t>(std::stoi(yymm(deliveryMonth(day, product, 0)))));
    const std::int64_t ticks = settlementTicks(product, nearest);
    Record record = contract(day, product, std::string(product.id) + alias.code, ticks, nearest);
    record->platformCode = std::string(product.id) + alias.platformCode;
    record->name += alias.name;
    return record;
}

/// What of a market's products is listed: the row's count is dealt to as many products as it suffices for.
struct Listing {
    Listing(const Day& day, std::string_view market)
        : isAbroad(market == "WP"), hasProducts(isAbroad || market == "SHGE"), count(day.count(market, Kind::Future)) {
        for (const Product& product : kProducts) {
            if (product.market == market && product.cycle != Cycle::IndexSeries) {
                products.push_back(&product);
            }
        }
        // Enough for two months to choose a leader from, a third to move on to, and a continuous contract.
        const std::size_t least = isAbroad ? 2 : hasProducts ? 1 : 4;
        products.resize(std::clamp<std::size_t>(count / least, 1, products.size()));
    }
    std::size_t records(std::size_t product) const { return evenShare(count, products.size(), product); }
    /// Continuous contracts of a product.
    std::size_t aliases(std::size_t product) const {
        const std::size_t all = hasProducts ? 0 : records(product);
        return all >= 7 ? 3 : all >= 4 ? 1 : 0;
    }
    std::size_t months(std::size_t product) const {
        const std::size_t others = aliases(product) + (hasProducts ? 1 : 0);
        return std::max(records(product), others) - others;
    }

    bool isAbroad;
    bool hasProducts;  ///< records of the products themselves, which have codes of their own
    std::size_t count;
    std::vector<const Product*> products;
};

/// The record of a product itself, which abroad is its main contract.
Record productRecord(const Day& day, const Product& product) {
    Dice dice = day.dice(product.id, 0);
    Record record = contract(day, product, product.id, settlementTicks(product, dice), dice);
    record->mainContractFlag = product.outer != nullptr ? 1 : 0;
    return record;
}

void visitFutures(const Day& day, const Row& row, const Visit& visit) {
    const Listing listing(day, row.market);
    for (std::size_t p = 0; p < listing.products.size(); ++p) {
        const Product& product = *listing.products[p];
        if (listing.hasProducts && listing.records(p) > 0) {
            visit(productRecord(day, product));
        }
        // The second month leads; every seventh product is just moving on to its third.
        const std::size_t main = std::min<std::size_t>(1, listing.months(p) - 1);
        for (std::size_t i = 0; i < listing.months(p); ++i) {
            const Record record = monthContract(day, product, deliveryMonth(day, product, i));
            const bool leads = i == main || (p % 7 == 1 && i == main + 1);
            record->mainContractFlag = leads && !listing.isAbroad ? 1 : 0;
            visit(record);
        }
        for (std::size_t i = 0; i < listing.aliases(p); ++i) {
            visit(aliasContract(day, product, kAliases[(p + i) % std::size(kAliases)]));
        }
    }
}

/// A spread of two legs: the first one's contract but for what follows from both. Its price is their difference, so it
/// has limits on both sides of 0.
Record spread(const Day& day, std::string_view kind, const Product& first, Month firstMonth, const Product& second,
              Month secondMonth) {
    Record record = monthContract(day, first, firstMonth);
    const Record other = monthContract(day, second, secondMonth);
    const double limit = first.tick.price(first.price / 10);
    record->code = fmt::format("{} {}&{}", kind, record->code, other->code);
    record->platformCode = record->code;
    record->name = record->code;
    record->spellName.clear();
    record->productId = fmt::format("{} {}&{}", kind, first.id, second.id);
    record->productName =
        &first == &second ? first.name + std::string("跨期") : fmt::format("{}&{}", first.name, second.name);
    record->preSettlementPrice -= other->preSettlementPrice;
    record->preClosePrice = record->preSettlementPrice;
    record->upperLimitPrice = record->preClosePrice + limit;
    record->lowerLimitPrice = record->preClosePrice - limit;
    return record;
}

/// Half the spreads are between months of one product, half between two products of one month; nearest months first.
void visitSpreads(const Day& day, const Row& row, const Visit& visit) {
    const Listing listing(day, row.market);
    const std::size_t count = day.count(row);
    const std::size_t calendar = (count + 1) / 2;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = i < calendar ? i : i - calendar;
        const Product& product = *listing.products[place % listing.products.size()];
        const std::size_t near = place / listing.products.size();
        if (i < calendar) {
            visit(spread(day, "SP", product, deliveryMonth(day, product, near), product,
                         deliveryMonth(day, product, near + 1)));
            continue;
        }
        const Product& first = *listing.products[(place + 1) % listing.products.size()];
        // Both legs are listed in the months of the product that has fewer.
        const Month month = deliveryMonth(day, product.cycle == Cycle::OddMonths ? product : first, near);
        visit(spread(day, "SPC", first, month, product, month));
    }
}

// Options

// Few underlyings with many strikes, as on an exchange: a small day has a whole chain rather than an option of each.
constexpr std::size_t kOptionsOfAnUnderlying = 200;
constexpr std::size_t kExpiries = 4;
constexpr std::size_t kIndexSeries = 6;
/// Options on funds; their months are those of index futures, their strikes 0.05 apart.
constexpr Product kStockOption{"", "", "", "", {1, 4}, 10'000, 12, 0, Cycle::IndexSeries, 0};

/// The calls or the puts of one month on one underlying.
struct Series {
    const Product* product;
    Record underlying;
    Month month;
    bool isCall;
    std::int64_t ticks;     ///< price of the underlying
    std::int64_t step;      ///< between two strikes, in ticks
    std::int64_t textStep;  ///< the same as names and codes count it
};
using AllSeries = std::vector<Series>;

AllSeries stockSeries(const Day& day, const Row& row) {
    const char* const market = row.text;
    const std::size_t wanted = std::max<std::size_t>(day.count(row) / kOptionsOfAnUnderlying, 2);
    const std::size_t funds = std::clamp<std::size_t>(day.count(market, Kind::Fund), 1, wanted);
    AllSeries all;
    for (std::size_t i = 0; i < funds * kExpiries * 2; ++i) {
        const Record fund = listed(day, market, Kind::Fund, i / 2 / kExpiries);
        const auto ticks = std::llround(fund->preClosePrice / kStockOption.tick.price(1));
        const Month month = deliveryMonth(day, kStockOption, i / 2 % kExpiries);
        all.push_back({&kStockOption, fund, month, i % 2 == 0, ticks, 500, 50});
    }
    return all;
}

/// Options on listed futures, and on indexes, which have a month's contract as well but no futures by that name.
AllSeries futureSeries(const Day& day, const Row& row) {
    const Listing listing(day, row.market);
    const std::size_t wanted = std::max<std::size_t>(day.count(row) / kOptionsOfAnUnderlying, 1);
    AllSeries all;
    std::size_t used = 0;
    for (const Product& product : kProducts) {
        const auto place = std::find(listing.products.begin(), listing.products.end(), &product);
        const bool isIndex = product.cycle == Cycle::IndexSeries;
        const bool isListed = isIndex || place != listing.products.end();
        if (product.market != std::string_view(row.market) || product.strikeStep == 0 || !isListed || used == wanted) {
            continue;
        }
        ++used;
        const std::size_t expiries =
            isIndex ? kIndexSeries : listing.months(static_cast<std::size_t>(place - listing.products.begin()));
        for (std::size_t i = 0; i < 2 * std::max<std::size_t>(expiries, 1); ++i) {
            const Month month = deliveryMonth(day, product, i / 2);
            const Record future = monthContract(day, product, month);
            // Whole steps, so that nothing is left to how a machine rounds.
            const auto inTicks = [&](double amount) { return std::llround(amount / product.tick.price(1)); };
            all.push_back({&product, future, month, i % 2 == 0, inTicks(future->preSettlementPrice),
                           inTicks(static_cast<double>(product.strikeStep)), product.strikeStep});
        }
    }
    return all;
}

void setStockOption(const Day& day, CInstrumentDetail& record, const Series& series, std::int64_t strike) {
    const CInstrumentDetail& fund = *series.underlying;
    const auto month = static_cast<unsigned>(series.month.month());
    record.name = fmt::format("{}{}{}月{}", fund.name, series.isCall ? "购" : "沽", month, strike);
    record.spellName = fmt::format("{}G{}Y{}", fund.spellName, month, strike);
    record.productId = fmt::format("{}({})", fund.name, fund.code);
    record.productName = fund.name + "期权";
    record.exerciseStyle = 1;
    record.listingDate = dateText(weekdayFrom((series.month - months(7)) / 25));
    setLastDay(day, record, series.month, series.month / std::chrono::Wednesday[4]);
}

void setFutureOption(const Day& day, CInstrumentDetail& record, const Series& series, std::int64_t strike) {
    const bool isIndex = series.product->cycle == Cycle::IndexSeries;
    const std::string id = series.product->id;
    // "cu2605C70000", "m2605-C-2800", as the exchange writes it.
    const char* const letter = series.isCall ? "C" : "P";
    const bool isDashed = record.market == "CFFEX" || record.market == "DCE" || record.market == "GFEX";
    record.code = fmt::format("{1}{0}{2}{0}{3}", isDashed ? "-" : "", series.underlying->code, letter, strike);
    record.platformCode = record.code;
    record.name = fmt::format("{}{}{}", series.underlying->name, series.isCall ? "购" : "沽", strike);
    record.productId = isIndex ? id : id + (record.market == "CZCE" ? letter : "_o");
    record.productName = series.product->name + std::string("期权");
    record.productGroup = series.underlying->productGroup;
    record.exerciseStyle = isIndex ? 1 : 2;
    record.listingDate = dateText(weekdayFrom((series.month - months(11)) / 18));
    // Options on futures end in the month before delivery.
    setLastDay(day, record, series.month,
               isIndex ? Date(series.month / std::chrono::Friday[3]) : weekdayFrom((series.month - months(1)) / 12));
}

/// One of the series; the strike is counted in its steps. A stock option's code is a number of its own.
Record option(const Day& day, const Row& row, const Series& series, std::int64_t strike, std::string code) {
    const Product& product = *series.product;
    const std::int64_t inside = (series.isCall ? 1 : -1) * (series.ticks - strike * series.step);
    // What the option is worth at once, and a time value that is largest at the money.
    const std::int64_t price = std::max<std::int64_t>(inside, 0) +
                               series.ticks * series.ticks / (40 * series.ticks + 400 * std::abs(inside)) + 1;
    Record record = startRecord(day, row.market, std::move(code));
    record->underlyingMarket = series.underlying->market;
    record->underlyingCode = series.underlying->code;
    record->optionType = series.isCall ? 1 : 2;
    record->strikePrice = product.tick.price(strike * series.step);
    record->volumeMultiple = product.multiple;
    setPrices(*record, product.tick, price,
              std::max<std::int64_t>(series.ticks * product.marginPercent * 8 / 1'000, 1));
    record->preSettlementPrice = record->preClosePrice;
    const std::int64_t margin = price + series.ticks * product.marginPercent / 100;
    record->marginUnit = decimal(margin * product.tick.units * product.multiple, product.tick.decimals);
    setOrderSizes(*record, 1, 100);
    if (row.kind == Kind::StockOption) {
        setStockOption(day, *record, series, strike * series.textStep);
    } else {
        setFutureOption(day, *record, series, strike * series.textStep);
    }
    record->exerciseDate = record->expireDate;
    Dice dice = day.dice(record->code, 0);
    record->preOpenInterest = dice.between(0, 30'000);
    record->preVolume = dice.between(0, record->preOpenInterest);
    return record;
}

/// Deals the row's count to the series, strikes with the underlying's price in their middle.
void visitOptions(const Day& day, const Row& row, const Visit& visit) {
    const AllSeries all = row.kind == Kind::StockOption ? stockSeries(day, row) : futureSeries(day, row);
    // Codes of stock options tell nothing about them: they are numbers in the order of listing.
    std::uint64_t code = row.kind == Kind::StockOption ? std::stoull(row.codes) : 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto strikes = static_cast<std::int64_t>(evenShare(day.count(row), all.size(), i));
        const std::int64_t lowest = std::max<std::int64_t>(all[i].ticks / all[i].step - strikes / 2, 1);
        for (std::int64_t strike = lowest; strike < lowest + strikes; ++strike) {
            visit(option(day, row, all[i], strike, std::to_string(code++)));
        }
    }
}

}  // namespace

void visitContracts(const Day& day, const Row& row, const Visit& visit) {
    if (row.kind == Kind::StockOption || row.kind == Kind::FutureOption) {
        visitOptions(day, row, visit);
    } else if (row.kind == Kind::Spread) {
        visitSpreads(day, row, visit);
    } else {
        visitFutures(day, row, visit);
    }
}

}  // namespace marketday
