#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace sys {

/// The path of a name that a host gives, in UTF-8 on every system: Windows would read a plain text in the code page of
/// the process. Throws std::system_error for malformed UTF-8 there; elsewhere a path is bytes, and any will do.
inline std::filesystem::path pathOf(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

inline std::string textOf(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

/// Whether the text can be a path at all. One with a NUL in it can not: the system would read what stands before, and
/// every database beneath such a root would be the root itself.
inline bool isPath(const std::string& utf8) {
    try {
        return pathOf(utf8).native().find(std::filesystem::path::value_type()) ==
               std::filesystem::path::string_type::npos;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace sys
