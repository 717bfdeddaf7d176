#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/inscenter/Center.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/FeedVerbs.h"
#include "tools/inscenter/Generate.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/StoreVerbs.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

/// What kind of work a command is.
enum class Task { Ask, Shell, Tour, Store, Diff, Generate, Feed };

/// What the command line asks for.
struct Command {
    Task task = Task::Ask;
    CenterKind center = CenterKind::Server;
    Format format = Format::Table;
    std::string store;      ///< where the client's databases live
    std::string data;       ///< the snapshot's directory
    std::string rulesFile;  ///< empty: the built-in market rules
    std::string today;      ///< YYYYMMDD; empty: the records' trading day, else the clock's day
    bool log = false;

    Verb verb = nullptr;       ///< of Task::Ask
    bool asksRecords = false;  ///< of a verb that needs no center
    Query query;
    StoreVerb storeVerb = nullptr;  ///< of Task::Store
    StoreQuery storeQuery;
    DiffQuery diff;
    GenerateOptions generate;
    FeedVerb feedVerb = nullptr;  ///< of Task::Feed
    FeedQuery feed;
};

/// Reads the command line. Without a command to run, because help was asked for or the line makes no sense, the text is
/// written and `exitCode` set.
std::optional<Command> parseCommand(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                                    int& exitCode);

/// Reads a question to a center that is loaded already: a verb of Task::Ask with its options. What the words do not say
/// stands as in `settings`.
std::optional<Command> parseQuestion(const std::vector<std::string>& words, const Command& settings, std::ostream& out,
                                     std::ostream& err, int& exitCode);

/// The format of that name, or nothing.
std::optional<Format> formatNamed(std::string_view name);

/// "help VERB" as "VERB --help"; other words as they are.
std::vector<std::string> helpAsOption(std::vector<std::string> words);

/// A verb as the command line takes it.
struct VerbHelp {
    std::string name;  ///< "store ls" for one beneath another; empty for what every verb takes
    std::vector<std::string> options;
};

/// Every verb with its options, as the parser knows them.
std::vector<VerbHelp> describeVerbs();

}  // namespace inscenter
