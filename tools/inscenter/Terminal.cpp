#include "tools/inscenter/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace inscenter {
namespace {

int descriptorOf(const std::ostream& stream) {
    return &stream == &std::cout ? STDOUT_FILENO : &stream == &std::cerr ? STDERR_FILENO : -1;
}

std::string_view variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

bool isTerminal(const std::ostream& stream) {
    const int descriptor = descriptorOf(stream);
    return descriptor >= 0 && isatty(descriptor) == 1;
}

Screen screenOf(const std::ostream& stream) {
    if (!isTerminal(stream)) {
        return {};
    }
    winsize size{};
    // A serial line or an editor may say 0 columns, which means the same as no answer: as wide as it takes.
    const bool known = ioctl(descriptorOf(stream), TIOCGWINSZ, &size) == 0;
    return {known ? size.ws_col : std::size_t{0}, variable("NO_COLOR").empty() && variable("TERM") != "dumb"};
}

}  // namespace inscenter
