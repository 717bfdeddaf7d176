#include "tools/inscenter/FoldedText.h"

#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

constexpr char32_t kWideFirst = 0xFF01;  // the full-width forms of ASCII from '!' on
constexpr char32_t kWideLast = 0xFF5E;
constexpr char32_t kWideBlank = 0x3000;

char32_t plain(char32_t letter) {
    if (letter >= kWideFirst && letter <= kWideLast) {
        letter = letter - kWideFirst + U'!';
    }
    return letter >= U'A' && letter <= U'Z' ? letter - U'A' + U'a' : letter;
}

}  // namespace

std::string foldedText(std::string_view text) {
    std::string folded;
    folded.reserve(text.size());
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        const char32_t letter = plain(next.value);
        if (next.valid && letter < 0x80) {
            // Exchanges spread short names with blanks, and who looks for one does not know how many.
            if (letter > U' ') {
                folded += static_cast<char>(letter);
            }
        } else if (next.valid && letter != kWideBlank) {
            folded += text.substr(0, next.length);
        }
        text.remove_prefix(next.length);
    }
    return folded;
}

}  // namespace inscenter
