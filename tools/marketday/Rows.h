#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace marketday {

/// units / 10^decimals. Amounts are counted in integers and divided once: the nearest double, the same everywhere.
double decimal(std::int64_t units, int decimals);

/// A price step: 0.005 is {5, 3}.
struct Tick {
    std::int32_t units = 1;
    std::int32_t decimals = 2;

    double price(std::int64_t ticks) const { return decimal(ticks * units, decimals); }
};

/// How something other than a contract trades.
struct Terms {
    Tick tick = {};
    std::int64_t low = 0;  ///< prices, in steps
    std::int64_t high = 0;
    int limitPerMille = 0;  ///< from the previous close; 0: no limits
    std::int32_t lot = 0;
    std::int32_t mostOrdered = 0;
};

/// How a row's records are made. From HongKong on they have a form of their own, from Future on they are contracts; the
/// tables of the functions that make them are in this order.
enum class Kind : std::uint8_t {
    Index,
    Share,
    Fund,
    Treasury,
    Convertible,
    Bond,
    Repo,
    Note,
    HongKong,
    UnitedStates,
    Issue,
    Future,
    Spread,
    FutureOption,
    StockOption
};

/// A group of like records: the day's instruments are row after row of them.
struct Row {
    const char* market;
    Kind kind;
    const char* codes;  ///< patterns of Day::code; also the label of the row's dice
    const char* text;   ///< of names; of shares, the part of the ISIN; of stock options, the market of the funds

    std::size_t least;  ///< enough for every kind of record of the row
    std::size_t usual;  ///< on an ordinary trading day
    std::size_t share;  ///< of what exceeds an ordinary day, in proportion; 0: never more than usual
    std::size_t most;   ///< as many codes as the patterns have room for

    Terms terms;
};

extern const std::span<const Row> kRows;

/// The largest day whose codes are all different.
std::size_t largestDay();

/// How many records each row gets in a day of `size` instruments, at most largestDay(); they add up to `size`.
std::vector<std::size_t> planDay(std::size_t size);

}  // namespace marketday
