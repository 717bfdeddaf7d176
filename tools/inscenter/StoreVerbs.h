#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"

namespace inscenter {

/// What a look into a store is asked.
struct StoreQuery {
    std::string root;      ///< the directory that holds the databases
    std::string database;  ///< empty: every database
    bool keysOnly = false;
    std::string prefix;  ///< of keys, or of the fields of sub-documents
    std::optional<std::size_t> limit;
};

/// The verbs that look into a store. Each opens databases for reading only, one after the other, and writes its answer
/// to `output`; no read stays open while an answer is written, so that a host beside it can use freed pages again. They
/// answer false when a database could not be read or holds bad documents; `console` says which could not be read.
/// Throws UnreadableInput when the directory is no store or the database is not in it.
using StoreVerb = bool (*)(const StoreQuery& query, Output& output, Console& console);

bool listStore(const StoreQuery& query, Output& output, Console& console);
bool dumpStore(const StoreQuery& query, Output& output, Console& console);
bool verifyStore(const StoreQuery& query, Output& output, Console& console);
bool measureStore(const StoreQuery& query, Output& output, Console& console);

}  // namespace inscenter
