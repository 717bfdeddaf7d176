#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#ifdef PM_NAMED_PLATFORM_ONLY
#include "platform/utils/Hash.h"
#else
#include "platform/utils/HashInline.h"
#endif

namespace mxservice {

/// utils::hash of bytes that are no std::string.
#ifdef PM_NAMED_PLATFORM_ONLY
inline std::uint64_t hashBytes(std::string_view text) {
    return utils::hash(std::string(text));
}
#else
using utils::hashBytes;
#endif

}  // namespace mxservice
