#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace persist {

/// Tells whether anything may have happened to the files and directories that are watched, for a fifth of what it costs
/// to look at one of them. Sees what this and other processes do: removing, moving, writing, cutting short. One for
/// the process, safe from any thread; not for a forked child, which would take its parent's news away.
class FileWatch {
public:
    static FileWatch& instance();

    /// Watches a file or directory until it is removed. False where the system has no room for more.
    bool add(const std::string& path);

    /// A number that changes when something has happened since the last call, by whichever thread. Who looks at the
    /// files after a call, and finds the same number later, need not look again.
    std::uint64_t changes();

    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

private:
    FileWatch();

    const int queue_;  // never closed: threads that outlive main() may still read
    std::atomic<std::uint64_t> changes_{0};
};

}  // namespace persist
