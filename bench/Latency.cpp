#include "Latency.h"

#include <algorithm>
#include <bit>

#include "Suite.h"

namespace bench {
namespace {

/// Each power of two has this many buckets.
constexpr std::uint64_t kSteps = 32;

std::size_t bucketOf(std::uint64_t nanoseconds) {
    if (nanoseconds < 2 * kSteps) {
        return nanoseconds;
    }
    const auto shift = static_cast<unsigned>(std::bit_width(nanoseconds) - std::bit_width(2 * kSteps - 1));
    return (shift * kSteps) + (nanoseconds >> shift);
}

/// The middle of a bucket.
double valueOf(std::size_t bucket) {
    if (bucket < 2 * kSteps) {
        return static_cast<double>(bucket);
    }
    const std::size_t shift = bucket / kSteps - 1;
    const std::size_t step = bucket - shift * kSteps;
    return (static_cast<double>(step) + 0.5) * static_cast<double>(std::uint64_t{1} << shift);
}

}  // namespace

void LatencyCounts::add(std::uint64_t nanoseconds, bool answered) {
    ++counts_[std::min(bucketOf(nanoseconds), kBuckets - 1)];
    ++lookups_;
    answered_ += answered ? 1 : 0;
    longest_ = std::max(longest_, nanoseconds);
}

double LatencyCounts::atShare(double share) const {
    const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(lookups_));
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
        seen += counts_[bucket];
        if (seen > wanted) {
            return valueOf(bucket);
        }
    }
    return static_cast<double>(longest_);
}

Percentiles LatencyCounts::percentiles() const {
    Percentiles result;
    result.p50 = atShare(0.5);
    result.p99 = atShare(0.99);
    result.p999 = atShare(0.999);
    result.longest = static_cast<double>(longest_);
    result.lookups = lookups_;
    result.answered = lookups_ == 0 ? 0 : static_cast<double>(answered_) / static_cast<double>(lookups_);
    return result;
}

std::vector<double> Latency::ascending(double Percentiles::*member) const {
    std::vector<double> values;
    std::transform(rounds.begin(), rounds.end(), std::back_inserter(values),
                   [member](const Percentiles& round) { return round.*member; });
    std::sort(values.begin(), values.end());
    return values;
}

double Latency::median(double Percentiles::*member) const {
    return quantile(ascending(member), 0.5);
}

double Latency::worst() const {
    return ascending(&Percentiles::longest).back();
}

}  // namespace bench
