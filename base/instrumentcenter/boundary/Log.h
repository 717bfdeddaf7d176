#pragma once

#include <string>

#ifndef PM_NAMED_PLATFORM_ONLY
#include "platform/utils/LogLine.h"
#endif

namespace mxservice {

#ifdef PM_NAMED_PLATFORM_ONLY

/// Levels by the values that log4cxx gives them.
constexpr int kLogInfo = 20000;
constexpr int kLogError = 40000;

/// Whether a line of this level would reach the platform's logger.
bool logReaches(int level);
/// Hands one finished line to it; what an appender throws is swallowed.
void logLine(int level, const std::string& text, const char* file, const char* function, int line) noexcept;

/// Delays nothing: the store's lines are not ours to hold, and the center logs none where one of these lives. So an
/// appender must not load from within a line of the store.
struct LogDelay {
    LogDelay() {}
};

#else

using utils::kLogError;
using utils::kLogInfo;
using utils::LogDelay;
using utils::logLine;
using utils::logReaches;

#endif

}  // namespace mxservice

/// The full signature of the function around it.
#if defined(_MSC_VER)
#define PM_CENTER_FUNCTION __FUNCSIG__
#else
#define PM_CENTER_FUNCTION __PRETTY_FUNCTION__
#endif

/// Logs `text` with the place of the call as its location; `text` is evaluated only when the line will be written.
#define PM_CENTER_LOG(level, file, text)                                                 \
    do {                                                                                 \
        if (::mxservice::logReaches(level)) {                                            \
            ::mxservice::logLine((level), (text), (file), PM_CENTER_FUNCTION, __LINE__); \
        }                                                                                \
    } while (false)
