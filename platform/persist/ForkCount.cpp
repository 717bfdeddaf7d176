#include "platform/persist/ForkCount.h"

#include <pthread.h>

#include <atomic>

namespace persist {
namespace {

// Compared instead of process ids: each access asks, a process id costs a system call, and ids are given out again.
std::atomic<unsigned> forks{0};

}  // namespace

void watchForks() {
    // Only the child is told, where other threads may have held any lock when it was made: an addition needs none.
    static const int registered = ::pthread_atfork(nullptr, nullptr, [] { ++forks; });
    static_cast<void>(registered);
}

unsigned forkCount() {
    return forks.load();
}

}  // namespace persist
