#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

namespace utils {

/// The 64-bit key of a text: XXH3, 64 bit, no seed, over the bytes of the text (xxHash 0.8 and later). Stored in
/// every document key; never change. Any bytes are allowed, embedded NULs included. Safe from any thread.
PM_PLATFORM_API std::uint64_t hash(const std::string& text);

/// The stock key text of an instrument: the market directly followed by the code ("SH" and "600000" give "SH600000").
/// Safe from any thread.
PM_PLATFORM_API std::string ovStockKey(const std::string& market, const std::string& code);

}  // namespace utils
