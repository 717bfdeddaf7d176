#pragma once

#include <log4cxx/logger.h>

#include <string>

#include "platform/Export.h"
#include "platform/utils/LogCenter.h"

/// The platform's logger, named "MXStdLogger". Its level and appenders are the host's, set through log4cxx. It is
/// destroyed with the other static objects when the process exits; the log switch is off from then on.
extern PM_PLATFORM_API log4cxx::LoggerPtr g_MXStdLogger;

namespace utils {

/// Levels by the values that log4cxx gives them.
constexpr int kLogInfo = 20000;
constexpr int kLogError = 40000;

/// Whether a line of this level would reach the logger: the log switch is on and the logger is enabled for it.
PM_PLATFORM_API bool logReaches(int level);

/// Hands one finished line to the logger. `file` and `function` must live as long as the process. Never throws: what an
/// appender throws is swallowed, because a catalogue that cannot log still answers.
PM_PLATFORM_API void logLine(int level, const std::string& text, const char* file, const char* function,
                             int line) noexcept;

}  // namespace utils

/// Logs `text` with the place of the call as its location; `text` is evaluated only when the line will be written.
#define PM_LOG(level, file, text)                                                     \
    do {                                                                              \
        if (::utils::logReaches(level)) {                                             \
            ::utils::logLine((level), (text), (file), __PRETTY_FUNCTION__, __LINE__); \
        }                                                                             \
    } while (false)
