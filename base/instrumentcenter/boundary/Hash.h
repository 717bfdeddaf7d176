#pragma once

#include "platform/utils/HashInline.h"

namespace mxservice {

/// utils::hash of bytes that are no std::string.
using utils::hashBytes;

}  // namespace mxservice
