#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/IInstrumentCenter.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Which center answers.
enum class CenterKind { Server, Client };

/// A fresh center. The pointer destroys it through its own class, as centers ask for. The client's store must have its
/// root path by then.
std::shared_ptr<mxservice::IInstrumentCenter> makeCenter(CenterKind kind);

/// The statistics of a center of that kind.
mxservice::CenterStatistics statisticsOf(mxservice::IInstrumentCenter& center, CenterKind kind);

/// One catalogue handed to a center.
struct LoadStep {
    SnapshotCatalogue catalogue;
    std::size_t records;
    double seconds;
};

/// The markets that the records name and how many name each, in the order in which they first occur.
std::vector<std::pair<std::string, std::size_t>> marketsOf(const Snapshot& snapshot);

/// Reports the databases that what was loaded so far could not be written to. Answers whether there was none.
bool wroteEverything(mxservice::IInstrumentCenter& center, CenterKind kind, Console& console);

/// Hands every catalogue of the snapshot that has records to the center: the instruments in one batch, then the others.
std::vector<LoadStep> load(mxservice::IInstrumentCenter& center, const Snapshot& snapshot, Console& console);

/// What the center keeps of a catalogue other than the instruments, by the keys under which it does.
std::map<std::string, boost::shared_ptr<mxservice::IData>> recordsKept(mxservice::IInstrumentCenter& center,
                                                                       SnapshotCatalogue catalogue);

/// Gives the snapshot copies of its own of the records that a load may change, so that the others stay as they are.
void separate(Snapshot& snapshot);

/// A center of each kind.
struct BothCenters {
    std::shared_ptr<mxservice::IInstrumentCenter> server;
    std::shared_ptr<mxservice::IInstrumentCenter> client;
};

/// Both with the snapshot, each with records of its own: loads change them.
BothCenters loadBoth(const Snapshot& snapshot, Console& console);

}  // namespace inscenter
