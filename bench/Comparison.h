#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Latency.h"
#include "Suite.h"

namespace bench {

/// Heap that records take, for each of them.
struct Memory {
    std::size_t size = 0;   // records
    double record = 0;      // bytes
    double longTexts = 0;   // texts too long to stand in the record itself
    double shortTexts = 0;  // texts that do, empty ones left out
};

/// Bytes of one record in what a center keeps, beside those in something else that holds the same.
struct Footprint {
    std::string what;
    std::string other;
    std::size_t size = 0;  // records
    double center = 0;
    double otherBytes = 0;
    double atMost = 0;  // target of the ratio; 0: none
};

/// All that was measured.
struct Measurements {
    std::vector<Result> results;
    std::vector<Latency> latencies;
    std::vector<Memory> memories;
    std::vector<Footprint> footprints;
};

enum class Topic {
    Floor,    // times of the floor
    Rival,    // times of a rival
    Scaling,  // throughput of two threads, times that of one
    Reload,   // p99.9 during a load, times that without one
    Stall,    // the longest lookup during a load, in milliseconds
    Crowd,    // the longest lookup while others list and load
    Bytes,    // times the bytes of something else
};

/// The name of a topic in the JSON document.
const char* nameOf(Topic topic);

/// The center beside something else.
struct Comparison {
    Topic topic = Topic::Floor;
    std::string what;
    std::size_t size = 0;
    std::string keys;
    int threads = 1;
    std::string against;
    double center = 0;  // medians: nanoseconds, bytes of a record; of Scaling the throughput of two threads over one's
    double other = 0;
    double value = 0;  // what the target speaks of
    double low = 0;    // quartiles of `value` over all pairs of runs
    double high = 0;
    double target = 0;  // 0: none
    bool disturbed = false;

    /// Targets are upper bounds, but for that of a throughput.
    bool met() const { return topic == Topic::Scaling ? value >= target : value <= target; }
};

/// Every comparison that the measurements allow, in their order, topic by topic.
std::vector<Comparison> compare(const Measurements& measured);

}  // namespace bench
