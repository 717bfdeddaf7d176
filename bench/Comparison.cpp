#include "Comparison.h"

#include <algorithm>

namespace bench {
namespace {

constexpr double kNanosecondsPerMillisecond = 1e6;

/// The ratio of the medians, with the quartiles over all pairs: which run came beside which is chance.
void setRatio(Comparison& comparison, const std::vector<double>& numerators, const std::vector<double>& denominators) {
    std::vector<double> ratios;
    for (const double numerator : numerators) {
        for (const double denominator : denominators) {
            ratios.push_back(numerator / denominator);
        }
    }
    std::sort(ratios.begin(), ratios.end());
    comparison.value = quantile(numerators, 0.5) / quantile(denominators, 0.5);
    comparison.low = quantile(ratios, 0.25);
    comparison.high = quantile(ratios, 0.75);
}

Comparison begun(Topic topic, const Series& series, const std::string& against) {
    Comparison comparison;
    comparison.topic = topic;
    comparison.what = series.what;
    comparison.size = series.size;
    comparison.keys = series.keys;
    comparison.threads = series.threads;
    comparison.against = against;
    return comparison;
}

/// Floors with `floors`, rivals without.
void compareTimes(const std::vector<Result>& results, bool floors, std::vector<Comparison>& comparisons) {
    for (const Result& other : results) {
        const Series& series = other.series;
        const Result* const center = findResult(results, series, kCenter, series.threads);
        if (series.who == kCenter || (series.who == kFloor) != floors || center == nullptr) {
            continue;
        }
        Comparison& comparison =
            comparisons.emplace_back(begun(floors ? Topic::Floor : Topic::Rival, series, series.who));
        comparison.center = center->median();
        comparison.other = other.median();
        setRatio(comparison, center->counted(), other.counted());
        comparison.target = series.centerAtMost;
        comparison.disturbed = center->disturbed() || other.disturbed();
    }
}

void compareThreads(const std::vector<Result>& results, std::vector<Comparison>& comparisons) {
    for (const Result& one : results) {
        const Series& series = one.series;
        const Result* const two = findResult(results, series, kCenter, 2);
        if (series.who != kCenter || series.threads != 1 || two == nullptr) {
            continue;
        }
        Comparison& comparison = comparisons.emplace_back(begun(Topic::Scaling, series, "its own with one thread"));
        comparison.threads = 2;
        setRatio(comparison, one.counted(), two->counted());
        comparison.center = comparison.value;
        const Result* const floorOne = findResult(results, series, kFloor, 1);
        const Result* const floorTwo = findResult(results, series, kFloor, 2);
        if (floorOne != nullptr && floorTwo != nullptr) {
            comparison.other = floorOne->median() / floorTwo->median();
        }
        comparison.target = series.leastScaling;
        comparison.disturbed = one.disturbed() || two->disturbed();
    }
}

const Latency* findLatency(const std::vector<Latency>& latencies, const Latency& like, const std::string& who,
                           std::size_t reloaded, Beside beside) {
    const auto found = std::find_if(latencies.begin(), latencies.end(), [&](const Latency& latency) {
        return latency.what == like.what && latency.size == like.size && latency.who == who &&
               latency.reloaded == reloaded && latency.beside == beside;
    });
    return found == latencies.end() ? nullptr : &*found;
}

Comparison begun(Topic topic, const Latency& latency, const std::string& against) {
    Comparison comparison;
    comparison.topic = topic;
    comparison.what = latency.what + (latency.reloaded == latency.size ? ", all reloaded" : ", a tenth reloaded");
    comparison.size = latency.size;
    comparison.against = against;
    return comparison;
}

/// What a load costs a reader of a center and, with no target, one of a rival.
void compareReloads(const std::vector<Latency>& latencies, std::vector<Comparison>& comparisons) {
    for (const Latency& loaded : latencies) {
        const Latency* const idle = findLatency(latencies, loaded, loaded.who, 0, Beside::Nothing);
        if (loaded.beside != Beside::Reload || idle == nullptr) {
            continue;
        }
        const bool own = loaded.who == kCenter;
        Comparison& ratio =
            comparisons.emplace_back(begun(Topic::Reload, loaded, own ? "idle" : loaded.who + ", idle"));
        ratio.center = loaded.median(&Percentiles::p999);
        ratio.other = idle->median(&Percentiles::p999);
        setRatio(ratio, loaded.ascending(&Percentiles::p999), idle->ascending(&Percentiles::p999));
        ratio.target = own ? kReloadAtMost : 0;
    }
}

/// The longest stall of a round beside that of a loop that asks nobody while the same load runs.
void compareStalls(const std::vector<Latency>& latencies, std::vector<Comparison>& comparisons) {
    for (const Latency& loaded : latencies) {
        const Latency* const machine = findLatency(latencies, loaded, kNobody, loaded.reloaded, Beside::Other);
        if (loaded.beside != Beside::Reload || loaded.who != kCenter || machine == nullptr) {
            continue;
        }
        Comparison& stall = comparisons.emplace_back(begun(Topic::Stall, loaded, kNobody));
        const std::vector<double> longest = loaded.ascending(&Percentiles::longest);
        stall.center = quantile(longest, 0.5);
        stall.other = machine->median(&Percentiles::longest);
        stall.value = stall.center / kNanosecondsPerMillisecond;
        stall.low = quantile(longest, 0.25) / kNanosecondsPerMillisecond;
        stall.high = quantile(longest, 0.75) / kNanosecondsPerMillisecond;
        stall.target = kStallAtMostMs;
        // Where the machine alone takes a loop's processor away for longer than the target, nothing is proved.
        stall.disturbed = stall.other / kNanosecondsPerMillisecond > kStallAtMostMs;
    }
}

/// The longest lookup with a list and loads of the same center beside it, and with those of another one.
void compareCrowds(const std::vector<Latency>& latencies, std::vector<Comparison>& comparisons) {
    for (const Latency& crowded : latencies) {
        const Latency* const elsewhere = findLatency(latencies, crowded, crowded.who, 0, Beside::Elsewhere);
        if (crowded.beside != Beside::Crowd || elsewhere == nullptr) {
            continue;
        }
        Comparison& comparison = comparisons.emplace_back();
        comparison.topic = Topic::Crowd;
        comparison.what = crowded.what + ", longest, a list and loads beside";
        comparison.size = crowded.size;
        comparison.against = "list and loads of another center";
        comparison.center = crowded.median(&Percentiles::longest);
        comparison.other = elsewhere->median(&Percentiles::longest);
        setRatio(comparison, crowded.ascending(&Percentiles::longest), elsewhere->ascending(&Percentiles::longest));
        comparison.target = kCrowdAtMost;
    }
}

void compareBytes(const std::vector<Footprint>& footprints, std::vector<Comparison>& comparisons) {
    for (const Footprint& footprint : footprints) {
        Comparison& comparison = comparisons.emplace_back();
        comparison.topic = Topic::Bytes;
        comparison.what = footprint.what;
        comparison.size = footprint.size;
        comparison.against = footprint.other;
        comparison.center = footprint.center;
        comparison.other = footprint.otherBytes;
        comparison.value = footprint.center / footprint.otherBytes;
        comparison.low = comparison.value;
        comparison.high = comparison.value;
        comparison.target = footprint.atMost;
    }
}

}  // namespace

const char* nameOf(Topic topic) {
    switch (topic) {
        case Topic::Floor:
            return "floor";
        case Topic::Rival:
            return "rival";
        case Topic::Scaling:
            return "scaling";
        case Topic::Reload:
            return "reload";
        case Topic::Stall:
            return "stall";
        case Topic::Crowd:
            return "crowd";
        case Topic::Bytes:
            return "bytes";
    }
    return "";
}

std::vector<Comparison> compare(const Measurements& measured) {
    std::vector<Comparison> comparisons;
    compareTimes(measured.results, true, comparisons);
    compareThreads(measured.results, comparisons);
    compareTimes(measured.results, false, comparisons);
    compareReloads(measured.latencies, comparisons);
    compareStalls(measured.latencies, comparisons);
    compareCrowds(measured.latencies, comparisons);
    compareBytes(measured.footprints, comparisons);
    return comparisons;
}

}  // namespace bench
