#include "platform/persist/BatchOrder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <string_view>

namespace persist {
namespace {

bool isInKeyOrder(const StoreBatch& batch) {
    for (std::size_t i = 1; i < batch.size(); ++i) {
        if (batch.key(i - 1) >= batch.key(i)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::vector<std::size_t> inKeyOrder(const StoreBatch& batch) {
    if (isInKeyOrder(batch)) {  // as loads hand theirs in, so that keys are sorted once
        std::vector<std::size_t> order(batch.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        return order;
    }
    // Keys lie anywhere in memory. Most comparisons are decided by their first bytes, which lie side by side here.
    struct Place {
        std::uint64_t begin;
        std::size_t entry;
    };
    std::vector<Place> places(batch.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        std::array<unsigned char, sizeof places[i].begin> bytes{};
        const std::string_view key = batch.key(i);
        std::copy_n(key.begin(), std::min(key.size(), bytes.size()), bytes.begin());
        places[i] = {std::accumulate(bytes.begin(), bytes.end(), std::uint64_t{0},
                                     [](std::uint64_t sum, unsigned char byte) { return sum << 8U | byte; }),
                     i};
    }
    std::sort(places.begin(), places.end(), [&](const Place& a, const Place& b) {
        if (a.begin != b.begin) {
            return a.begin < b.begin;
        }
        const int order = batch.key(a.entry).compare(batch.key(b.entry));
        return order != 0 ? order < 0 : a.entry < b.entry;
    });
    std::vector<std::size_t> order;
    order.reserve(places.size());
    for (const Place& place : places) {
        // Of equal keys the later counts, and it stands later here. Both would do for a put, but not for an append.
        if (!order.empty() && batch.key(order.back()) == batch.key(place.entry)) {
            order.back() = place.entry;
        } else {
            order.push_back(place.entry);
        }
    }
    return order;
}

std::size_t roughSize(const StoreBatch& batch) {
    // Not all, because a value is made each time it is asked for; from all over the batch, because records of one size
    // may lie together. Where the guess is too low, the map grows in the middle of the write, which then begins anew.
    constexpr std::size_t kSamples = 16;
    std::size_t keys = 0;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        keys += batch.key(i).size();
    }
    const std::size_t samples = std::min(kSamples, batch.size());
    std::size_t values = 0;
    for (std::size_t i = 0; i < samples; ++i) {
        values += batch.value(i * batch.size() / samples).size();
    }
    return samples == 0 ? 0 : keys + values * (batch.size() / samples + 1);
}

}  // namespace persist
