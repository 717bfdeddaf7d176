#pragma once

#include "platform/Export.h"
#include "platform/utils/LogLine.h"

#ifndef PM_PLAIN_LOG

#include <log4cxx/logger.h>

/// The platform's logger, named "MXStdLogger". Its level and appenders are the host's, set through log4cxx. It is
/// destroyed with the other static objects when the process exits; the log switch is off from then on.
extern PM_PLATFORM_API log4cxx::LoggerPtr g_MXStdLogger;

#else

#include <functional>
#include <string>

// In builds without log4cxx (PM_PLAIN_LOG) a host gets each line as it is.

namespace utils {

/// Takes a line, with the place that logged it, on the thread that logs it. May be called by several threads at once.
using LogSink =
    std::function<void(int level, const std::string& text, const char* file, const char* function, int line)>;

/// Where lines of this level and above go from now on; lines under way may still reach the former sink. An empty one
/// restores the first: standard error. Safe from any thread.
PM_PLATFORM_API void setLogSink(LogSink sink, int lowestLevel = kLogInfo);

}  // namespace utils

#endif
