#pragma once

// The body of utils::hash for callers inside the libraries: a lookup spends a tenth of its time in the call otherwise.
// Not installed; hosts call utils::hash.

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstdint>
#include <string_view>

namespace utils {

inline std::uint64_t hashBytes(std::string_view text) {
    return XXH3_64bits(text.data(), text.size());
}

}  // namespace utils
