#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/inscenter/generate/Dice.h"
#include "tools/inscenter/generate/SegmentPlan.h"

namespace inscenter::generate {

using Date = std::chrono::sys_days;

/// YYYYMMDD.
std::string dateText(Date date);
/// Empty when the text is no day of the calendar.
std::optional<Date> parseDate(std::string_view text);
/// The day itself, or the Monday after it when it is a Saturday or Sunday.
Date weekdayFrom(Date date);

/// A year and month of the calendar, as delivery months and expiries are counted.
struct YearMonth {
    int year = 0;
    int month = 0;  ///< 1 to 12

    YearMonth plus(int months) const;
    /// "2603".
    std::string yymm() const;
    Date day(int dayOfMonth) const;
    /// std::chrono::Friday[3] is the third Friday.
    Date day(std::chrono::weekday_indexed weekday) const;
};

/// What every record of one snapshot depends on. Immutable.
class MarketDay {
public:
    MarketDay(std::uint64_t seed, Date date, const SegmentCounts& counts)
        : seed_(seed), date_(date), text_(dateText(date)), counts_(counts) {}

    Seed seed(std::string_view label) const { return seed_.child(label); }
    /// Shifts the numbers that codes are made with.
    std::uint64_t salt() const { return seed_.child("codes").value(); }

    Date date() const { return date_; }
    const std::string& today() const { return text_; }
    YearMonth month() const;
    /// The date so many days from today, before it when negative; on a weekday.
    std::string after(std::int64_t days) const { return dateText(weekdayFrom(date_ + std::chrono::days(days))); }

    std::size_t count(Segment segment) const { return counts_[static_cast<std::size_t>(segment)]; }

private:
    Seed seed_;
    Date date_;
    std::string text_;
    SegmentCounts counts_;
};

}  // namespace inscenter::generate
