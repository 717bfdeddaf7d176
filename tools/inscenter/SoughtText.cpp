#include "tools/inscenter/SoughtText.h"

#include <algorithm>
#include <iterator>

#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

/// What sort of text fits; of two that fit alike, the first goes before.
enum class Sort { Code, Name, Spelling, OtherName };
constexpr int kSorts = 4;

enum class Fit { Whole, Beginning, Word, Part, Words };

int rankOf(Fit fit, Sort sort) {
    return static_cast<int>(fit) * kSorts + static_cast<int>(sort);
}

bool isSeparator(std::string_view folded) {
    const auto plain = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    return folded.empty() || (decodeUtf8(folded).value < 0x80 && !plain(folded.front()));
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Whether a word of the text begins where the folded text has so many bytes before it.
bool wordBeginsAt(std::string_view text, std::size_t wanted) {
    bool separated = true;
    for (std::size_t at = 0; !text.empty() && at <= wanted;) {
        const std::size_t length = decodeUtf8(text).length;
        const std::string folded = foldedText(text.substr(0, length));
        if (at == wanted && !folded.empty()) {
            return separated;
        }
        separated = isSeparator(folded);
        at += folded.size();
        text.remove_prefix(length);
    }
    return false;
}

/// Keeps the best of the ranks that are offered.
class Best {
public:
    void offer(Fit fit, Sort sort) {
        const int offered = rankOf(fit, sort);
        best_ = best_ ? std::min(*best_, offered) : offered;
    }

    void offerBeginning(std::string_view text, std::string_view wanted, Sort sort) {
        if (text.starts_with(wanted)) {
            offer(text.size() == wanted.size() ? Fit::Whole : Fit::Beginning, sort);
        }
    }

    /// Also inside of the text, but of one whose parts are syllables only where one begins.
    void offerAnywhere(std::string_view text, std::string_view wanted, Sort sort, bool syllables = false) {
        const std::string folded = foldedText(text);
        std::size_t at = folded.find(wanted);
        if (at == 0) {
            offerBeginning(folded, wanted, sort);
            return;
        }
        bool inside = false;
        for (; at != std::string::npos; at = folded.find(wanted, at + 1)) {
            if (wordBeginsAt(text, at)) {
                offer(Fit::Word, sort);
                return;
            }
            inside = true;
        }
        if (inside && !syllables) {
            offer(Fit::Part, sort);
        }
    }

    const std::optional<int>& result() const { return best_; }

private:
    std::optional<int> best_;
};

}  // namespace

SoughtText::SoughtText(std::string_view text) : whole_(needleOf(text)) {
    const std::vector<std::string> words = partsOf(text, " \t");
    if (words.size() > 1) {
        std::transform(words.begin(), words.end(), std::back_inserter(words_), needleOf);
        // Every text holds a word of which nothing is left.
        std::erase_if(words_, [](const Needle& word) { return word.text.empty(); });
    }
}

SoughtText::Needle SoughtText::needleOf(std::string_view text) {
    Needle needle{foldedText(text), {}};
    if (isAscii(needle.text)) {
        needle.pinyin = needle.text;
        // Keyboards have v for the letter that readings here write as u; no syllable has a v of its own.
        std::replace(needle.pinyin.begin(), needle.pinyin.end(), 'v', 'u');
    }
    return needle;
}

std::optional<int> SoughtText::rankOf(const FindTexts& texts, Spelling& spelling) const {
    if (whole_.text.empty()) {
        return std::nullopt;
    }
    // Made only for who types letters: of a search for Chinese text it cannot be part.
    const bool typed = !whole_.pinyin.empty() || std::any_of(words_.begin(), words_.end(),
                                                             [](const Needle& word) { return !word.pinyin.empty(); });
    const Spelled spelled = typed ? spelling.of(texts.name) : Spelled();
    if (const auto whole = rankOf(whole_, texts, spelled)) {
        return whole;
    }
    const bool all = !words_.empty() && std::all_of(words_.begin(), words_.end(), [&](const Needle& word) {
        return rankOf(word, texts, spelled).has_value();
    });
    return all ? std::optional<int>(inscenter::rankOf(Fit::Words, Sort::Code)) : std::nullopt;
}

std::optional<int> SoughtText::rankOf(const Needle& needle, const FindTexts& texts, const Spelled& spelled) {
    Best best;
    for (const std::string_view text : texts.codes) {
        best.offerBeginning(foldedText(text), needle.text, Sort::Code);
    }
    for (const std::string_view name : {texts.market, texts.filed}) {
        const std::string market = foldedText(name);
        // A market's name alone is no beginning of a key: it would find the whole market.
        if (needle.text.size() > market.size() && needle.text.starts_with(market)) {
            best.offerBeginning(foldedText(texts.codes.front()), std::string_view(needle.text).substr(market.size()),
                                Sort::Code);
        }
    }
    best.offerAnywhere(texts.name, needle.text, Sort::Name);
    if (!needle.pinyin.empty()) {
        best.offerAnywhere(texts.initials.empty() ? std::string_view(spelled.initials) : texts.initials, needle.text,
                           Sort::Spelling);
        best.offerAnywhere(spelled.pinyin, needle.text, Sort::Spelling, true);
        if (needle.pinyin != needle.text) {
            best.offerAnywhere(spelled.pinyin, needle.pinyin, Sort::Spelling, true);
        }
    }
    for (const std::string_view text : texts.otherNames) {
        best.offerAnywhere(text, needle.text, Sort::OtherName);
    }
    return best.result();
}

}  // namespace inscenter
