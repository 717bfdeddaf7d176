#include "platform/utils/Calendar.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <stdexcept>

namespace utils {
namespace {

/// The pinned day as a number (20260302); 0 follows the clock.
std::atomic<std::int32_t> pinnedDay{0};

std::int32_t dayOf(const std::string& date) {
    const bool digits = std::all_of(date.begin(), date.end(), [](char c) { return c >= '0' && c <= '9'; });
    return date.size() == 8 && digits ? std::stoi(date) : 0;
}

/// The local date at a time. A load asks for every stock; converting the time anew for each would cost more than the
/// rest of their classification, so a thread converts it once a second.
std::int32_t localDay(std::time_t now) {
    thread_local std::time_t lastTime = -1;
    thread_local std::int32_t lastDay = 0;
    if (now != lastTime) {
        const std::tm local = fmt::localtime(now);
        lastDay = (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
        lastTime = now;
    }
    return lastDay;
}

std::int32_t currentDay() {
    const std::int32_t pinned = pinnedDay.load(std::memory_order_relaxed);
    return pinned != 0 ? pinned : localDay(std::time(nullptr));
}

}  // namespace

bool isToday(const std::string& date) {
    const std::int32_t day = dayOf(date);
    return day != 0 && day == currentDay();
}

bool isDay(const std::string& date) {
    const std::int32_t day = dayOf(date);
    const std::chrono::year_month_day parts(std::chrono::year(day / 10000),
                                            std::chrono::month(static_cast<unsigned>(day / 100 % 100)),
                                            std::chrono::day(static_cast<unsigned>(day % 100)));
    return day >= 10000 && parts.ok();  // there is no year 0
}

void setToday(const std::string& date) {
    if (!date.empty() && !isDay(date)) {
        throw std::invalid_argument(fmt::format("not a date of the form YYYYMMDD: \"{}\"", date));
    }
    pinnedDay.store(dayOf(date), std::memory_order_relaxed);
}

std::string today() {
    return fmt::format("{:08}", currentDay());
}

}  // namespace utils
