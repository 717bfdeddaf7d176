#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace persist {

constexpr std::size_t kMaxKeyBytes = 511;  // LMDB's limit

/// Whether a database may have the name. Those with a dot in front are of directories that are being cleared away. What
/// one system cannot have as a directory is refused by all, so that a store can be carried from one to the other.
bool isSafeName(const std::string& name);

/// Whether a document can have the key.
bool isSafeKey(std::string_view key);

/// A name from outside, fit for a log line.
std::string shown(const std::string& name);

}  // namespace persist
