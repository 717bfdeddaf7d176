#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// A line in words, whose answer may go to a file.
struct ShellLine {
    std::vector<std::string> words;
    std::optional<std::size_t> file;  ///< where in the words stands what is behind a ">" that is not quoted
    bool append = false;              ///< it was ">>"
};

/// Takes a line apart as a shell does: blanks separate, '...' and "..." keep them, a backslash takes a
/// blank, a quotation mark, ">", "#" or another backslash as it is (not within '...'). A ">" that begins a word is none
/// of the words; within a word, as in a condition, it is like any other character. Nothing when a quotation is not
/// closed.
std::optional<ShellLine> shellLine(std::string_view line);

}  // namespace inscenter
