#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// The system calls beneath the store, failing or recorded on demand. A test program that is built with FaultyCalls.cpp
/// has them in its own name, ahead of the C library's, for every library in the process.
namespace faulty {

enum class Kind { Write, Sync, Truncate, Memory };

/// From now on, the calls of that kind are counted from 0; the call `at` fails with `error`, with `forever` every later
/// one, too. A write with error 0 writes half of its bytes. Memory counts only inside a MemoryScope.
void failAt(Kind kind, int at, bool forever, int error);
/// Ends that; whether a call has failed.
bool stopFailing();

/// Whether memory can be made to fail in this build.
bool memoryCanFail();
/// Where the calling thread's requests for memory count.
class MemoryScope {
public:
    MemoryScope();
    ~MemoryScope();
    MemoryScope(const MemoryScope&) = delete;
    MemoryScope& operator=(const MemoryScope&) = delete;
};

/// What was done to a file or directory.
struct Event {
    enum class What { Make, Write, Sync } what = What::Make;
    std::string path;
    std::uint64_t offset = 0;
    std::string bytes;    // of a write
    bool onDisk = false;  // a write that was on disk when the call returned
};

/// While on, syncs do nothing and succeed.
void skipSyncs(bool skip);

/// Records what happens beneath a directory.
void startRecording(const std::filesystem::path& beneath);
std::vector<Event> stopRecording();

/// While not empty: names directly beneath that directory lead to an entry that differs in case alone, as on a file
/// system that ignores case.
void ignoreCaseBeneath(const std::filesystem::path& directory);

}  // namespace faulty
