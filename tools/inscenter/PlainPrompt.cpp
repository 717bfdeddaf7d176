#include "tools/inscenter/Prompt.h"

// The prompt of a build without a line editor: the terminal's own editing, no completion, no history.

namespace inscenter {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the other prompt keeps it
Prompt::Prompt(Completer /*completer*/) {}

Prompt::~Prompt() = default;

const char* Prompt::keys() {
    return "Ctrl-C stops.";
}

bool Prompt::next(std::string& line) {
    std::cout << "inscenter> " << std::flush;
    const bool read = PlainLines().next(line);
    if (!read) {
        std::cout << std::endl;
    }
    Interruption::forget();  // the terminal has taken back what was typed before it
    return read;
}

}  // namespace inscenter
