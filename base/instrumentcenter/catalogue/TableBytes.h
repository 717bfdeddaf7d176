#pragma once

#include <cstddef>
#include <string>
#include <type_traits>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"

namespace mxservice {

/// Whether values of the type own memory that is counted. Records behind pointers are not.
template <class Value>
constexpr bool ownsHeap() {
    if constexpr (requires(Value value) { value.use_count(); }) {
        return false;
    } else if constexpr (requires(Value value) { value.first, value.second; }) {
        return ownsHeap<std::remove_const_t<decltype(Value::first)>>() || ownsHeap<decltype(Value::second)>();
    } else {
        return !std::is_trivially_destructible_v<Value>;
    }
}

/// Bytes that a value has allocated beside its own: tables and texts, all the way down. Tables of plain keys and
/// pointers are not walked.
template <class Value>
std::size_t heapBytes(const Value& value) {
    if constexpr (!ownsHeap<Value>()) {
        return 0;
    } else if constexpr (std::is_same_v<Value, std::string>) {
        return value.capacity() > std::string().capacity() ? value.capacity() + 1 : 0;
    } else if constexpr (requires { value.first, value.second; }) {
        return heapBytes(value.first) + heapBytes(value.second);
    } else {
        using Element = typename Value::value_type;
        std::size_t bytes = 0;
        if constexpr (requires { value.get_allocator().bytes(); }) {
            bytes = tableBytes(value);
        } else if constexpr (requires { value.capacity(); }) {
            bytes = value.capacity() * sizeof(Element);
        } else {
            struct TreeNode {
                void* links[4];  // color, parent, left, right
                Element element;
            };
            bytes = value.size() * sizeof(TreeNode);
        }
        if constexpr (ownsHeap<Element>()) {
            for (const Element& element : value) {
                bytes += heapBytes(element);
            }
        }
        return bytes;
    }
}

/// A table as the statistics name it.
template <class Table>
IndexSize sizeOf(const char* name, const Table& table) {
    return {name, table.size(), heapBytes(table)};
}

}  // namespace mxservice
