#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/inscenter/Changes.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// A row for each listed or delisted record and for each changed field.
Table changeTable(const Changes& changes);
/// How many records of each catalogue were listed, delisted, changed and left alone.
Table changeCountTable(const Changes& changes);

/// One of two days to compare.
struct Side {
    std::string name;  ///< for people: where it was read from
    Snapshot records;
    std::size_t skipped = 0;  ///< lines, files and documents that were passed over
    bool store = false;
};

/// A day as people write it, 2026-03-02, from YYYYMMDD.
std::string shownDay(const std::string& day);

/// Reads a day from a snapshot's directory, "-" for standard input, or from a store. Throws UnreadableInput when it
/// cannot be read at all.
Side readSide(const std::string& path, Console& console);

struct Comparison {
    Changes changes;
    std::string before;  ///< for people: the older side with its trading day
    std::string after;   ///< the newer one
    const char* note;    ///< for people, on what was compared; empty when that was everything
};

/// Where one side is a store and the other is not, that one is compared in the form in which it would be stored, and
/// catalogues that stores do not keep are left out. `ignored` fields make no change.
Comparison compareSides(const Side& before, const Side& after, const std::vector<std::string>& ignored,
                        Console& console);

/// What is compared with what.
struct DiffQuery {
    std::string before;  ///< a snapshot's directory, "-" for standard input, or a store's
    std::string after;
    std::string ignored;    ///< field names separated by commas
    bool exitCode = false;  ///< whether a difference shows in the exit code
};

/// What a comparison came to.
struct DiffOutcome {
    bool different = false;
    bool whole = true;  ///< both sides were read without passing over anything
};

/// Writes what was listed, delisted and changed. Throws UnreadableInput when a side cannot be read at all.
DiffOutcome showDiff(const DiffQuery& query, Output& output, Console& console);

}  // namespace inscenter
