#pragma once

#include "tools/inscenter/Center.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Shows of every catalogue how much each of the centers holds, which have loaded the snapshot, the first entries, and
/// what the two do differently on purpose.
void showTour(const BothCenters& both, const Snapshot& snapshot, Output& output, Console& console);

}  // namespace inscenter
