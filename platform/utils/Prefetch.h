#pragma once

#include <algorithm>
#include <cstddef>

namespace utils {

/// Has the lines of a stretch of memory come into the cache, all together; a walk through it would wait for one after
/// the other. Of a long stretch only the begin: the processor itself sees where the walk is going.
inline void prefetch(const void* begin, std::size_t bytes) {
#ifdef __GNUC__
    constexpr std::size_t kLineBytes = 64;
    constexpr std::size_t kMost = 2048;
    for (std::size_t at = 0; at < std::min(bytes, kMost); at += kLineBytes) {
        __builtin_prefetch(static_cast<const char*>(begin) + at);
    }
#endif
}

}  // namespace utils
