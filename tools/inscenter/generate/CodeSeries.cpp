#include "tools/inscenter/generate/CodeSeries.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "tools/inscenter/generate/Dice.h"

namespace inscenter::generate {
namespace {

// Prime, and no divisor of 9, 99, 999, ... up to eight digits, nor of a power of 26: multiples of it run through all
// remainders before one comes again.
constexpr std::uint64_t kStride = 7919;

}  // namespace

std::string padded(std::uint64_t number, std::size_t digits, std::string_view prefix) {
    const std::string text = std::to_string(number);
    std::string result(prefix);
    result.append(digits > text.size() ? digits - text.size() : 0, '0');
    return result += text;
}

CodeSeries::CodeSeries(std::initializer_list<std::string_view> patterns) {
    for (auto pattern = patterns.begin(); pattern != patterns.end(); ++pattern) {
        const std::size_t first = pattern->find('#');
        const std::size_t last = pattern->rfind('#');
        Slot slot{std::string(pattern->substr(0, first)), std::string(pattern->substr(last + 1)), last + 1 - first};
        slot.shift = Seed(0).child(*pattern).value();
        for (std::size_t i = 0; i < slot.digits; ++i) {
            slot.numbers = slot.numbers * 10 + 9;
        }
        slot.before = static_cast<std::size_t>(std::count(patterns.begin(), pattern, *pattern));
        slot.times = static_cast<std::size_t>(std::count(patterns.begin(), patterns.end(), *pattern));
        slots_.push_back(std::move(slot));
    }
}

std::string CodeSeries::at(std::size_t index, std::uint64_t salt) const {
    const Slot& slot = slots_[index % slots_.size()];
    return code(slot, index / slots_.size() * slot.times + slot.before, salt);
}

std::string CodeSeries::fromEnd(std::size_t index, std::uint64_t salt) const {
    const Slot& slot = slots_[index % slots_.size()];
    return code(slot, slot.numbers - 1 - (index / slots_.size() * slot.times + slot.before), salt);
}

std::string CodeSeries::code(const Slot& slot, std::size_t number, std::uint64_t salt) {
    assert(number < slot.numbers);
    const std::uint64_t scattered = (number * kStride + (salt + slot.shift) % slot.numbers) % slot.numbers;
    return padded(1 + scattered, slot.digits, slot.prefix) + slot.suffix;
}

std::string tickerLetters(std::size_t index, std::size_t length, std::uint64_t salt) {
    std::uint64_t space = 1;
    for (std::size_t i = 0; i < length; ++i) {
        space *= 26;
    }
    std::uint64_t number = (index * kStride + salt % space) % space;
    std::string letters(length, 'A');
    for (char& letter : letters) {
        letter = static_cast<char>('A' + number % 26);
        number /= 26;
    }
    return letters;
}

std::string isin(std::string_view country, std::string_view prefix, std::string_view code) {
    std::string text(country);
    text += prefix;
    text += code;
    std::string digits;  // letters count as two-digit numbers, A is 10
    for (const char letter : text) {
        digits += letter >= 'A' && letter <= 'Z' ? std::to_string(letter - 'A' + 10) : std::string(1, letter);
    }
    int sum = 0;
    bool doubled = true;  // every other digit from the right, beginning with the last
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, doubled = !doubled) {
        const int value = (*digit - '0') * (doubled ? 2 : 1);
        sum += value / 10 + value % 10;
    }
    text += static_cast<char>('0' + (10 - sum % 10) % 10);
    return text;
}

}  // namespace inscenter::generate
