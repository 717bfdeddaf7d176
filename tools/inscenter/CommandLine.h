#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "tools/inscenter/Center.h"
#include "tools/inscenter/Generate.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/StoreVerbs.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

/// What kind of work a command is.
enum class Task { Ask, Compare, Store, Generate };

/// What the command line asks for.
struct Command {
    Task task = Task::Ask;
    CenterKind center = CenterKind::Server;
    Format format = Format::Table;
    std::string store;      ///< where the client's databases live
    std::string data;       ///< the snapshot's directory
    std::string rulesFile;  ///< empty: the built-in market rules
    std::string today;      ///< YYYYMMDD; empty: the clock's day
    bool log = false;

    Verb verb = nullptr;  ///< of Task::Ask
    Query query;
    StoreVerb storeVerb = nullptr;  ///< of Task::Store
    StoreQuery storeQuery;
    GenerateOptions generate;
};

/// Reads the command line. Without a command to run, because help was asked for or the line makes no sense, the text is
/// written and `exitCode` set.
std::optional<Command> parseCommand(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                                    int& exitCode);

}  // namespace inscenter
