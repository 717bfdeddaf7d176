#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "Suite.h"

namespace bench {

/// Bytes in use on the heap, divided by the number of records.
struct Memory {
    std::size_t size = 0;    // records
    double record = 0;       // a record itself
    double center = 0;       // all that a loaded center adds to it
    double bareIndexes = 0;  // both large indexes alone
    double nodeIndexes = 0;  // the same in node containers
};

/// Bytes that a center takes beside those of something else that holds the same.
struct Footprint {
    std::string what;
    std::string other;
    std::size_t size = 0;  // records
    double center = 0;
    double otherBytes = 0;
    double atMost = 0;  // target of the ratio; 0: none
};

/// What ran how: the options that make two reports comparable.
struct Conditions {
    bool quick = false;
    std::string build;  // compiler and whether asserts are compiled in
};

/// Prints the tables that the results allow: the center against its floor, two threads against one, the center
/// against rivals, memory, footprints. Targets stand beside; nothing depends on whether they are met.
void printReport(std::ostream& out, const std::vector<Result>& results, const std::vector<Memory>& memories,
                 const std::vector<Footprint>& footprints);

/// Writes every run, the memory and the footprints as one JSON document. Answers false when the file cannot be written.
bool writeJson(const std::string& path, const Conditions& conditions, const std::vector<Result>& results,
               const std::vector<Memory>& memories, const std::vector<Footprint>& footprints);

}  // namespace bench
