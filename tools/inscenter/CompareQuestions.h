#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// What the centers are asked: everything that the snapshot names, and for each market codes that it does not name.
struct Questions {
    std::set<std::pair<std::string, std::string>> codes;  ///< with their markets
    std::set<std::string> texts;                          ///< stock key texts, and the keys of other catalogues
    std::set<std::string> markets;
    std::set<std::string> products;
    std::map<std::string, std::size_t> fundsByKey;  ///< how many funds have a key text

    /// To be built before a center changes the records.
    explicit Questions(const Snapshot& day);

    /// Whether the snapshot brings several funds of that key.
    bool isAmbiguousFund(const std::string& key) const;
};

/// "HGT" or "SGT" where a key text begins with it, else nothing.
std::string connectPrefix(std::string_view text);

}  // namespace inscenter
