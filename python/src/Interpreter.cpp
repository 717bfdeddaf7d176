#include "src/Interpreter.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "src/Inside.h"

namespace binding {
namespace {

// A thread that waits for the interpreter's lock while the interpreter ends is ended by it, in the middle of our frames
// and of the library's, which takes the process down. So every thread of ours passes this gate before it asks for the
// lock, and the end of the interpreter shuts the gate first and lets those through that were in it.
std::atomic<int> entering{0};
std::atomic<bool> shut{false};
std::atomic<std::thread::id> closer{};

// Of Inside; guarded by the interpreter's lock.
bool closing = false;
int threadsInside = 0;

/// Whether the lock may be asked for; if so, leave() is called once it is held. Both sides write before they read (the
/// default order), so of a thread that enters and the end that shuts at the same time at least one sees the other.
bool enter() {
    entering.fetch_add(1);
    if (!shut.load()) {
        return true;
    }
    entering.fetch_sub(1);
    return false;
}

void leave() {
    entering.fetch_sub(1);
}

/// For a thread that has nowhere to go back to; the process ends without it.
[[noreturn]] void waitForTheEnd() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

}  // namespace

// The thread that ends the interpreter destroys what modules still hold, with nobody left who wanted the lock.
Released::Released()
    : state_(shut.load() && closer.load() == std::this_thread::get_id() ? nullptr : PyEval_SaveThread()) {}

Released::~Released() {
    if (state_ == nullptr) {
        return;
    }
    if (!enter()) {
        waitForTheEnd();
    }
    PyEval_RestoreThread(state_);
    leave();
}

Inside::Inside() {
    if (closing && closer.load() != std::this_thread::get_id()) {
        PyEval_SaveThread();
        waitForTheEnd();
    }
    ++threadsInside;
}

Inside::~Inside() {
    --threadsInside;
}

Held::Held() : held_(enter()) {
    if (held_) {
        state_ = PyGILState_Ensure();
        leave();
    }
}

Held::~Held() {
    if (held_) {
        PyGILState_Release(state_);
    }
}

void closeInterpreter() {
    closer = std::this_thread::get_id();
    closing = true;
    // Before the gate is shut, through which those who are inside have to come back.
    while (threadsInside > 0) {
        const Released released;
        std::this_thread::yield();
    }
    shut = true;
    PyThreadState* const state = PyEval_SaveThread();
    while (entering.load() != 0) {
        std::this_thread::yield();
    }
    PyEval_RestoreThread(state);
}

}  // namespace binding
