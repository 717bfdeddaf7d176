#pragma once

#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Loads the snapshot into both centers, each with records of its own, and shows of every catalogue how much each of
/// them holds, the first entries, and what the two do differently on purpose. The store must have its root path by
/// then.
void showTour(const Snapshot& snapshot, Output& output, Console& console);

}  // namespace inscenter
