#include "tools/inscenter/Utf8.h"

#include <fmt/format.h>
#include <simdjson.h>
#include <utf8proc.h>

#include <iterator>

namespace inscenter {
namespace {

bool isControl(char32_t value) {
    // The upper ones, too: to a terminal U+009B may be the beginning of an escape.
    return value < 0x20 || (value >= 0x7F && value < 0xA0);
}

}  // namespace

CodePoint decodeUtf8(std::string_view text) {
    utf8proc_int32_t value = 0;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &value);
    return length > 0 ? CodePoint{static_cast<char32_t>(value), static_cast<std::size_t>(length), true}
                      : CodePoint{0xFFFD, 1, false};  // one byte: the next may begin a letter again
}

bool isUtf8(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

void appendUtf8(std::string& out, std::string_view text) {
    if (isUtf8(text)) {  // nearly always, and then in one go
        out.append(text);
        return;
    }
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        out.append(next.valid ? text.substr(0, next.length) : kReplacement);
        text.remove_prefix(next.length);
    }
}

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        // Control characters are none to the library, but where they are counted they will be shown as signs.
        const int columns = isControl(next.value) ? 1 : utf8proc_charwidth(static_cast<utf8proc_int32_t>(next.value));
        width += static_cast<std::size_t>(columns);
        text.remove_prefix(next.length);
    }
    return width;
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        if (!next.valid) {
            shown += kReplacement;
        } else if (isControl(next.value)) {
            fmt::format_to(std::back_inserter(shown), "\\x{:02X}", static_cast<unsigned>(next.value));
        } else {
            shown.append(text.substr(0, next.length));
        }
        text.remove_prefix(next.length);
    }
    return shown;
}

}  // namespace inscenter
