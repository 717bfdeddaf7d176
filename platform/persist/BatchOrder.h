#pragma once

#include <cstddef>
#include <vector>

#include "platform/persist/StoreEngine.h"

namespace persist {

/// The entries of a batch in the order of their keys; of several with one key only the last.
std::vector<std::size_t> inKeyOrder(const StoreBatch& batch);

/// About how many bytes the batch has, told from its keys and some of its values.
std::size_t roughSize(const StoreBatch& batch);

}  // namespace persist
