#pragma once

#include <string_view>
#include <vector>

namespace mxservice {

/// The parts of `text` between any of `separators`, empty ones included; always one part more than separators met.
inline std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0;;) {
        const std::size_t end = text.find_first_of(separators, begin);
        parts.push_back(text.substr(begin, end - begin));
        if (end == std::string_view::npos) {
            return parts;
        }
        begin = end + 1;
    }
}

}  // namespace mxservice
