#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"

// Changing a large index without making its readers wait.

namespace mxservice {

/// So many keys are changed under the lock: it takes a few microseconds, no longer than a copy of a small index.
constexpr std::size_t kFewKeys = 64;

/// A copy with room for at least `keys` keys, made in the order of the table, so that memory is walked in its order.
template <class Value>
HashIndex<Value> copyWithRoom(const HashIndex<Value>& index, std::size_t keys) {
    if constexpr (std::is_trivially_copyable_v<Value>) {
        HashIndex<Value> copy(index);
        if (keys > copy.max_load()) {
            copy.reserve(keys);
        }
        return copy;
    } else {
        HashIndex<Value> copy;
        copy.reserve(std::max(keys, index.size()));
        visitAhead(index, [&copy](const auto& entry) { copy.insert(entry); });
        return copy;
    }
}

/// Changes an index of a value that is being updated. `part` picks the index out of the value; `change` is called once,
/// with the index or with a copy that then takes its place, and touches at most `keys` keys; `beside`, which must be
/// short, changes the rest of the value in the same moment. Readers wait while few keys are changed in place, or while
/// the finished copy is swapped in. Returns what the copy replaced, to be destroyed with the lock dropped.
template <class Update, class Part, class Change, class Beside>
auto updateIndex(Update& update, Part part, std::size_t keys, const Change& change, const Beside& beside) {
    const auto& index = std::invoke(part, *update);
    std::remove_cvref_t<decltype(index)> fresh;
    if (keys <= kFewKeys && index.size() + keys <= index.max_load()) {
        update.commit([&](auto& value) {
            change(std::invoke(part, value));
            beside(value);
        });
    } else {
        fresh = copyWithRoom(index, keys);
        change(fresh);
        update.commit([&](auto& value) {
            std::invoke(part, value).swap(fresh);
            beside(value);
        });
    }
    return fresh;
}

/// The same for an index that is a guarded value by itself.
template <class Value, class Change>
void updateIndex(Guarded<HashIndex<Value>>& guarded, std::size_t keys, const Change& change) {
    HashIndex<Value> former;
    {
        auto update = guarded.update();
        former = updateIndex(update, std::identity(), keys, change, [](const HashIndex<Value>& /*index*/) {});
    }
    releaseAhead(former);
}

}  // namespace mxservice
