#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "tools/inscenter/generate/RecordParts.h"

namespace inscenter::generate {

/// When the contracts of a product are delivered.
enum class Cycle : std::uint8_t { Monthly, OddMonths, Quarterly, Index };

struct FutureProduct {
    const char* id;
    const char* name;
    const char* spell;
    Tick tick;
    std::int32_t multiple;
    std::int32_t marginPercent;
    std::int64_t price;  ///< about where it trades, in steps
    Cycle cycle;
    std::int64_t strikeStep;  ///< of its options, in the unit of the price; 0: no options
};

struct FutureExchange {
    const char* market;
    Segment futures;
    Segment options;
    std::span<const FutureProduct> products;        ///< those with options first
    std::span<const FutureProduct> optionProducts;  ///< on indexes, not on futures of the exchange; mostly none

    /// The products that options are written on.
    std::span<const FutureProduct> withOptions() const;
};

/// The six exchanges in their usual order.
std::span<const FutureExchange> futureExchanges();

/// Which contracts a snapshot has: the count of the exchange is dealt to as many products as it suffices for.
class FutureListing {
public:
    FutureListing(const MarketDay& day, const FutureExchange& exchange);

    std::size_t products() const { return products_; }
    /// Delivery months of a product.
    std::size_t months(std::size_t product) const { return records(product) - aliases(product); }
    /// Continuous contracts of a product.
    std::size_t aliases(std::size_t product) const;

private:
    std::size_t records(std::size_t product) const { return evenShare(count_, products_, product); }

    std::size_t count_;
    std::size_t products_;
};

/// The delivery month of a product's contract, counted from the nearest.
YearMonth deliveryMonth(const MarketDay& day, const FutureProduct& product, std::size_t contract);

/// "rb2605", or "MA605" on the exchange that leaves the decade out.
std::string contractCode(std::string_view market, const FutureProduct& product, const YearMonth& delivery);

/// The settlement price of the previous day, in steps.
std::int64_t settlementTicks(const MarketDay& day, const FutureProduct& product, std::size_t contract);

}  // namespace inscenter::generate
