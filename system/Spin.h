#pragma once

#include <mutex>

namespace sys {

/// Tells the processor that the thread waits for another one.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

/// How often to look before going to sleep: what is held for a few hundred nanoseconds is free again by then, while
/// sleeping and being woken costs several microseconds.
constexpr int kSpins = 200;

/// Takes a mutex that is never held for long; waits awake at first.
template <class Mutex>
std::unique_lock<Mutex> lockAwake(Mutex& mutex) {
    for (int i = 0; i < kSpins; ++i) {
        if (mutex.try_lock()) {
            return std::unique_lock<Mutex>(mutex, std::adopt_lock);
        }
        relax();
    }
    return std::unique_lock<Mutex>(mutex);
}

}  // namespace sys
