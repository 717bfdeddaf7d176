#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter::generate {

/// `prefix`, then `number` in decimal, with zeros in front up to `digits`.
std::string padded(std::uint64_t number, std::size_t digits, std::string_view prefix = "");

/// The codes of one kind of instrument, by patterns in which a run of '#' stands for a number with so many digits that
/// is never 0: "600###", "512##0". A pattern that is named several times gets as many codes of each round through the
/// list. Codes of different indexes differ. The codes of a pattern depend on the pattern and the salt alone, not on the
/// rest of the list.
class CodeSeries {
public:
    CodeSeries(std::initializer_list<std::string_view> patterns);

    /// A pattern with three digits has 999 codes; `index` must not ask for more.
    std::string at(std::size_t index, std::uint64_t salt) const;
    /// The same codes from the other end: those that at() reaches last are free for new issues.
    std::string fromEnd(std::size_t index, std::uint64_t salt) const;

private:
    struct Slot {
        std::string prefix;
        std::string suffix;
        std::size_t digits = 0;
        std::uint64_t shift = 0;  ///< keeps patterns from running through the same numbers
        std::size_t numbers = 0;  ///< that the pattern has: 9, 99, 999, ...
        std::size_t before = 0;   ///< slots with the same pattern earlier in a round
        std::size_t times = 0;    ///< slots with the same pattern in a round
    };
    static std::string code(const Slot& slot, std::size_t number, std::uint64_t salt);

    std::vector<Slot> slots_;
};

/// Letters of a US stock code, different for each index below 26 to the power of `length`.
std::string tickerLetters(std::size_t index, std::size_t length, std::uint64_t salt);

/// An ISIN: two letters of the country, prefix and code, nine letters or digits together, and the check digit of
/// ISO 6166.
std::string isin(std::string_view country, std::string_view prefix, std::string_view code);

}  // namespace inscenter::generate
