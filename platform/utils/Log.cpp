#include "platform/utils/Log.h"

#include <log4cxx/level.h>
#include <log4cxx/spi/location/locationinfo.h>

#include <atomic>

log4cxx::LoggerPtr g_MXStdLogger = log4cxx::Logger::getLogger("MXStdLogger");

namespace utils {
namespace {

std::atomic<bool> enabledSwitch{false};

/// Destroyed before the logger is: threads that still run when the process exits find the switch off.
struct SwitchOffAtExit {
    ~SwitchOffAtExit() { enabledSwitch.store(false, std::memory_order_relaxed); }
} const switchOffAtExit;

}  // namespace

bool CLogCenter::logEnabled() {
    return enabledSwitch.load(std::memory_order_relaxed);
}

void CLogCenter::setLogEnabled(bool enabled) {
    enabledSwitch.store(enabled, std::memory_order_relaxed);
}

bool logReaches(int level) {
    return CLogCenter::logEnabled() && g_MXStdLogger && g_MXStdLogger->isEnabledFor(log4cxx::Level::toLevel(level));
}

void logLine(int level, const std::string& text, const char* file, const char* function, int line) noexcept {
    try {
        const log4cxx::spi::LocationInfo location(file, log4cxx::spi::LocationInfo::calcShortFileName(file), function,
                                                  line);
        g_MXStdLogger->forcedLog(log4cxx::Level::toLevel(level), text, location);
    } catch (...) {
        // The line is lost; the operation that wanted to log it is not.
    }
}

}  // namespace utils
