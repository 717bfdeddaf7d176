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

/// A set of 64-bit keys.
using KeySet = boost::unordered_flat_set<std::uint64_t, KeyHash, std::equal_to<>, sys::TableAllocator<std::uint64_t>>;

/// What a table of either kind has allocated.
template <class Table>
std::size_t tableBytes(const Table& table) {
    return table.get_allocator().bytes();
}

}  // namespace mxservice
