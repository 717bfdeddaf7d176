#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace mxservice {

/// What the latest load of one market did with its records. received + restored = stored + outranked.
struct MarketLoad {
    /// Under which the records are filed: "HK" for "HGT" and "SGT", "SH" for "SHFI". "ETFINSTS" and "BANK" are what
    /// initEtfs and initBonds register; "ETFINSTS" counts funds.
    std::string market;
    std::uint64_t received = 0;   ///< records of this market that the batch brought
    std::uint64_t restored = 0;   ///< read back from the raw databases to complete a partial listing
    std::uint64_t stored = 0;     ///< records that this load made findable
    std::uint64_t replaced = 0;   ///< of those, how many have a key that answered before the load
    std::uint64_t removed = 0;    ///< keys that answered before the load and no longer do; 0 in the in-memory center
    std::uint64_t outranked = 0;  ///< dropped, because another record of the same key goes first
    std::uint64_t unwritten = 0;  ///< of those stored: served from memory, because their database was not written
    /// For documents, store and indexes of this market; the in-memory center files all markets of a load together and
    /// tells the time of that.
    std::chrono::nanoseconds time{};
};

/// A part of the work of a load.
struct LoadStep {
    std::string name;                 ///< what is done in it
    std::chrono::nanoseconds time{};  ///< by the clock on the wall
};

/// A record that a load of instruments dropped.
struct DroppedRecord {
    std::string key;             ///< its key text; empty for an empty pointer, of which only its place is known
    std::uint64_t position = 0;  ///< of an empty pointer in the batch, counted from 0
    std::string reason;          ///< why, in words
};

/// One call of initInstruments or replaceInstruments; applyChanges is no load and stands nowhere but in failed writes.
/// Records that are neither empty, foreign nor waiting stand in their markets' MarketLoad.
struct LoadReport {
    std::uint64_t number = 0;         ///< counts the calls of this center; 0 before the first
    std::uint64_t records = 0;        ///< handed in, empty pointers included
    std::uint64_t empty = 0;          ///< dropped: empty pointers
    std::uint64_t foreign = 0;        ///< dropped: not of Hong Kong, in a load of one connect market alone
    std::uint64_t waiting = 0;        ///< kept until both connect markets have arrived; the in-memory center alone
    std::chrono::nanoseconds time{};  ///< the whole call, derived catalogues included
    std::vector<LoadStep> steps;      ///< of that, in their order; empty after a load of one connect market alone
    /// Eight of those dropped at most: empty pointers, then foreign ones, then those outranked in their markets, among
    /// them what was restored or had waited.
    std::vector<DroppedRecord> dropped;
};

/// A record cache of the persisted center. Counts run from its construction.
struct CacheUse {
    std::string name;             ///< what it caches
    std::uint64_t capacity = 0;   ///< records
    std::uint64_t used = 0;       ///< records
    std::uint64_t hits = 0;       ///< lookups of known keys that the cache answered
    std::uint64_t misses = 0;     ///< those it did not: read from the store, or from memory after a failed write
    std::uint64_t evictions = 0;  ///< records that made room for another
};

/// A table in memory.
struct IndexSize {
    std::string name;        ///< what it finds
    std::uint64_t keys = 0;  ///< entries
    /// What the table itself has allocated: slots, nodes and texts, free slots included. Neither the records that it
    /// points to nor the allocator's own rounding.
    std::uint64_t bytes = 0;
};

/// A database that refused at least one write since the center's construction.
struct FailedWrites {
    std::string database;      ///< its name in the store
    std::uint64_t writes = 0;  ///< transactions refused
    std::string reason;        ///< why the last of them was, as the store's line in the log says
};

/// What a center knows of its own work: a value, the caller's own. Each part is of one moment, the parts are of moments
/// shortly after one another. Of two loads of one market at the same time the one that ended last is told of.
struct CenterStatistics {
    LoadReport lastLoad;                     ///< the load of instruments that ended last
    std::vector<MarketLoad> markets;         ///< every market loaded so far, in the order of the names
    std::vector<FailedWrites> failedWrites;  ///< in the order of the names; empty in the in-memory center
    std::vector<CacheUse> caches;            ///< empty in the in-memory center
    /// Every table that grows with the catalogue; those that are made when they are asked for once that was done.
    std::vector<IndexSize> indexes;
};

}  // namespace mxservice
