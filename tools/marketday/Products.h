#pragma once

#include <cstdint>
#include <span>

#include "tools/marketday/Rows.h"

namespace marketday {

/// The months in which a product is delivered; IndexSeries have options and no futures, Spot is not delivered.
enum class Cycle : std::uint8_t { Monthly, OddMonths, Quarterly, IndexMonths, IndexSeries, Spot };

/// As in CInstrumentDetail::productGroup.
enum class Group : std::int32_t { None, Commodity, InterestRate, Index, Currency };

struct OuterMarket {
    const char* key;
    const char* name;
    const char* currency;
};

/// What futures, options on futures and gold are contracts of.
struct Product {
    const char* market;
    const char* id;
    const char* name;
    const char* spell;
    Tick tick;
    std::int32_t multiple;
    std::int32_t marginPercent;  ///< 0: paid in full
    std::int64_t price;          ///< about where it trades, in steps
    Cycle cycle;
    std::int64_t strikeStep;  ///< of its options, in the unit of the price; 0: no options
    Group group = Group::Commodity;
    const OuterMarket* outer = nullptr;  ///< of outer futures
};

/// Market by market.
extern const std::span<const Product> kProducts;

}  // namespace marketday
