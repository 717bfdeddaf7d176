#include "tools/inscenter/generate/MarketDay.h"

#include <algorithm>

namespace inscenter::generate {
namespace {

void appendDigits(std::string& text, int number, int digits) {
    const std::size_t start = text.size();
    text.append(static_cast<std::size_t>(digits), '0');
    for (std::size_t at = text.size(); at > start && number > 0; number /= 10) {
        text[--at] = static_cast<char>('0' + number % 10);
    }
}

}  // namespace

std::string dateText(Date date) {
    const std::chrono::year_month_day day(date);
    std::string text;
    appendDigits(text, static_cast<int>(day.year()), 4);
    appendDigits(text, static_cast<int>(static_cast<unsigned>(day.month())), 2);
    appendDigits(text, static_cast<int>(static_cast<unsigned>(day.day())), 2);
    return text;
}

std::optional<Date> parseDate(std::string_view text) {
    const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
    if (text.size() != 8 || !std::all_of(text.begin(), text.end(), isDigit)) {
        return std::nullopt;
    }
    int number = 0;
    for (const char letter : text) {
        number = number * 10 + (letter - '0');
    }
    const std::chrono::year_month_day day(std::chrono::year(number / 10000),
                                          std::chrono::month(static_cast<unsigned>(number / 100 % 100)),
                                          std::chrono::day(static_cast<unsigned>(number % 100)));
    // Listing dates reach decades back and maturities decades ahead; both must keep four digits.
    if (!day.ok() || number < 19000101 || number > 29991231) {
        return std::nullopt;
    }
    return Date(day);
}

Date weekdayFrom(Date date) {
    const unsigned day = std::chrono::weekday(date).iso_encoding();
    return day <= 5 ? date : date + std::chrono::days(8 - day);
}

YearMonth YearMonth::plus(int months) const {
    const int index = year * 12 + month - 1 + months;
    return {index / 12, index % 12 + 1};
}

std::string YearMonth::yymm() const {
    std::string text;
    appendDigits(text, year % 100, 2);
    appendDigits(text, month, 2);
    return text;
}

Date YearMonth::day(int dayOfMonth) const {
    return Date(std::chrono::year(year) / month / dayOfMonth);
}

Date YearMonth::day(std::chrono::weekday_indexed weekday) const {
    return Date(std::chrono::year(year) / month / weekday);
}

YearMonth MarketDay::month() const {
    const std::chrono::year_month_day day(date_);
    return {static_cast<int>(day.year()), static_cast<int>(static_cast<unsigned>(day.month()))};
}

}  // namespace inscenter::generate
