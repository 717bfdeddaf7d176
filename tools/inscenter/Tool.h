#pragma once

#include <iosfwd>

namespace inscenter {

/// The tool's main function: `argv` as a program gets it, answers on `out`, messages on `err`. Answers the exit code:
/// 0 answered; 1 a key or market was not found, or check or diff --exit-code found something; 2 bad usage, unreadable
/// input or a store with bad documents; 3 answered, but input was skipped; 4 answered, but the store could not be
/// written.
///
/// The market rules, the pinned day, the log switch and the store's root path of the process are changed while it runs
/// and back at their defaults afterwards. Not for several threads at once.
int runTool(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace inscenter
