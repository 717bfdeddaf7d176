#pragma once

#include <cstddef>
#include <string>

#include "tools/inscenter/Console.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Reads what a persisted center has left in the store beneath `root`: instruments, ETFs, interbank bonds and OTC fund
/// plans; stores keep no other catalogue. What cannot be read is reported and passed over. Answers how much that was.
std::size_t readStoredSnapshot(const std::string& root, Snapshot& snapshot, Console& console);

/// The snapshot as a persisted center would store it, listings merged and connect flags set. Goes through a store in
/// the directory for temporary files; no center of the process may be in use meanwhile. Throws UnreadableInput when
/// that cannot be written.
Snapshot storedForm(const Snapshot& snapshot, Console& console);

}  // namespace inscenter
