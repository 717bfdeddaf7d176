#pragma once

#include "platform/Export.h"

namespace utils {

/// Hands memory that was freed but kept by the C library back to the system. Takes milliseconds; for use after work
/// that needed much memory for a short time. Does nothing where the C library has no such call. Safe from any thread.
PM_PLATFORM_API void releaseFreeMemory();

}  // namespace utils
