#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/persist/System.h"

namespace persist {

/// The file that a database was opened from, and whether its path still leads to it. Safe from any thread once the file
/// is remembered.
class DataFile {
public:
    /// The data file in a database's directory.
    explicit DataFile(const std::string& directory) : path_(directory + "/" + kName) {}

    const std::string& path() const { return path_; }

    /// Notes which file the path leads to, once and before what follows. False, with `errno`, when it leads to none.
    bool remember();
    /// How many bytes it has; nothing when the path leads to it no longer.
    std::optional<std::uint64_t> size() const;
    /// Whether the path leads to it and nobody has cut it short.
    bool isCurrent() const;
    /// The same, as of less than 10 ms ago: of all calls in that time, one looks at the file.
    bool wasCurrent() const;

    /// Its name in the directory; stored, never change.
    static constexpr const char* kName = "data.mdb";

private:
    static constexpr std::int64_t kNever = -1'000'000'000;

    const std::string path_;
    FileId id_;
    mutable std::atomic<std::int64_t> lookedAt_{kNever};  // when it last was current
    mutable std::atomic<std::uint64_t> sizeSeen_{0};
    mutable std::atomic<bool> cutShort_{false};
};

}  // namespace persist
