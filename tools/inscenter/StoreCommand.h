#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "tools/inscenter/StoreVerbs.h"

namespace inscenter {

/// Adds "store" with its verbs to the command line. `store` is what --store names, which the verb for keys takes for
/// its root; `chosen` is told of the verb that stands there.
void addStoreCommands(CLI::App& app, StoreQuery& query, std::string& store,
                      const std::function<void(StoreVerb)>& chosen);

}  // namespace inscenter
