#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "feed/Book.h"
#include "feed/Feed.h"
#include "feed/RecordBytes.h"

// Days and changes as bytes: a sequence of operations in zstd frames with checksums, a change in one, a day in as many
// as make several threads worth while. What a message carries, and what the cache file keeps.

namespace mxservice::feed {

/// A day, every load in its order; `book` becomes what a log holds after it.
std::string packDay(const Day& day, Book& book);
/// A change; `book` follows it. Within one change removals come first: a key that is both removed and put is put.
std::string packChange(const Change& change, Book& book);

/// The same back. `book` follows from the bytes as they came, so that equal digests mean equal bytes. Throw BadBytes
/// when they are damaged or would take more than `maxBytes` of memory; `book` is then of no use.
Day unpackDay(std::string_view packed, std::uint64_t maxBytes, Book& book);
Change unpackChange(std::string_view packed, std::uint64_t maxBytes, Book& book);

}  // namespace mxservice::feed
