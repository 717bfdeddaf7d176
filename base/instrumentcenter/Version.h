#pragma once

#include "base/instrumentcenter/Export.h"

/// @name The version of these headers
/// Build files take it from here. While the major version is 0, a minor version may change the interface.
/// @{
#define PM_INSTRUMENTCENTER_VERSION_MAJOR 0
#define PM_INSTRUMENTCENTER_VERSION_MINOR 1
#define PM_INSTRUMENTCENTER_VERSION_PATCH 0
/// @}

namespace mxservice {

/// The version of the library that the process has loaded, as "0.1.0": another one than that of the headers where a
/// host runs with a later patch version than it was compiled with. Safe from any thread; the text stays.
PM_CENTER_API const char* version() noexcept;

}  // namespace mxservice
