#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tools/inscenter/Tool.h"

namespace {

/// Whoever read the answer has seen enough ("inscenter ... | head"): there is nothing left to do and nothing to report.
extern "C" void endQuietly(int /*signal*/) {
    // Not exit(): a handler may interrupt anything, also what its destructors would tear down.
    _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, endQuietly);
    std::ios::sync_with_stdio(false);
    return inscenter::runTool(argc, argv, std::cout, std::cerr);
}
