#include "tools/inscenter/Utf8.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace inscenter {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// East_Asian_Width Wide and Fullwidth of EastAsianWidth.txt (Unicode Standard Annex #11, Unicode 14); code points that
/// are not assigned are counted with their neighbours. wcwidth() would depend on the locales that a machine has.
constexpr std::array kWide{
    Range{0x1100, 0x115F},   Range{0x231A, 0x231B},   Range{0x2329, 0x232A},   Range{0x23E9, 0x23EC},
    Range{0x23F0, 0x23F0},   Range{0x23F3, 0x23F3},   Range{0x25FD, 0x25FE},   Range{0x2614, 0x2615},
    Range{0x2648, 0x2653},   Range{0x267F, 0x267F},   Range{0x2693, 0x2693},   Range{0x26A1, 0x26A1},
    Range{0x26AA, 0x26AB},   Range{0x26BD, 0x26BE},   Range{0x26C4, 0x26C5},   Range{0x26CE, 0x26CE},
    Range{0x26D4, 0x26D4},   Range{0x26EA, 0x26EA},   Range{0x26F2, 0x26F3},   Range{0x26F5, 0x26F5},
    Range{0x26FA, 0x26FA},   Range{0x26FD, 0x26FD},   Range{0x2705, 0x2705},   Range{0x270A, 0x270B},
    Range{0x2728, 0x2728},   Range{0x274C, 0x274C},   Range{0x274E, 0x274E},   Range{0x2753, 0x2755},
    Range{0x2757, 0x2757},   Range{0x2795, 0x2797},   Range{0x27B0, 0x27B0},   Range{0x27BF, 0x27BF},
    Range{0x2B1B, 0x2B1C},   Range{0x2B50, 0x2B50},   Range{0x2B55, 0x2B55},   Range{0x2E80, 0x303E},
    Range{0x3041, 0x3247},   Range{0x3250, 0x4DBF},   Range{0x4E00, 0xA4CF},   Range{0xA960, 0xA97F},
    Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},   Range{0xFE10, 0xFE19},   Range{0xFE30, 0xFE6F},
    Range{0xFF01, 0xFF60},   Range{0xFFE0, 0xFFE6},   Range{0x16FE0, 0x18D08}, Range{0x1AFF0, 0x1B2FB},
    Range{0x1F004, 0x1F004}, Range{0x1F0CF, 0x1F0CF}, Range{0x1F18E, 0x1F18E}, Range{0x1F191, 0x1F19A},
    Range{0x1F200, 0x1F320}, Range{0x1F32D, 0x1F335}, Range{0x1F337, 0x1F37C}, Range{0x1F37E, 0x1F393},
    Range{0x1F3A0, 0x1F3CA}, Range{0x1F3CF, 0x1F3D3}, Range{0x1F3E0, 0x1F3F0}, Range{0x1F3F4, 0x1F3F4},
    Range{0x1F3F8, 0x1F43E}, Range{0x1F440, 0x1F440}, Range{0x1F442, 0x1F4FC}, Range{0x1F4FF, 0x1F53D},
    Range{0x1F54B, 0x1F54E}, Range{0x1F550, 0x1F567}, Range{0x1F57A, 0x1F57A}, Range{0x1F595, 0x1F596},
    Range{0x1F5A4, 0x1F5A4}, Range{0x1F5FB, 0x1F64F}, Range{0x1F680, 0x1F6C5}, Range{0x1F6CC, 0x1F6CC},
    Range{0x1F6D0, 0x1F6D2}, Range{0x1F6D5, 0x1F6DF}, Range{0x1F6EB, 0x1F6EC}, Range{0x1F6F4, 0x1F6FC},
    Range{0x1F7E0, 0x1F7F0}, Range{0x1F90C, 0x1F93A}, Range{0x1F93C, 0x1F945}, Range{0x1F947, 0x1F9FF},
    Range{0x1FA70, 0x1FAFF}, Range{0x20000, 0x3FFFD}};

/// The general categories Mn, Me and Cf of UnicodeData.txt, for the scripts that names of instruments are written in.
constexpr std::array kZeroWidth{
    Range{0x0300, 0x036F}, Range{0x0483, 0x0489}, Range{0x0591, 0x05BD},  Range{0x05BF, 0x05BF}, Range{0x05C1, 0x05C2},
    Range{0x05C4, 0x05C5}, Range{0x05C7, 0x05C7}, Range{0x0610, 0x061A},  Range{0x064B, 0x065F}, Range{0x0670, 0x0670},
    Range{0x06D6, 0x06DD}, Range{0x06DF, 0x06E4}, Range{0x0E31, 0x0E31},  Range{0x0E34, 0x0E3A}, Range{0x0E47, 0x0E4E},
    Range{0x1AB0, 0x1ACE}, Range{0x1DC0, 0x1DFF}, Range{0x200B, 0x200F},  Range{0x202A, 0x202E}, Range{0x2060, 0x206F},
    Range{0x20D0, 0x20F0}, Range{0x302A, 0x302D}, Range{0x3099, 0x309A},  Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F},
    Range{0xFEFF, 0xFEFF}, Range{0xFFF9, 0xFFFB}, Range{0xE0100, 0xE01EF}};

template <class Ranges>
bool contains(const Ranges& ranges, char32_t value) {
    const auto after = std::upper_bound(ranges.begin(), ranges.end(), value,
                                        [](char32_t left, const Range& right) { return left < right.first; });
    return after != ranges.begin() && value <= std::prev(after)->last;
}

constexpr CodePoint kInvalid{0xFFFD, 1, false};

unsigned byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/// The length that a leading byte announces; 0 when none begins with it.
std::size_t announcedLength(unsigned lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        return 2;
    }
    if (lead >= 0xE0 && lead < 0xF0) {
        return 3;
    }
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

bool isControl(char32_t value) {
    return value < 0x20 || (value >= 0x7F && value < 0xA0);
}

}  // namespace

CodePoint decodeUtf8(std::string_view text) {
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const unsigned lead = byteAt(text, 0);
    const std::size_t length = announcedLength(lead);
    if (length == 1) {
        return {lead, 1, true};
    }
    if (length == 0 || length > text.size()) {
        return kInvalid;
    }
    char32_t value = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned next = byteAt(text, i);
        if ((next & 0xC0U) != 0x80) {
            return kInvalid;
        }
        value = (value << 6U) | (next & 0x3FU);
    }
    const bool surrogate = value >= 0xD800 && value < 0xE000;
    if (value < kSmallest[length] || value > 0x10FFFF || surrogate) {
        return kInvalid;
    }
    return {value, length, true};
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        if (!next.valid) {
            return false;
        }
        text.remove_prefix(next.length);
    }
    return true;
}

void appendUtf8(std::string& out, std::string_view text) {
    if (isUtf8(text)) {
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
        if (next.value < 0x300) {
            width += 1;
        } else if (!contains(kZeroWidth, next.value)) {
            width += contains(kWide, next.value) ? 2U : 1U;
        }
        text.remove_prefix(next.length);
    }
    return width;
}

std::string printable(std::string_view text) {
    constexpr const char* kHex = "0123456789ABCDEF";
    std::string shown;
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        if (!next.valid) {
            shown += kReplacement;
        } else if (isControl(next.value)) {
            shown += "\\x";
            shown += kHex[next.value >> 4U];
            shown += kHex[next.value & 0xFU];
        } else {
            shown.append(text.substr(0, next.length));
        }
        text.remove_prefix(next.length);
    }
    return shown;
}

}  // namespace inscenter
