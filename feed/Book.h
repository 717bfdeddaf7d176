#pragma once

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "snapshot/Snapshot.h"

namespace mxservice::feed {

/// A sum of hashes, 128 bits: of the same summands it is the same in any order, and one of them can be taken away.
struct Digest {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    Digest& operator+=(const Digest& other);
    Digest& operator-=(const Digest& other);
    friend bool operator==(const Digest&, const Digest&) = default;

    std::string text() const;
    static std::optional<Digest> of(std::string_view text);
};

/// What a log holds after a revision, without its records: the hash of each record's bytes by key. Publishers and hosts
/// keep one each, and the digests tell whether they have the same.
class Book {
public:
    /// The key of a record within the book. The text as the record has it: which of several listings a center files
    /// under one key is the center's affair.
    static std::uint64_t keyOf(SnapshotCatalogue catalogue, std::string_view key);

    /// The hash of a record. The key is in it: two records whose bytes changed places are another state.
    static Digest hashOf(std::uint64_t key, std::string_view bytes);

    /// Makes room for the records of a day: growing step by step would move every entry several times.
    void reserve(std::size_t records) { hashByKey_.reserve(records); }
    /// A load of a day, beside its records.
    void addCall(SnapshotCatalogue catalogue, const std::vector<std::string>& markets, std::uint64_t records);
    /// A record of a day. Several of one key add up, so that none can be missing.
    void add(std::uint64_t key, const Digest& hash);
    /// An instrument of a change: in place of whatever has its key.
    void put(std::uint64_t key, std::string_view bytes);
    void remove(std::uint64_t key);

    /// A market of a record.
    void addMarket(const std::string& market) { markets_.insert(market); }
    bool hasMarket(const std::string& market) const { return markets_.count(market) != 0; }

    const Digest& digest() const { return digest_; }
    std::size_t size() const { return hashByKey_.size(); }

private:
    boost::unordered_flat_map<std::uint64_t, Digest> hashByKey_;
    std::set<std::string> markets_;  // that records or loads of instruments name
    std::uint64_t calls_ = 0;
    Digest digest_;
};

}  // namespace mxservice::feed
