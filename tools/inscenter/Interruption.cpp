#include "tools/inscenter/Interruption.h"

#include <csignal>

namespace inscenter {
namespace {

// The one kind of object that a handler may write to.
volatile std::sig_atomic_t interrupted = 0;

extern "C" void noteInterruption(int /*signal*/) {
    interrupted = 1;
}

}  // namespace

Interruption::Interruption() {
    // System calls go on after it, so that the key does not make a write of the answer fail; Output looks between two
    // lines.
    std::signal(SIGINT, noteInterruption);
}

Interruption::~Interruption() {
    std::signal(SIGINT, SIG_DFL);
}

bool Interruption::happened() {
    return interrupted != 0;
}

void Interruption::forget() {
    interrupted = 0;
}

}  // namespace inscenter
