#include "tools/inscenter/Interruption.h"

#include <atomic>
#include <csignal>

namespace inscenter {
namespace {

// A handler may write to it, and so may the thread that runs the handler on Windows.
std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void noteInterruption(int /*signal*/) {
    std::signal(SIGINT, noteInterruption);  // there are systems that forget a handler once they have called it
    interrupted = true;
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
    return interrupted;
}

void Interruption::forget() {
    interrupted = false;
}

}  // namespace inscenter
