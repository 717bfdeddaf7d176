#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace inscenter {

/// A name as people type it who have no Chinese keyboard at hand.
struct Spelled {
    std::string pinyin;    ///< "ping an yin hang", a blank between syllables; what is not Chinese stands as it is
    std::string initials;  ///< "payh"
};

/// Spells names in pinyin. Each letter has one reading: that which names of companies, funds and goods give it, by the
/// letter beside it where that decides ("chang cheng", but "cheng zhang").
class Spelling {
public:
    /// Small letters without blanks within syllables. Both empty where the name has no Chinese letter that can be read.
    Spelled of(std::string_view name);

    /// The syllables of every letter and word that `of` may have looked at so far; a page can spell the same names by
    /// them: at each place the longest entry that fits.
    std::map<std::string, std::string> readings() const;

private:
    using Word = std::pair<std::string_view, std::string_view>;

    struct Letter {
        std::string text;
        std::string reading;      ///< empty: none
        std::vector<Word> words;  ///< those that begin with the letter
    };

    const Letter& letterOf(char32_t value, std::string_view text);

    std::unordered_map<char32_t, Letter> letters_;
};

}  // namespace inscenter
