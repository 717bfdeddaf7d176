#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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
    std::vector<std::string> words;  ///< the root, unless it is known, and numbers to look for
};

/// What a look into a store came to: a database that could not be read or holds bad documents goes before a number that
/// was not found.
enum class StoreOutcome : std::uint8_t { Good, Missing, Bad };

/// The verbs that look into a store. Each opens databases for reading only, one after the other, and writes its answer
/// to `output`; no read stays open while an answer is written, so that a host beside it can use freed pages again.
/// `console` says which databases could not be read. Throws UnreadableInput when the directory is no store or the
/// database is not in it.
using StoreVerb = StoreOutcome (*)(const StoreQuery& query, Output& output, Console& console);

StoreOutcome listStore(const StoreQuery& query, Output& output, Console& console);
StoreOutcome dumpStore(const StoreQuery& query, Output& output, Console& console);
StoreOutcome verifyStore(const StoreQuery& query, Output& output, Console& console);
StoreOutcome measureStore(const StoreQuery& query, Output& output, Console& console);
/// Tells which records, fields and markets the numbers are the keys of. Throws UnreadableInput for what is no number.
StoreOutcome explainKeys(const StoreQuery& query, Output& output, Console& console);

}  // namespace inscenter
