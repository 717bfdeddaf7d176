#pragma once

#include <log4cxx/logger.h>

#include "platform/Export.h"
#include "platform/utils/LogLine.h"

/// The platform's logger, named "MXStdLogger". Its level and appenders are the host's, set through log4cxx. It is
/// destroyed with the other static objects when the process exits; the log switch is off from then on.
extern PM_PLATFORM_API log4cxx::LoggerPtr g_MXStdLogger;
