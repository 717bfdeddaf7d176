#include "system/GracePeriod.h"

#include <chrono>
#include <thread>

#include "system/Spin.h"

namespace sys {
namespace {

/// How often a long read is looked at. Readers wake nobody, so that leaving costs them one store.
constexpr std::chrono::microseconds kSleep{50};

template <class Done>
void waitUntil(const Done& done) {
    for (int i = 0; !done(); ++i) {
        if (i < kSpins) {
            relax();
        } else {
            std::this_thread::sleep_for(kSleep);
        }
    }
}

}  // namespace

GracePeriod::Count* GracePeriod::enterShared() {
    // A thread that has just been given a line of its own takes that one from the next time on.
    const std::uint32_t line = ThreadLine::give() % ThreadLine::kShared;
    Count& inside = shared_[line].inside[side_.load(std::memory_order_seq_cst)];
    inside.fetch_add(1, std::memory_order_seq_cst);
    return &inside;
}

void GracePeriod::wait() {
    // Whoever marks its line after this reads what stands there now, and is not concerned.
    ThreadLine::barrier();
    for (const Owned& line : owned_) {
        const std::uint32_t met = line.passages.load(std::memory_order_acquire);
        if (met % 2 != 0) {
            waitUntil([&] { return line.passages.load(std::memory_order_acquire) != met; });
        }
    }
    // Both sides, one after the other: a reader may have seen the side in use, been held up, and counted itself in on
    // it after the side was changed and found empty. It reads what stands there now, but the next to wait must meet it.
    const std::lock_guard guard(waiting_);
    for (int i = 0; i < 2; ++i) {
        const std::uint32_t side = side_.load(std::memory_order_relaxed);
        side_.store(1 - side, std::memory_order_seq_cst);
        for (const Shared& line : shared_) {
            waitUntil([&] { return line.inside[side].load(std::memory_order_seq_cst) == 0; });
        }
    }
}

}  // namespace sys
