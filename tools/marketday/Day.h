#pragma once

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/record/Records.h"
#include "tools/marketday/Dice.h"
#include "tools/marketday/Rows.h"

namespace marketday {

using Record = boost::shared_ptr<mxservice::CInstrumentDetail>;
using Data = boost::shared_ptr<mxservice::IData>;
using Visit = std::function<void(const Data&)>;
using Date = std::chrono::sys_days;
using Month = std::chrono::year_month;

/// YYYYMMDD.
std::string dateText(Date date);
/// The day itself, or the Monday after it when it is a Saturday or Sunday.
Date weekdayFrom(Date date);
/// "2603".
std::string yymm(Month month);

/// What every record of one day depends on. Immutable.
struct Day {
    std::uint64_t seed;
    Date date;
    std::string today;                ///< the date's text
    std::vector<std::size_t> counts;  ///< by row of kRows

    Dice dice(std::string_view label, std::size_t number) const { return {seed, label, number}; }
    /// The date so many days from today, before it when negative; on a weekday.
    std::string after(std::int64_t days) const { return dateText(weekdayFrom(date + std::chrono::days(days))); }
    Month month() const;

    /// Code number `index` of patterns with blanks between them, which take turns. In a pattern a run of '#' stands for
    /// a number with so many digits that is never 0, a run of '@' for capital letters: "600### 601###", "512##0",
    /// "@@@". Codes of different indexes differ, as long as there are so many. Those of a pattern depend on the pattern
    /// and the seed alone, not on its neighbours. `fromEnd` counts from the other end: those that come last are free
    /// for new issues.
    std::string code(std::string_view patterns, std::size_t index, bool fromEnd = false) const;

    std::size_t count(const Row& row) const { return counts[static_cast<std::size_t>(&row - kRows.data())]; }
    std::size_t count(std::string_view market, Kind kind) const;
};

/// The words of a text that have one blank between them, and one of them; `number` goes round.
std::size_t wordCount(std::string_view words);
std::string_view wordOf(std::string_view words, std::size_t number);

/// An ISIN: two letters of the country, prefix and code, nine letters or digits together, and the check digit of
/// ISO 6166.
std::string isin(std::string_view country, std::string_view prefix, std::string_view code);

/// A record with what every kind has: keys, day, currency, status.
Record startRecord(const Day& day, std::string_view market, std::string code);

/// Step, previous close, and limits that far above and below it; 0: the market has none. The lower limit is one step
/// at least.
void setPrices(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t ticks, std::int64_t bandTicks);

/// Order sizes of a market whose orders come in multiples of `lot`, up to `most` units.
void setOrderSizes(mxservice::CInstrumentDetail& record, std::int32_t lot, std::int32_t most);

/// A record of a row that is no contract, or of several of them: the one with that number among all of the market that
/// are of the kind. The same record whoever asks, so options, baskets and bonds refer to what is listed.
Record listed(const Day& day, const Row& row, std::size_t index);
Record listed(const Day& day, std::string_view market, Kind kind, std::size_t index);

/// The records of a row of contracts: futures, spreads, options.
void visitContracts(const Day& day, const Row& row, const Visit& visit);

/// A catalogue beside the instruments: one record for so many of these, within limits.
struct Catalogue {
    const char* name;
    Data (*make)(const Day& day, std::size_t index);  ///< null: the day is too small for so many
    std::size_t instrumentsForOne;
    std::size_t least;
    std::size_t most;
};

extern const std::span<const Catalogue> kCatalogues;

}  // namespace marketday
