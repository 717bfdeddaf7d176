#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <boost/unordered_map.hpp>
#include <boost/unordered_set.hpp>

#include <array>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "MarketDay.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "platform/utils/HashInline.h"

// What a center is measured against: its containers without the center, and what would be written in its place.

namespace bench {

/// Both large indexes of a center with no lock around them: nothing that hashes and finds can be faster.
struct BareIndexes {
    mxservice::HashIndex<InstrumentPtr> records;
    mxservice::HashIndex<std::uint64_t> marketByKey;

    InstrumentPtr find(std::uint64_t key) const {
        const auto found = records.find(key);
        return found == records.end() ? InstrumentPtr() : found->second;
    }
    bool has(std::uint64_t key) const { return records.find(key) != records.end(); }
    /// 0 for a key that is not there.
    std::uint64_t marketOf(std::uint64_t key) const {
        const auto found = marketByKey.find(key);
        return found == marketByKey.end() ? 0 : found->second;
    }
};

/// The hash of a key text with its connect market's name replaced by the one it is filed under, as a center must do it.
inline std::uint64_t foldedHash(std::string_view text) {
    constexpr std::size_t kPrefix = 3;
    constexpr std::size_t kLongestText = 64;  // those that are asked for are shorter
    const std::string_view market = text.substr(0, kPrefix);
    if (market != "HGT" && market != "SGT") {
        return utils::hashBytes(text);
    }
    const std::string_view filed = kListedMarket;
    std::array<char, kLongestText> folded;
    const std::size_t size = filed.size() + text.size() - kPrefix;
    std::memcpy(folded.data(), filed.data(), filed.size());
    std::memcpy(folded.data() + filed.size(), text.data() + kPrefix, text.size() - kPrefix);
    return utils::hashBytes({folded.data(), size});
}

/// Hashes and inserts the records in their order into containers reserved for them.
void fill(BareIndexes& indexes, const Records& records);

/// Both indexes in node containers behind one lock.
struct NodeRival {
    static constexpr const char* kName = "boost::unordered_map + boost::shared_mutex";
    boost::unordered_map<std::uint64_t, InstrumentPtr> records;
    boost::unordered_map<std::uint64_t, std::uint64_t> marketByKey;
    mutable boost::shared_mutex mutex;

    InstrumentPtr find(const std::string& text) const {
        const std::uint64_t key = utils::hashBytes(text);
        const boost::shared_lock<boost::shared_mutex> lock(mutex);
        const auto found = records.find(key);
        return found == records.end() ? InstrumentPtr() : found->second;
    }
};

void fill(NodeRival& rival, const Records& records);
/// The same for records whose keys are there: in place, with the lock held until all are in.
void reload(NodeRival& rival, const Records& records);

/// The keys of each market in node containers, the third table of a center that grows with the catalogue.
using NodeKeySets = boost::unordered_map<std::uint64_t, boost::unordered_set<std::uint64_t>>;
void fill(NodeKeySets& sets, const Records& records);

/// Records by key text, nothing but the standard library.
struct TextRival {
    static constexpr const char* kName = "std::unordered_map<string> + std::shared_mutex";
    std::unordered_map<std::string, InstrumentPtr> records;
    mutable std::shared_mutex mutex;

    InstrumentPtr find(const std::string& text) const {
        const std::shared_lock lock(mutex);
        const auto found = records.find(text);
        return found == records.end() ? InstrumentPtr() : found->second;
    }
};

void fill(TextRival& rival, const Records& records);

}  // namespace bench
