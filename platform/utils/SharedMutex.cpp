#include "platform/utils/SharedMutex.h"

namespace utils {
namespace {

/// Short reads end within a few hundred nanoseconds; going to sleep and being woken costs several microseconds.
constexpr int kSpins = 200;

void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

/// Waits until `value` differs from `unwanted`, first awake, then asleep.
void waitWhile(const std::atomic<std::uint32_t>& value, std::uint32_t unwanted) {
    for (int i = 0; i < kSpins; ++i) {
        if (value.load(std::memory_order_seq_cst) != unwanted) {
            return;
        }
        relax();
    }
    value.wait(unwanted, std::memory_order_seq_cst);
}

}  // namespace

void SharedMutex::waitOutside(std::atomic<std::uint32_t>& inside) {
    do {
        inside.fetch_sub(1, std::memory_order_seq_cst);
        inside.notify_all();
        waitWhile(closed_, 1);
        inside.fetch_add(1, std::memory_order_seq_cst);
    } while (closed_.load(std::memory_order_seq_cst) != 0);
}

void SharedMutex::lock() {
    writers_.lock();
    closed_.store(1, std::memory_order_seq_cst);
    for (Line& line : lines_) {
        for (std::uint32_t readers = line.inside.load(std::memory_order_seq_cst); readers != 0;
             readers = line.inside.load(std::memory_order_seq_cst)) {
            waitWhile(line.inside, readers);
        }
    }
}

bool SharedMutex::try_lock() {
    if (!writers_.try_lock()) {
        return false;
    }
    closed_.store(1, std::memory_order_seq_cst);
    for (const Line& line : lines_) {
        if (line.inside.load(std::memory_order_seq_cst) != 0) {
            unlock();
            return false;
        }
    }
    return true;
}

void SharedMutex::unlock() {
    closed_.store(0, std::memory_order_seq_cst);
    closed_.notify_all();
    writers_.unlock();
}

}  // namespace utils
