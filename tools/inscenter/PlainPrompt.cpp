#include "tools/inscenter/Prompt.h"

// The prompt of a build without a line editor: the terminal's own editing, no completion, no history.

namespace inscenter {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the other prompt keeps it
Prompt::Prompt(Completer /*completer*/) {}

Prompt::~Prompt() = default;

const char* Prompt::keys() {
    return "Ctrl-C stops.";
}

LineSource::Next Prompt::next(std::string& line, bool continued) {
    std::cout << (continued ? "      ...> " : "inscenter> ") << std::flush;
    const Next read = PlainLines().next(line, continued);
    if (read == Next::End) {
        std::cout << std::endl;
    }
    Interruption::forget();  // the terminal has taken back what was typed before it
    return read;
}

bool Prompt::hasPages() const {
    return false;
}

bool Prompt::show(const std::string& /*answer*/) {
    return false;
}

}  // namespace inscenter
