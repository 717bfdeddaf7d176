#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// The words of a line as a shell takes them apart: blanks separate, '...' and "..." keep them, a backslash takes the
/// next character as it is (not within '...'). Nothing when a quotation is not closed.
std::optional<std::vector<std::string>> shellWords(std::string_view line);

}  // namespace inscenter
