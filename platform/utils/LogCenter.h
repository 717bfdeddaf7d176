#pragma once

#include "platform/Export.h"

namespace utils {

/// The platform's log switch. Off until a host switches it on; while it is off nothing is formatted or logged.
/// Safe from any thread.
class PM_PLATFORM_API CLogCenter {
public:
    /// Whether lines are logged; one relaxed atomic load.
    static bool logEnabled();
    /// Switches logging on or off for the whole process.
    static void setLogEnabled(bool enabled);
};

}  // namespace utils
