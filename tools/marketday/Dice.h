#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace marketday {

/// A stream of pseudo-random numbers, SplitMix64 (Steele, Lea and Flood, 2014). The standard library's distributions
/// differ between implementations; everything here is integer arithmetic and does not.
class Dice {
public:
    /// The stream of one record, found by a label and the record's number: any record can be made again without those
    /// before it, so that a basket names its components without a list of all stocks. The order of throws is part of
    /// the day: one throw more changes what comes after it in the record, and no other record.
    Dice(std::uint64_t seed, std::string_view label, std::uint64_t number) : state_(0xcbf29ce484222325ULL ^ seed) {
        for (const char letter : label) {  // FNV-1a
            state_ = (state_ ^ static_cast<unsigned char>(letter)) * 0x100000001b3ULL;
        }
        state_ = next() + number;
        state_ = next();
    }

    std::uint64_t next() {
        state_ += 0x9e3779b97f4a7c15ULL;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebULL;
        return mixed ^ (mixed >> 31);
    }

    /// A number from `low` to `high`, both included.
    template <class Number = std::int64_t>
    Number between(std::int64_t low, std::int64_t high) {
        return static_cast<Number>(low +
                                   static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(high - low + 1)));
    }
    /// The same with low numbers much more often than high ones.
    std::int64_t mostlyLow(std::int64_t low, std::int64_t high) {
        return between(low, between(low, between(low, high)));
    }
    /// True once in `chances` throws on average.
    bool oneIn(std::uint64_t chances) { return next() % chances == 0; }

    template <class T, std::size_t N>
    const T& pick(const T (&table)[N]) {
        return table[next() % N];
    }

private:
    std::uint64_t state_;
};

/// Part `part` of `total` things dealt evenly to `parts` takers; the parts add up to `total`.
constexpr std::size_t evenShare(std::size_t total, std::size_t parts, std::size_t part) {
    return total * (part + 1) / parts - total * part / parts;
}

}  // namespace marketday
