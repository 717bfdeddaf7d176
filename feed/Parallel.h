#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace mxservice::feed {

/// As many as pay for what processors do: each needs memory of its own to pack and unpack in, and whoever loads a day
/// is not alone on its machine.
inline std::size_t workers() {
    constexpr std::size_t kMost = 8;
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMost);
}

/// Does work(0) to work(count - 1), in any order, on the calling thread and up to `threads - 1` others; where the
/// system has none to give, on fewer. Returns when none is under way any more. Where some throw, the first of them that
/// was seen is thrown on, and what had not begun is left undone.
template <class Work>
void inParallel(std::size_t count, std::size_t threads, const Work& work) {
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr failure;
    const auto run = [&]() noexcept {
        for (std::size_t i = next++; i < count && !failed; i = next++) {
            try {
                work(i);
            } catch (...) {
                if (!failed.exchange(true)) {
                    failure = std::current_exception();
                }
            }
        }
    };
    {
        std::vector<std::jthread> others;
        others.reserve(std::min(count, threads));
        while (others.size() + 1 < std::min(count, threads)) {
            try {
                others.emplace_back(run);
            } catch (const std::system_error&) {
                break;
            }
        }
        run();
    }  // joined: what they wrote can be read
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace mxservice::feed
