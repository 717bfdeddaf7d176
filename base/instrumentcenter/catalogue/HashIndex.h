#pragma once

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "system/Memory.h"

namespace mxservice {

/// Keys are hashes of good quality already.
struct KeyHash {
    using is_avalanching = void;
    std::size_t operator()(std::uint64_t key) const noexcept { return key; }
};

/// The large indexes. The containers are flat: a lookup touches two cache lines. A first bucket count or load factor
/// cannot be observed from outside and is the container's own.
template <class Value>
using HashIndex = boost::unordered_flat_map<std::uint64_t, Value, KeyHash, std::equal_to<>,
                                            sys::TableAllocator<std::pair<const std::uint64_t, Value>>>;

/// What a flat container has allocated: groups of 15 slots, each with 16 bytes that say what its slots hold. The last
/// slot of all is left out.
template <class Container>
std::size_t flatBytes(const Container& container) {
    constexpr std::size_t kSlots = 15;
    constexpr std::size_t kMarks = 16;
    using Value = typename Container::value_type;
    const std::size_t slots = container.bucket_count();
    if (slots == 0) {
        return 0;
    }
    const std::size_t groups = (slots + 1) / kSlots;
    const std::size_t marks = groups * kMarks + kMarks - 1;  // with room to align them
    return (slots + (marks + sizeof(Value) - 1) / sizeof(Value)) * sizeof(Value);
}

/// A set of 64-bit keys.
using KeySet = boost::unordered_flat_set<std::uint64_t, KeyHash>;

}  // namespace mxservice
