#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "system/Path.h"

// Part of the library and of the tool, hidden in both.

namespace mxservice::snapshot {

/// What bytes that are no UTF-8 are shown as: U+FFFD, in UTF-8.
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// One step through a text.
struct CodePoint {
    char32_t value;      ///< U+FFFD when `valid` is false
    std::size_t length;  ///< bytes taken; 1 when `valid` is false
    bool valid;          ///< the bytes are the shortest UTF-8 form of a Unicode scalar value
};

/// The first code point of `text`, which must not be empty.
CodePoint decodeUtf8(std::string_view text);

bool isUtf8(std::string_view text);

/// Whether a terminal may take the character for a command, also for one to turn the direction of writing.
bool isControl(char32_t value);

/// Appends `text` with every offending byte replaced.
void appendUtf8(std::string& out, std::string_view text);

/// The text as it may be written to a terminal: offending bytes replaced, control characters as "\x1B".
std::string printable(std::string_view text);

// For paths, which hosts and users write in UTF-8.
using sys::pathOf;
using sys::textOf;

}  // namespace mxservice::snapshot
