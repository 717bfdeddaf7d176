#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "snapshot/Snapshot.h"
#include "tools/inscenter/Console.h"

namespace inscenter {

using mxservice::catalogueName;
using mxservice::kEveryCatalogue;
using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
constexpr std::size_t kCatalogues = mxservice::kSnapshotCatalogues;

/// Input that cannot be worked with at all: the tool says so and ends with exit code 2.
class UnreadableInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The trading day that all records name which name one, YYYYMMDD; empty when none does or two differ.
std::string tradingDayOf(const Snapshot& snapshot);

/// How many records of each catalogue there are.
using Counts = std::array<std::uint64_t, kCatalogues>;
Counts countsOf(const Snapshot& snapshot);

/// What reading brought.
struct ReadReport {
    Counts records{};
    std::uint64_t skipped = 0;  ///< lines and files that were passed over
    double seconds = 0;
    std::vector<std::string> remarks;  ///< what was reported on the console of what could not be used
};

/// The directory as messages and answers name it: "standard input" for "-", a feed without its password.
std::string snapshotName(const std::string& path);

/// Reads the snapshot in `directory`. The directory "-" stands for standard input, which holds instruments, a JSON
/// object a line, packed or not.
///
/// What cannot be used is reported on `console` and passed over: a line as "FILE:LINE: field NAME: REASON", up to 20
/// lines a file and then their number; unknown keys once a file. Throws UnreadableInput when the directory cannot be
/// read, or none of its files can.
ReadReport readSnapshot(const std::string& directory, Snapshot& snapshot, Console& console);

}  // namespace inscenter
