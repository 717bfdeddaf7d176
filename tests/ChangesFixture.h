#pragma once

#include <string>
#include <vector>

#include "tests/CenterFixture.h"

// What tests of changed records and of subscribers share.

namespace mxservice {

inline const std::vector<std::string> kChangedMarkets{"SH",  "SZ",  "BJ",   "HK",   "HGT",  "SGT", "SHO",
                                                      "SZO", "DCE", "CZCE", "NEEQ", "NYSE", "WP"};

/// The text under which a key is filed.
inline std::string folded(const std::string& text) {
    const std::string prefix = text.substr(0, 3);
    return prefix == "HGT" || prefix == "SGT" ? "HK" + text.substr(3) : text;
}

}  // namespace mxservice
