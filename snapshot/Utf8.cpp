#include "snapshot/Utf8.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <iterator>

namespace mxservice::snapshot {
namespace {

std::size_t lengthOf(unsigned char lead) {
    return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

}  // namespace

CodePoint decodeUtf8(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lengthOf(lead);
    // The library judges what is the shortest form of a scalar value, here as for whole texts.
    if (text.size() < length || !isUtf8(text.substr(0, length))) {
        return {0xFFFD, 1, false};  // one byte: the next may begin a letter again
    }
    char32_t value = length == 1 ? lead : lead & (0x7FU >> length);
    for (const char next : text.substr(1, length - 1)) {
        value = (value << 6U) | (static_cast<unsigned char>(next) & 0x3FU);
    }
    return {value, length, true};
}

bool isUtf8(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

bool isControl(char32_t value) {
    // The upper ones, too: to a terminal U+009B may be the beginning of an escape.
    if (value < 0x20 || (value >= 0x7F && value < 0xA0)) {
        return true;
    }
    // Marks that turn the direction of writing (UAX #9): one left open would turn around what stands behind it.
    return value == 0x061C || value == 0x200E || value == 0x200F || (value >= 0x202A && value <= 0x202E) ||
           (value >= 0x2066 && value <= 0x2069);
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

}  // namespace mxservice::snapshot
