#include "platform/persist/StoreNames.h"

#include <algorithm>

#include "platform/persist/StoreEngine.h"

namespace persist {
namespace {

constexpr std::size_t kMaxNameBytes = 64;

/// Whether Windows takes the name for a device, whatever follows a dot in it.
bool isDeviceName(const std::string& name) {
    std::string stem = name.substr(0, name.find('.'));
    stem.erase(stem.find_last_not_of(' ') + 1);
    std::transform(stem.begin(), stem.end(), stem.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    if (stem.size() == 4 && (stem.compare(0, 3, "COM") == 0 || stem.compare(0, 3, "LPT") == 0)) {
        return stem.back() >= '0' && stem.back() <= '9';
    }
    return stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL";
}

}  // namespace

bool isSafeName(const std::string& name) {
    const auto unsafe = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F || std::string_view("/\\<>:\"|?*").find(c) != std::string_view::npos;
    };
    return !name.empty() && name.size() <= kMaxNameBytes && name.front() != '.' && name.back() != '.' &&
           name.back() != ' ' && name.find("..") == std::string::npos &&
           std::none_of(name.begin(), name.end(), unsafe) && !isDeviceName(name);
}

bool isSafeKey(std::string_view key) {
    return !key.empty() && key.size() <= kMaxKeyBytes && key.find(kFieldSeparator) == std::string_view::npos;
}

std::string shown(const std::string& name) {
    constexpr std::size_t kMost = 80;
    std::string text = name.substr(0, kMost);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    return name.size() > kMost ? text + "..." : text;
}

}  // namespace persist
