#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// The words of a line as a shell takes them apart: blanks separate, '...' and "..." keep them, a backslash takes the
/// next character as it is (not within '...'). Nothing when a quotation is not closed.
std::optional<std::vector<std::string>> shellWords(std::string_view line);

/// A line whose answer may go to a file.
struct ShellLine {
    std::vector<std::string> words;
    std::optional<std::size_t> file;  ///< where in the words stands what is behind a ">" that is not quoted
    bool append = false;              ///< it was ">>"
};

/// The same; a ">" that begins a word is none of the words. Within a word, as in a condition, it is like any other
/// character.
std::optional<ShellLine> shellLine(std::string_view line);

}  // namespace inscenter
