#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/persist/PosixFiles.h"

namespace persist {

/// The file that a database was opened from, and whether its path still leads to it. Every access asks, so the answer
/// costs little: the file is looked at only when something may have happened to it. Safe from any thread once the file
/// is remembered.
class DataFile {
public:
    /// What no watch sees, such as a link on the way to the directory that leads elsewhere now, is noticed this late.
    static constexpr std::int64_t kTrustedNanoseconds = 10'000'000;

    /// The data file in a database's directory.
    explicit DataFile(const std::string& directory) : path_(directory + "/" + kName) {}

    const std::string& path() const { return path_; }

    /// Notes which file the path leads to and has it watched, once and before what follows. False, with `errno`, when
    /// it leads to none.
    bool remember();
    /// How many bytes it has; nothing when the path leads to it no longer.
    std::optional<off_t> size() const;
    /// Whether the path leads to it and nobody has cut it short. Not for what a forked child inherited.
    bool isCurrent() const;

    /// Its name in the directory; stored, never change.
    static constexpr const char* kName = "data.mdb";

private:
    const std::string path_;
    FileId id_;
    bool watched_ = false;
    mutable std::atomic<std::uint64_t> changesSeen_{0};
    mutable std::atomic<std::int64_t> lookedAt_{-kTrustedNanoseconds};  // so that the first call looks
    mutable std::atomic<off_t> sizeSeen_{0};
    mutable std::atomic<bool> cutShort_{false};
};

}  // namespace persist
