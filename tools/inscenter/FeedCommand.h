#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "tools/inscenter/FeedVerbs.h"

namespace inscenter {

/// Adds who asks a feed, and whom it trusts.
void addFeedAccess(CLI::App& app, FeedQuery& query);

/// Adds "feed" with its verbs to the command line. `chosen` is told of the one that stands there.
void addFeedCommands(CLI::App& app, const char* group, FeedQuery& query, const std::function<void(FeedVerb)>& chosen);

}  // namespace inscenter
