#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/inscenter/Spelling.h"

namespace inscenter {

/// The texts of a record by which people look for it; those that it lacks are empty.
struct FindTexts {
    std::string_view market;  ///< either of the markets may begin the key
    std::string_view filed;
    std::array<std::string_view, 3> codes;  ///< the code, then others that stand for it alone
    std::string_view name;
    std::string_view initials;  ///< as delivered
    std::array<std::string_view, 2> otherNames;
};

/// What somebody has in hand of a record.
class SoughtText {
public:
    /// Case, full-width letters and blanks make no difference.
    explicit SoughtText(std::string_view text);

    /// How well the record fits, 0 best; nothing where it does not. A whole text goes before the beginning of one, that
    /// before the beginning of a word within, that before any other part, and that before the words of the sought text
    /// each somewhere. Of two alike, codes go before names, those before their spelling, and that before other names.
    /// Of codes only the beginning counts, of pinyin the beginning of any syllable. A text of blanks fits nothing.
    std::optional<int> rankOf(const FindTexts& texts, Spelling& spelling) const;

private:
    /// One text to look for, folded.
    struct Needle {
        std::string text;
        std::string pinyin;  ///< as syllables are written here; empty where no spelling can hold it
    };

    static Needle needleOf(std::string_view text);
    static std::optional<int> rankOf(const Needle& needle, const FindTexts& texts, const Spelled& spelled);

    Needle whole_;
    std::vector<Needle> words_;  ///< empty: it is one word
};

}  // namespace inscenter
