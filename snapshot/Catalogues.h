#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "snapshot/Snapshot.h"

namespace mxservice::snapshot {

/// How the records of one catalogue lie in a snapshot.
struct CatalogueKind {
    const char* name;
    const RecordType& (*table)();
    /// Answers false when another record of the same key made way.
    bool (*add)(Snapshot&, boost::shared_ptr<IData>);
    std::vector<boost::shared_ptr<IData>> (*all)(const Snapshot&);
    void (*copy)(const Snapshot& from, Snapshot& to);
};

const CatalogueKind& kindOf(SnapshotCatalogue catalogue);

/// What the name of a file says about it.
struct FileName {
    SnapshotCatalogue catalogue;
    SnapshotFormat format;
    SnapshotPacking packing;
};

/// Nothing when it is no name of a catalogue's file.
std::optional<FileName> readFileName(std::string_view name);

/// The name of the file that write() makes.
std::string fileNameOf(const FileName& file);

/// How the names of files begin that repeat baskets for other programs.
constexpr const char* kComponentsName = "components.";

/// Whether a file of that name beside a snapshot's own needs no word.
bool isIgnoredSilently(std::string_view name);

}  // namespace mxservice::snapshot
