#include "tools/inscenter/Terminal.h"

#include <cstdlib>
#include <iostream>
#include <optional>
#include <string_view>

#include "tools/inscenter/System.h"

namespace inscenter {
namespace {

std::optional<TerminalState> terminalBehind(const std::ostream& stream) {
    return &stream == &std::cout   ? terminalOf(Standard::Output)
           : &stream == &std::cerr ? terminalOf(Standard::Error)
                                   : std::nullopt;
}

std::string_view variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

bool isTerminal(const std::ostream& stream) {
    return terminalBehind(stream).has_value();
}

Screen screenOf(const std::ostream& stream) {
    const std::optional<TerminalState> terminal = terminalBehind(stream);
    if (!terminal) {
        return {};
    }
    return {terminal->columns, terminal->escapes && variable("NO_COLOR").empty() && variable("TERM") != "dumb"};
}

}  // namespace inscenter
