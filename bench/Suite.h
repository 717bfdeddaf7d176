#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// Who answers a question; every other name is a rival's.
constexpr const char* kCenter = "center";
constexpr const char* kFloor = "floor";

/// What one series of runs measures.
struct Series {
    std::string what;  // the question
    std::string who;
    std::size_t size = 0;         // instruments loaded
    std::string keys;             // how keys are chosen; empty where none are
    int threads = 1;              // that ask at once
    std::size_t items = 1;        // a run's time is divided by this: records of a list or a load
    bool manualTime = false;      // the body calls State::SetIterationTime
    int repetitions = 0;          // 0: as on the command line
    std::int64_t iterations = 0;  // 0: as many as the least time of a run asks for
    double centerAtMost = 0;      // target of a floor or rival: the center takes this many times its time; 0: none
    double leastScaling = 0;      // target of a center: two threads get through this many times as much; 0: none
};

/// One run of a series.
struct Run {
    /// Wall time of one item. With several threads it is the time by which all of them together advance one item, the
    /// inverse of their throughput.
    double nanoseconds = 0;
    /// The part of the wall time that the run's threads had a processor. Less than 1: something else ran meanwhile.
    double processorShare = 1;
};

/// The counter by which a body that calls State::SetIterationTime tells the processor share of what it timed.
constexpr const char* kShareCounter = "share";

/// A series with its runs. Median and spread are taken over the undisturbed runs, as long as there are a few.
struct Result {
    Series series;
    std::vector<Run> runs;

    /// The nanoseconds of the runs that count, ascending.
    std::vector<double> counted() const;
    double median() const;
    /// Distance of the quartiles over the median.
    double spread() const;
    /// Number of runs whose threads hardly ever waited for a processor.
    std::size_t undisturbed() const;
    /// Whether there are too few of them to speak of, so that the disturbed ones were counted as well.
    bool disturbed() const;
};

/// The value at that share of ascending values, between two of them where need be.
double quantile(const std::vector<double>& ascending, double share);

using Body = std::function<void(benchmark::State&)>;

/// Benchmarks of one size. The series that answer one question are run together, their repetitions interleaved at
/// random: within the second or two that this takes, a ratio's two sides find the machine in the same state.
class Suite {
public:
    void add(const Series& series, Body body);

    /// Runs what was added and matches the filter of the command line, then forgets it, with the bodies and what they
    /// hold on to. Series without a run are left out.
    std::vector<Result> run();

private:
    using Group = std::vector<std::pair<Series, Body>>;

    std::vector<Group> groups_;
};

/// The result of the series, if it was run.
const Result* findResult(const std::vector<Result>& results, const Series& like, const std::string& who, int threads);

}  // namespace bench
