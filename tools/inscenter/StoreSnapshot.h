#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/inscenter/Console.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Reads what a persisted center has left in the store beneath `root`: instruments, ETFs, interbank bonds and OTC fund
/// plans; stores keep no other catalogue. What cannot be read is reported and passed over. Answers how much that was.
std::size_t readStoredSnapshot(const std::string& root, Snapshot& snapshot, Console& console);

/// The same of those records alone to which the keys may lead. Answers whether each led to one, and none was passed
/// over.
bool readStoredRecords(const std::string& root, const std::vector<std::string>& keys, Snapshot& snapshot,
                       Console& console);

/// A store among the temporary files for a persisted center of the process, gone with the object; the process's own is
/// back then. Throws UnreadableInput when it cannot be made.
class ScratchStore {
public:
    ScratchStore();
    ~ScratchStore();
    ScratchStore(const ScratchStore&) = delete;
    ScratchStore& operator=(const ScratchStore&) = delete;

    static void close();
    const std::string& root() const { return root_; }

private:
    const std::string before_;
    std::string root_;
};

/// The snapshot as a persisted center would store it, listings merged and connect flags set. Goes through a store in
/// the directory for temporary files; no center of the process may be in use meanwhile. Throws UnreadableInput when
/// that cannot be written.
Snapshot storedForm(const Snapshot& snapshot, Console& console);

}  // namespace inscenter
