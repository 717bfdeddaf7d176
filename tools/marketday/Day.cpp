#include "tools/marketday/Day.h"

#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cassert>

namespace marketday {
namespace {

// Prime, and no divisor of 9, 99, 999, ... up to eight digits, nor of a power of 26: multiples of it run through all
// remainders before one comes again, and neighbours in a list do not have neighbouring codes.
constexpr std::uint64_t kStride = 7919;

}  // namespace

double decimal(std::int64_t units, int decimals) {
    static constexpr double kPowers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};  // std::pow need not be exact
    return static_cast<double>(units) / kPowers[decimals];
}

std::string dateText(Date date) {
    const std::chrono::year_month_day day(date);
    return fmt::format("{:04}{:02}{:02}", static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                       static_cast<unsigned>(day.day()));
}

Date weekdayFrom(Date date) {
    const unsigned day = std::chrono::weekday(date).iso_encoding();
    return day <= 5 ? date : date + std::chrono::days(8 - day);
}

std::string yymm(Month month) {
    return fmt::format("{:02}{:02}", static_cast<int>(month.year()) % 100, static_cast<unsigned>(month.month()));
}

Month Day::month() const {
    const std::chrono::year_month_day day(date);
    return day.year() / day.month();
}

std::size_t wordCount(std::string_view words) {
    return 1 + static_cast<std::size_t>(std::count(words.begin(), words.end(), ' '));
}

std::string_view wordOf(std::string_view words, std::size_t number) {
    for (std::size_t i = number % wordCount(words); i > 0; --i) {
        words.remove_prefix(words.find(' ') + 1);
    }
    return words.substr(0, words.find(' '));
}

std::string Day::code(std::string_view patterns, std::size_t index, bool fromEnd) const {
    const std::string_view pattern = wordOf(patterns, index);
    std::string text(pattern);
    const std::size_t first = pattern.find_first_of("#@");
    if (first == std::string_view::npos) {
        return text;
    }
    const std::size_t last = pattern.find_last_of("#@");
    const bool isNumber = pattern[first] == '#';
    const std::uint64_t base = isNumber ? 10 : 26;
    std::uint64_t numbers = 1;
    for (std::size_t i = first; i <= last; ++i) {
        numbers *= base;
    }
    numbers -= isNumber ? 1 : 0;
    std::uint64_t number = index / wordCount(patterns);
    assert(number < numbers);
    number = fromEnd ? numbers - 1 - number : number;
    // Each pattern begins elsewhere, so that they do not run through the same numbers side by side.
    number = (number * kStride + dice(pattern, 0).next() % numbers) % numbers + (isNumber ? 1 : 0);
    for (std::size_t at = last + 1; at-- > first; number /= base) {
        text[at] = static_cast<char>((isNumber ? '0' : 'A') + static_cast<char>(number % base));
    }
    return text;
}

std::size_t Day::count(std::string_view market, Kind kind) const {
    std::size_t total = 0;
    for (const Row& row : kRows) {
        total += row.market == market && row.kind == kind ? count(row) : 0;
    }
    return total;
}

std::string isin(std::string_view country, std::string_view prefix, std::string_view code) {
    std::string text = fmt::format("{}{}{}", country, prefix, code);
    std::string digits;  // letters count as two-digit numbers, A is 10
    for (const char letter : text) {
        digits += letter >= 'A' && letter <= 'Z' ? std::to_string(letter - 'A' + 10) : std::string(1, letter);
    }
    int sum = 0;
    bool doubled = true;  // every other digit from the right, beginning with the last
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, doubled = !doubled) {
        const int value = (*digit - '0') * (doubled ? 2 : 1);
        sum += value / 10 + value % 10;
    }
    text += static_cast<char>('0' + (10 - sum % 10) % 10);
    return text;
}

Record startRecord(const Day& day, std::string_view market, std::string code) {
    auto record = boost::make_shared<mxservice::CInstrumentDetail>();
    record->market = market;
    record->platformCode = code;
    record->code = std::move(code);
    record->currency = "CNY";
    record->tradingDay = day.today;
    record->tradingStatus = 1;
    return record;
}

void setPrices(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t ticks, std::int64_t bandTicks) {
    record.priceTick = tick.price(1);
    record.pricePrecision = tick.decimals;
    record.preClosePrice = tick.price(ticks);
    if (bandTicks > 0) {
        record.upperLimitPrice = tick.price(ticks + bandTicks);
        record.lowerLimitPrice = tick.price(std::max<std::int64_t>(ticks - bandTicks, 1));
    }
}

void setOrderSizes(mxservice::CInstrumentDetail& record, std::int32_t lot, std::int32_t most) {
    record.lotSize = lot;
    record.minLimitOrderVolume = lot;
    record.maxLimitOrderVolume = most;
    record.minMarketOrderVolume = lot;
    record.maxMarketOrderVolume = most / 2 / lot * lot;  // divided first, so that it stays a multiple
    record.orderVolumeStep = lot;
}

}  // namespace marketday
