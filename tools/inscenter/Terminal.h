#pragma once

#include <iosfwd>

#include "tools/inscenter/TextTable.h"

namespace inscenter {

/// What is known of the terminal behind std::cout or std::cerr: its width, and whether it is to have colours (not when
/// NO_COLOR is set or the terminal is dumb). Any other stream, and one that goes to no terminal, is as wide as it
/// takes.
Screen screenOf(const std::ostream& stream);

/// Whether the stream is std::cout or std::cerr and goes to a terminal.
bool isTerminal(const std::ostream& stream);

}  // namespace inscenter
