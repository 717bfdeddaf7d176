#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace mxservice {

/// The code sets of the day. Entries are market directly followed by code.
struct CodeSets {
    std::map<std::string, std::set<std::string>> ipoCodes;              // by market "SH", "SZ", "BJ"
    std::map<std::string, std::set<std::string>> cdrCodes;              // by market "SH", "SZ"
    std::set<std::string> neeqInquiryCodes;                             //
    std::map<std::string, std::set<std::uint64_t>> stkOptionUndlCodes;  // hashes, by underlying market
};

/// The entries of every market.
inline std::set<std::string> unionOf(const std::map<std::string, std::set<std::string>>& setByMarket) {
    std::set<std::string> all;
    for (const auto& [market, entries] : setByMarket) {
        all.insert(entries.begin(), entries.end());
    }
    return all;
}

/// Whether options of the exchange have the code with that key as their underlying.
inline bool isOptionUnderlying(const CodeSets& sets, const std::string& market, std::uint64_t codeKey) {
    const auto found = sets.stkOptionUndlCodes.find(market);
    return found != sets.stkOptionUndlCodes.end() && found->second.count(codeKey) != 0;
}

}  // namespace mxservice
