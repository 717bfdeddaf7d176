#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace inscenter::generate {

/// A stream of pseudo-random numbers, SplitMix64 (Steele, Lea and Flood, 2014). The standard library's distributions
/// differ between implementations; everything here is integer arithmetic and does not.
class Dice {
public:
    explicit Dice(std::uint64_t state) : state_(state) {}

    std::uint64_t next() {
        state_ += 0x9e3779b97f4a7c15ULL;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebULL;
        return mixed ^ (mixed >> 31);
    }

    /// A number from `low` to `high`, both included.
    std::int64_t between(std::int64_t low, std::int64_t high) {
        return low + static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(high - low + 1));
    }
    std::int32_t small(std::int32_t low, std::int32_t high) { return static_cast<std::int32_t>(between(low, high)); }
    /// True once in `chances` throws on average.
    bool oneIn(std::uint64_t chances) { return next() % chances == 0; }

    template <class T, std::size_t N>
    const T& pick(const T (&table)[N]) {
        return table[next() % N];
    }

private:
    std::uint64_t state_;
};

/// Where streams come from. Every record has one of its own, found by a label and the record's number: any record can
/// be made again without those before it, so a basket names its components without a list of all stocks.
class Seed {
public:
    explicit Seed(std::uint64_t value) : value_(value) {}

    std::uint64_t value() const { return value_; }
    Seed child(std::string_view label) const {
        std::uint64_t hash = 0xcbf29ce484222325ULL ^ value_;  // FNV-1a
        for (const char letter : label) {
            hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001b3ULL;
        }
        return Seed(Dice(hash).next());
    }
    Dice dice(std::uint64_t number) const { return Dice(Dice(value_ + number).next()); }

private:
    std::uint64_t value_;
};

/// Part `part` of `total` things dealt evenly to `parts` takers; the parts add up to `total`.
constexpr std::size_t evenShare(std::size_t total, std::size_t parts, std::size_t part) {
    return total * (part + 1) / parts - total * part / parts;
}

}  // namespace inscenter::generate
