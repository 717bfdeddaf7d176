#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/vocabulary/TraderType.h"

namespace mxservice {

/// Records by stock key text, the form in which many records are handed out.
using InstrumentMap = std::map<std::string, InstrumentPtr>;

/// Adds the records under the key texts of their own market and code. What `out` holds already stays, and of two
/// records with one text the first one stays.
inline void addByKeyText(const std::vector<InstrumentPtr>& records, InstrumentMap& out) {
    std::vector<std::pair<std::string, const InstrumentPtr*>> entries;
    entries.reserve(records.size());
    for (const InstrumentPtr& record : records) {
        entries.emplace_back(keyTextOf(*record), &record);
    }
    // Sorted entries go into a map several times faster than entries in random order.
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [text, record] : entries) {
        out.emplace_hint(out.end(), std::move(text), *record);
    }
}

/// Drops what a trader type does not mean: type 2 keeps no futures option, type 1024 nothing but those.
void keepOnly(EOvTraderType type, InstrumentMap& records);

}  // namespace mxservice
