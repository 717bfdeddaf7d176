#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/inscenter/RecordSelection.h"
#include "tools/inscenter/Verbs.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace inscenter {

// Options that stand for a subject of their own, added to the verb that takes them.

/// What every verb takes that lists records.
void addListing(CLI::App& app, SelectionTexts& selection);
/// An option that may be repeated, and takes several values, also with commas between them.
CLI::Option* addList(CLI::App& app, const char* name, std::vector<std::string>& list, const char* about);
void addLimit(CLI::App& app, std::optional<std::size_t>& limit);
void addExport(CLI::App& app, ExportQuery& query);
void addRules(CLI::App& app, CheckQuery& query);

/// A check of the command line: what is wrong with the text, or nothing where it is a number without a sign.
std::string notNegative(const std::string& text);

}  // namespace inscenter
