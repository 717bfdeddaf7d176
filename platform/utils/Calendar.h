#pragma once

#include <string>

#include "platform/Export.h"

namespace utils {

/// Whether `date` (YYYYMMDD) is today, by the process's local time zone or by the day pinned with setToday. Any other
/// text is not today. Safe from any thread.
PM_PLATFORM_API bool isToday(const std::string& date);

/// Whether `date` is a day of the calendar in the form YYYYMMDD. Safe from any thread.
PM_PLATFORM_API bool isDay(const std::string& date);

/// Pins the day that isToday compares with, so that a snapshot of another day is classified as on its own day. An
/// empty text returns to the clock. Throws std::invalid_argument when `date` is neither empty nor a date.
/// Safe from any thread; loads that run at the same time see either day.
PM_PLATFORM_API void setToday(const std::string& date);

/// Today as YYYYMMDD: the pinned day, else the local date.
PM_PLATFORM_API std::string today();

}  // namespace utils
