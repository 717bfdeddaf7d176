#pragma once

#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "system/ThreadLine.h"

namespace sys {

/// Tells when the readers of something that was taken away have all left. Readers go in and out without ever waiting,
/// each on a cache line of its own; whoever took it away waits for those that were inside. A reader must not go in a
/// second time while it is inside.
class GracePeriod {
public:
    GracePeriod() = default;
    GracePeriod(const GracePeriod&) = delete;
    GracePeriod& operator=(const GracePeriod&) = delete;

    using Count = std::atomic<std::uint32_t>;

    /// Goes in when the calling thread has a line of its own, without a call that leaves this function: what the
    /// shortest reads use. To be left with leave(); nullptr says to take enterShared().
    Count* tryEnter() {
        const std::uint32_t line = ThreadLine::ofThread();
        if (line >= ThreadLine::kOwned) [[unlikely]] {
            return nullptr;
        }
        Count& passages = owned_[line].passages;
        const std::uint32_t before = passages.load(std::memory_order_relaxed);
        assert(before % 2 == 0 && "a reader goes in twice");
        // Releasing, for who waits and meets this mark instead of the one by which the reader before it left.
        passages.store(before + 1, std::memory_order_release);
        // The mark comes before anything that is read: for the processor, the waiting side's barrier sees to that.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return &passages;
    }
    static void leave(Count* passages) {
        passages->store(passages->load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    /// The same for any thread, counting on a line that it may share with others. To be left with leaveShared().
    Count* enterShared();
    static void leaveShared(Count* inside) { inside->fetch_sub(1, std::memory_order_release); }

    /// Returns when every reader that was inside at the time of the call has left. Readers that come later are not
    /// waited for, however many. Safe from any thread that is not inside itself.
    void wait();

private:
    static constexpr std::size_t kCacheLineBytes = 64;

    /// Odd while its thread is inside: a writer that finds it changed knows that the reader it met has left.
    struct alignas(kCacheLineBytes) Owned {
        Count passages{0};
    };
    /// Readers count themselves in on the side that is in use; a writer changes sides, so that the other one empties.
    struct alignas(kCacheLineBytes) Shared {
        std::array<Count, 2> inside{};
    };

    std::array<Owned, ThreadLine::kOwned> owned_;
    std::array<Shared, ThreadLine::kShared> shared_;
    std::atomic<std::uint32_t> side_{0};
    std::mutex waiting_;  // sides are changed by one at a time
};

}  // namespace sys
