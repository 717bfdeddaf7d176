#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// The latencies of one round, in nanoseconds.
struct Percentiles {
    double p50 = 0;
    double p99 = 0;
    double p999 = 0;
    double longest = 0;
    std::uint64_t lookups = 0;
    double answered = 0;  // share of the lookups that found a record
};

/// Counts latencies in buckets that are a thirty-second as wide as what they hold; the longest is kept as it is.
class LatencyCounts {
public:
    void add(std::uint64_t nanoseconds, bool answered);
    Percentiles percentiles() const;

private:
    static constexpr std::size_t kBuckets = 2048;

    double atShare(double share) const;

    std::array<std::uint64_t, kBuckets> counts_{};
    std::uint64_t lookups_ = 0;
    std::uint64_t answered_ = 0;
    std::uint64_t longest_ = 0;
};

/// What a reader waits for meanwhile.
enum class Beside {
    Nothing,    // no load runs
    Reload,     // another thread loads what is read
    Other,      // the same load goes to an object that nobody reads, or the reader reads nothing
    Crowd,      // one thread lists everything that is read, another loads one record of it now and then
    Elsewhere,  // the same two threads are at work on a center that nobody reads
};

/// Lookup latencies of one reader in one situation, round by round.
struct Latency {
    std::string what;          // the question
    std::string who;           // kCenter, a rival, or kNobody
    std::size_t size = 0;      // instruments loaded
    std::size_t reloaded = 0;  // of those, how many each load brings anew; 0 without one
    Beside beside = Beside::Nothing;
    std::vector<Percentiles> rounds;

    /// The rounds' values in order, and their median.
    std::vector<double> ascending(double Percentiles::*member) const;
    double median(double Percentiles::*member) const;
    /// The longest of all rounds.
    double worst() const;
};

/// A loop that asks nobody: what it measures are the clock and the stalls of the machine.
constexpr const char* kNobody = "empty loop";

/// How long a reader may ever stand, in milliseconds, and how many times its idle p99.9 a load may cost.
constexpr double kStallAtMostMs = 1;
constexpr double kReloadAtMost = 5;

/// How many times the longest lookup of a center with a crowd may be that of one whose crowd is elsewhere.
constexpr double kCrowdAtMost = 3;

/// How long and how often each situation is watched.
struct Watch {
    double seconds = 0;  // at least; a load that runs is watched to its end
    int rounds = 0;
    bool wholeStore = false;  // also the persisted center with all of its day reloaded, which takes seconds
};

/// Latencies of one reader of an in-memory center, of a persisted one and of what would be written in the former's
/// place: with no load, and while another thread loads a tenth of the day or all of it again and again. Situations take
/// turns, so that each meets the machine in all its moods.
std::vector<Latency> measureReloads(std::size_t size, const Watch& watch);

}  // namespace bench
