#include "snapshot/RecordText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>

#include "platform/record/Records.h"
#include "snapshot/Utf8.h"

namespace mxservice {
namespace {

using snapshot::appendUtf8;
using snapshot::CodePoint;
using snapshot::decodeUtf8;

/// Room for every number: 24 characters for a double with an exponent, 20 for 64 bits.
constexpr std::size_t kNumberBytes = 32;

template <class Number, class... Form>
void appendShortest(std::string& out, Number value, Form... form) {
    std::array<char, kNumberBytes> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, form...).ptr;
    out.append(buffer.data(), end);
}

bool isPlain(unsigned char character) {
    // Without DEL, which is text to JSON, but not to a terminal.
    return character >= 0x20 && character < 0x7F && character != '"' && character != '\\';
}

void appendMember(std::string& out, const ComponentMap& components) {
    appendJson(out, components);
}

void appendMember(std::string& out, const std::string& text) {
    out += text;
}

template <class Number>
void appendMember(std::string& out, Number value) {
    if constexpr (std::is_floating_point_v<Number>) {
        appendNumber(out, value);
    } else {
        appendShortest(out, value);
    }
}

}  // namespace

void appendNumber(std::string& out, double value) {
    // Within these limits the digits without an exponent fit the buffer and are what people expect of a price.
    constexpr double kSmallest = 1e-6;
    constexpr double kLargest = 1e15;
    const double size = std::abs(value);
    if (!std::isfinite(value)) {
        out += "null";
    } else if (value == 0 || (size >= kSmallest && size < kLargest)) {
        appendShortest(out, value, std::chars_format::fixed);
    } else {
        appendShortest(out, value);
    }
}

void appendJsonString(std::string& out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        std::size_t plain = 0;
        // Most texts are plain throughout, and are copied in one go.
        while (plain < text.size() && isPlain(static_cast<unsigned char>(text[plain]))) {
            ++plain;
        }
        out.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            break;
        }
        const CodePoint next = decodeUtf8(text);
        // A store may hold names in another encoding; the line stays readable for all else.
        if (!next.valid) {
            out += snapshot::kReplacement;
        } else if (next.value == '"' || next.value == '\\') {
            out += '\\';
            out += text.front();
        } else if (next.value < 0x20 || next.value == 0x7F) {
            fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(next.value));
        } else {
            out.append(text.substr(0, next.length));
        }
        text.remove_prefix(next.length);
    }
    out += '"';
}

void appendField(std::string& out, const Field& field, const IData& record) {
    visitField(field, record, [&](const auto& member) { appendMember(out, member); });
}

void appendJsonField(std::string& out, const Field& field, const IData& record) {
    visitField(field, record, [&](const auto& member) {
        if constexpr (std::is_same_v<decltype(member), const std::string&>) {
            appendJsonString(out, member);
        } else {
            appendMember(out, member);
        }
    });
}

void appendJson(std::string& out, const IData& record) {
    char separator = '{';
    for (const Field& field : record.recordType().fields()) {
        // Most fields of most records are at their default, which a reader takes for what is missing.
        if (field.isDefault(record)) {
            continue;
        }
        out += separator;
        out += '"';
        out += field.name();  // no document key needs an escape
        out += "\":";
        separator = ',';
        appendJsonField(out, field, record);
    }
    out += separator == '{' ? "{}" : "}";
}

void appendJson(std::string& out, const ComponentMap& components) {
    char separator = '[';
    for (const auto& [code, component] : components) {
        if (component) {
            out += std::exchange(separator, ',');
            appendJson(out, *component);
        }
    }
    out += separator == '[' ? "[]" : "]";
}

void appendCsvCell(std::string& out, std::string_view text) {
    constexpr std::string_view kSpecial(",\"\r\n\0", 5);
    // Blanks at the ends are quoted too: some readers strip them. A NUL is text within quotes only.
    const bool special = text.find_first_of(kSpecial) != std::string_view::npos ||
                         (!text.empty() && (text.front() == ' ' || text.back() == ' '));
    if (!special) {
        appendUtf8(out, text);
        return;
    }
    std::string valid;
    appendUtf8(valid, text);
    out += '"';
    for (const char letter : valid) {
        out.append(letter == '"' ? 2 : 1, letter);
    }
    out += '"';
}

}  // namespace mxservice
