#pragma once

#include <string>

#include "tools/inscenter/Center.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Asks both centers, which hold the snapshot, the same questions about every key, market and catalogue, and writes how
/// many answers were compared and how many differ, with the first differences. Answers whether there was none.
bool compareCenters(const BothCenters& both, const Snapshot& snapshot, Output& output, Console& console);

}  // namespace inscenter
