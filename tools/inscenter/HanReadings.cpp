// Readings of Chinese letters, from ICU's transliteration.

#include "tools/inscenter/HanReadings.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

namespace inscenter {

std::string hanReading(std::string_view letter) {
    static const std::unique_ptr<const icu::Transliterator> transliterator = [] {
        UErrorCode error = U_ZERO_ERROR;
        // Letter and tone apart, then without the tone.
        return std::unique_ptr<const icu::Transliterator>(
            icu::Transliterator::createInstance("Han-Latin; NFD; [:Mn:] Remove", UTRANS_FORWARD, error));
    }();
    if (!transliterator) {  // ICU without its data
        return {};
    }
    auto text = icu::UnicodeString::fromUTF8(icu::StringPiece(letter.data(), static_cast<std::int32_t>(letter.size())));
    transliterator->transliterate(text);
    std::string reading;
    text.toUTF8String(reading);
    const bool latin = std::all_of(reading.begin(), reading.end(), [](char c) { return c >= 'a' && c <= 'z'; });
    return latin ? reading : std::string();
}

}  // namespace inscenter
