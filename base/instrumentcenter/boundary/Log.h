#pragma once

#include <source_location>

#include "platform/utils/LogLine.h"

namespace mxservice {

using utils::kLogError;
using utils::kLogInfo;

/// While it lives, lines of the calling thread wait.
using utils::LogDelay;

using utils::logLine;
using utils::logReaches;

}  // namespace mxservice

/// Logs `text` with the place of the call as its location; `text` is evaluated only when the line will be written.
#define PM_CENTER_LOG(level, file, text)                                                                              \
    do {                                                                                                              \
        if (::mxservice::logReaches(level)) {                                                                         \
            ::mxservice::logLine((level), (text), (file), std::source_location::current().function_name(), __LINE__); \
        }                                                                                                             \
    } while (false)
