#pragma once

#include <string>
#include <vector>

#include "tools/inscenter/Changes.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"

namespace inscenter {

/// A row for each listed or delisted record and for each changed field.
Table changeTable(const Changes& changes);
/// How many records of each catalogue were listed, delisted, changed and left alone.
Table changeCountTable(const Changes& changes);

/// What is compared with what.
struct DiffQuery {
    std::string before;  ///< a snapshot's directory, "-" for standard input, or a store's
    std::string after;
    std::string ignored;  ///< field names separated by commas
};

/// Writes what was listed, delisted and changed. Where one side is a store and the other is not, that one is compared
/// in the form in which it would be stored, and catalogues that stores do not keep are left out. Answers whether both
/// sides were read whole. Throws UnreadableInput when a side cannot be read at all.
bool showDiff(const DiffQuery& query, Output& output, Console& console);

}  // namespace inscenter
