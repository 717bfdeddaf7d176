#pragma once

#include <string>

#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Loads the snapshot into both centers, each with records of its own, asks both the same questions about every key,
/// market and catalogue, and writes how many answers were compared and how many differ, with the first differences.
/// Answers whether there was none. The store must have its root path by then.
bool compareCenters(const Snapshot& snapshot, Output& output, Console& console);

}  // namespace inscenter
