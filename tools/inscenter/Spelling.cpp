#include "tools/inscenter/Spelling.h"

#include <algorithm>
#include <array>

#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/HanReadings.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

/// Where names read a letter otherwise than ICU, which knows letters alone: first letters, then words of which the
/// usual reading in names is not theirs.
constexpr std::array<std::pair<std::string_view, std::string_view>, 34> kNameReadings{
    {{"行", "hang"},         {"长", "chang"},         {"都", "du"},
     {"地", "di"},           {"藏", "zang"},          {"厦", "xia"},
     {"参", "shen"},         {"蚌", "beng"},          {"曾", "zeng"},
     {"行动", "xing dong"},  {"行者", "xing zhe"},    {"出行", "chu xing"},
     {"旅行", "lu xing"},    {"先行", "xian xing"},   {"成长", "cheng zhang"},
     {"增长", "zeng zhang"}, {"生长", "sheng zhang"}, {"重庆", "chong qing"},
     {"重组", "chong zu"},   {"大厦", "da sha"},      {"广厦", "guang sha"},
     {"商厦", "shang sha"},  {"音乐", "yin yue"},     {"六安", "lu an"},
     {"东阿", "dong e"},     {"会计", "kuai ji"},     {"空调", "kong tiao"},
     {"调味", "tiao wei"},   {"调整", "tiao zheng"},  {"参股", "can gu"},
     {"参与", "can yu"},     {"典藏", "dian cang"},   {"美的", "mei di"},
     {"龙的", "long di"}}};

bool isLatin(char32_t value) {
    return value < 0x80;
}

}  // namespace

const Spelling::Letter& Spelling::letterOf(char32_t value, std::string_view text) {
    // Asked of ICU once a letter: all names of a day are made of some thousands.
    const auto [at, fresh] = letters_.try_emplace(value);
    Letter& letter = at->second;
    if (fresh) {
        letter.text = text;
        letter.reading = hanReading(text);
        // Only where ICU reads the letter: without it, some names would be spelled and most would not.
        if (!letter.reading.empty()) {
            for (const auto& [word, syllables] : kNameReadings) {
                if (word == text) {
                    letter.reading = syllables;
                } else if (word.starts_with(text)) {
                    letter.words.emplace_back(word, syllables);
                }
            }
        }
    }
    return letter;
}

Spelled Spelling::of(std::string_view name) {
    Spelled spelled;
    bool chinese = false;
    bool together = false;  // what comes next goes on with the letters before
    const auto add = [&](std::string_view syllable) {
        spelled.pinyin += spelled.pinyin.empty() ? "" : " ";
        spelled.pinyin += syllable;
        spelled.initials += syllable.front();
        chinese = true;
        together = false;
    };
    while (!name.empty()) {
        const CodePoint next = decodeUtf8(name);
        const std::string_view text = name.substr(0, next.length);
        std::size_t taken = next.length;
        if (const std::string folded = foldedText(text); !folded.empty() && isLatin(decodeUtf8(folded).value)) {
            spelled.pinyin += together || spelled.pinyin.empty() ? "" : " ";
            spelled.pinyin += folded;
            spelled.initials += folded;
            together = true;
        } else if (next.valid && !isLatin(next.value)) {
            const Letter& letter = letterOf(next.value, text);
            const auto word = std::find_if(letter.words.begin(), letter.words.end(),
                                           [&](const Word& known) { return name.starts_with(known.first); });
            if (word != letter.words.end()) {  // all of two letters, and two syllables
                const std::size_t blank = word->second.find(' ');
                add(word->second.substr(0, blank));
                add(word->second.substr(blank + 1));
                taken = word->first.size();
            } else if (!letter.reading.empty()) {
                add(letter.reading);
            } else {
                together = false;
            }
        } else {
            together = false;
        }
        name.remove_prefix(taken);
    }
    return chinese ? spelled : Spelled();  // any other name is searched as it stands
}

std::map<std::string, std::string> Spelling::readings() const {
    std::map<std::string, std::string> readings;
    for (const auto& [value, letter] : letters_) {
        if (!letter.reading.empty()) {
            readings.emplace(letter.text, letter.reading);
            for (const auto& [word, syllables] : letter.words) {
                readings.emplace(word, syllables);
            }
        }
    }
    return readings;
}

}  // namespace inscenter
