#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/LoadLedger.h"

namespace mxservice {

/// The code sets of the day. Entries are market directly followed by code.
struct CodeSets {
    std::map<std::string, std::set<std::string>> ipoCodes;              // by market "SH", "SZ", "BJ"
    std::map<std::string, std::set<std::string>> cdrCodes;              // by market "SH", "SZ"
    std::set<std::string> neeqInquiryCodes;                             //
    std::map<std::string, std::set<std::uint64_t>> stkOptionUndlCodes;  // hashes, by underlying market
    std::map<std::string, std::string> lumoCodes;                       // platform code by instrument code
};

/// What the interface itself keeps.
struct InterfaceState {
    Guarded<CodeSets> codeSets;
    Guarded<LoadLedger> loads;
    std::recursive_mutex connectLock;                                    // guards connectSnapshots
    std::map<std::string, std::vector<InstrumentPtr>> connectSnapshots;  // by "HGT", "SGT", "HK"
};

}  // namespace mxservice
