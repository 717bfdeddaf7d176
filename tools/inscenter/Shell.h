#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/inscenter/CommandLine.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

/// Answers questions about a loaded day line by line, from a prompt on a terminal, else from standard input: the verbs
/// with their options, "help", "quit", and comments behind "#"; "> FILE" or ">> FILE" at the end of a line writes or
/// appends the answer to a file. "sql" takes statements over several lines, up to a semicolon; "format FORMAT" holds
/// for what follows; "reload" calls `reload`, which throws where the day stays as it was. A line that makes no sense or
/// cannot be answered is reported and does not end it. Answers 0 when every line was answered, else the exit code of
/// the first that was not; at a prompt always 0.
int runShell(const Command& settings, LoadedDay& loaded, const std::function<void()>& reload, std::ostream& out,
             Console& console, std::ostream& err);

/// What the word behind `line` may become: verbs, then options, markets, field names, formats and keys; in a statement
/// tables and columns.
std::vector<std::string> shellCompletions(const std::string& line, const std::string& word,
                                          mxservice::IInstrumentCenter& center, const Day& day);

}  // namespace inscenter
