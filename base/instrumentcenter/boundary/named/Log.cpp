#include "base/instrumentcenter/boundary/Log.h"

#include <log4cxx/level.h>
#include <log4cxx/spi/location/locationinfo.h>

#include "platform/utils/Log.h"
#include "platform/utils/LogCenter.h"

namespace mxservice {

bool logReaches(int level) {
    return utils::CLogCenter::logEnabled() && g_MXStdLogger->isEnabledFor(log4cxx::Level::toLevel(level));
}

void logLine(int level, const std::string& text, const char* file, const char* function, int line) noexcept {
    try {
        using log4cxx::spi::LocationInfo;
        g_MXStdLogger->forcedLog(log4cxx::Level::toLevel(level), text,
                                 LocationInfo(file, LocationInfo::calcShortFileName(file), function, line));
    } catch (...) {
        // The line is lost; the operation that wanted to log it is not.
    }
}

}  // namespace mxservice
