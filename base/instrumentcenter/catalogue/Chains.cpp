#include "base/instrumentcenter/catalogue/Chains.h"

#include <algorithm>
#include <array>
#include <compare>
#include <iterator>
#include <string>

#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/Split.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {
namespace {

constexpr std::int32_t kCall = 1;
constexpr std::int32_t kPut = 2;

constexpr std::array<const char*, 9> kDerivativeMarkets{
    market::kShanghaiOption, market::kShenzhenOption, market::kOuterFuture, market::kFutures[0], market::kFutures[1],
    market::kFutures[2],     market::kFutures[3],     market::kFutures[4],  market::kFutures[5]};

bool isStockOptionMarket(std::string_view market) {
    return market == market::kShanghaiOption || market == market::kShenzhenOption;
}

bool isFuturesExchange(std::string_view market) {
    return std::find(market::kFutures.begin(), market::kFutures.end(), market) != market::kFutures.end();
}

/// Whether a market may list options on something of another one.
bool listsOptionsOn(std::string_view market, std::string_view underlyingMarket) {
    if (underlyingMarket == market::kShanghai) {
        return market == market::kShanghaiOption || market == market::kCffex;
    }
    if (underlyingMarket == market::kShenzhen) {
        return market == market::kShenzhenOption || market == market::kCffex;
    }
    return market == underlyingMarket && (isFuturesExchange(market) || market == market::kOuterFuture);
}

// Ends every order, so that no two records of different keys are equal: else the two centers, which meet records in
// different orders, would list them differently.
bool comesFirst(const CInstrumentDetail& a, const CInstrumentDetail& b) {
    const int markets = foldedMarket(a.market).compare(foldedMarket(b.market));
    return markets != 0 ? markets < 0 : a.code < b.code;
}

bool expiresFirst(const InstrumentPtr& a, const InstrumentPtr& b) {
    if (const int days = a->expireDate.compare(b->expireDate)) {
        return days < 0;
    }
    return a->code != b->code ? a->code < b->code : comesFirst(*a, *b);
}

bool standsFirst(const InstrumentPtr& a, const InstrumentPtr& b) {
    if (const int days = a->expireDate.compare(b->expireDate)) {
        return days < 0;
    }
    // A strike may be no number at all: with the plain comparison such records would have no order.
    const auto strikes = std::weak_order(a->strikePrice, b->strikePrice);
    if (std::is_neq(strikes)) {
        return std::is_lt(strikes);
    }
    return a->optionType != b->optionType ? a->optionType < b->optionType : comesFirst(*a, *b);
}

/// Calls `visit` with every record, having fetched the given members and the count of references, which visiting
/// raises.
template <class Visit, class... Members>
void visitPlaces(const RecordPlaces& places, const Visit& visit, Members... members) {
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (i + kRecordsAhead < places.size()) {
            prefetchMembers(*places[i + kRecordsAhead], members...);
            prefetchCount(*places[i + kRecordsAhead]);
        }
        visit(*places[i]);
    }
}

/// Sorts each of the table's lists. Records of one list lie far apart: fetched before, the sort waits once for all.
template <class Sort, class... Members>
void sortAll(RecordTable& table, Sort sort, Members... members) {
    for (auto& [key, records] : table) {
        for (const InstrumentPtr& record : records) {
            prefetchMembers(record, members...);
        }
        sort(records);
    }
}

}  // namespace

Underlying underlyingOf(const CInstrumentDetail& record) {
    if (record.optionType != kCall && record.optionType != kPut) {
        return {};
    }
    const std::string_view market = record.market;
    const bool isStockOption = isStockOptionMarket(market);
    Underlying underlying{record.underlyingMarket, record.underlyingCode};
    // What the record says itself goes first; its market and its product only where it is silent.
    if (underlying.market.empty()) {
        underlying.market = !isStockOption                      ? market
                            : market == market::kShanghaiOption ? market::kShanghai
                                                                : market::kShenzhen;
    }
    // Such as "50ETF(510050)".
    if (underlying.code.empty() && isStockOption) {
        const auto parts = split(record.productId, "()");
        underlying.code = parts.size() >= 2 ? parts[1] : std::string_view();
    }
    // One that names something of a market where it is not looked for is in no chain.
    return listsOptionsOn(market, underlying.market) ? underlying : Underlying();
}

std::uint64_t underlyingKey(std::string_view market, std::string_view code) {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
    return marketKey(market) * kOdd + textKey(code);
}

std::vector<MarketKey> optionMarketsOf(std::string_view underlyingMarket) {
    std::vector<MarketKey> markets;
    markets.reserve(std::size(kDerivativeMarkets));
    for (const char* const market : kDerivativeMarkets) {
        if (listsOptionsOn(market, underlyingMarket)) {
            markets.push_back(marketKey(market));
        }
    }
    return markets;
}

std::vector<MarketKey> derivativeMarkets() {
    std::vector<MarketKey> markets(std::size(kDerivativeMarkets));
    std::transform(std::begin(kDerivativeMarkets), std::end(kDerivativeMarkets), markets.begin(),
                   [](const char* market) { return marketKey(market); });
    return markets;
}

bool isContract(const InstrumentPtr& record) {
    return !record->productId.empty() && isFuturesExchange(record->market) &&
           !CFtOptionDataHelper::isFtOptionInstrument(record);
}

void sortAsContracts(std::vector<InstrumentPtr>& records) {
    std::sort(records.begin(), records.end(), expiresFirst);
}

void sortAsChain(std::vector<InstrumentPtr>& options) {
    std::sort(options.begin(), options.end(), standsFirst);
}

void sortByKey(std::vector<InstrumentPtr>& records) {
    std::sort(records.begin(), records.end(),
              [](const InstrumentPtr& a, const InstrumentPtr& b) { return comesFirst(*a, *b); });
}

DerivativeTables deriveDerivatives(const RecordPlaces& records) {
    DerivativeTables tables;
    visitPlaces(
        records,
        [&](const InstrumentPtr& record) {
            if (isContract(record)) {
                tables.contractsByProduct[textKey(record->productId)].push_back(record);
                // No record is both: what has the option type of an option is no contract.
            } else if (const Underlying underlying = underlyingOf(*record); !underlying.code.empty()) {
                tables.optionsByUnderlying[underlyingKey(underlying.market, underlying.code)].push_back(record);
            }
        },
        &CInstrumentDetail::market, &CInstrumentDetail::optionType, &CInstrumentDetail::productId,
        &CInstrumentDetail::underlyingMarket, &CInstrumentDetail::underlyingCode);
    sortAll(tables.contractsByProduct, sortAsContracts, &CInstrumentDetail::code, &CInstrumentDetail::expireDate);
    sortAll(tables.optionsByUnderlying, sortAsChain, &CInstrumentDetail::optionType, &CInstrumentDetail::expireDate,
            &CInstrumentDetail::strikePrice);
    return tables;
}

RecordTable deriveDays(const RecordPlaces& records, std::string CInstrumentDetail::*date) {
    RecordTable table;
    visitPlaces(
        records,
        [&](const InstrumentPtr& record) {
            const std::string& day = (*record).*date;
            // An empty text stands for an unknown day, and nobody asks for what has none.
            if (!day.empty()) {
                table[textKey(day)].push_back(record);
            }
        },
        date);
    sortAll(table, sortByKey, &CInstrumentDetail::market, &CInstrumentDetail::code);
    return table;
}

}  // namespace mxservice
