#include "Suite.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace bench {
namespace {

constexpr double kUndisturbedShare = 0.97;
/// With fewer undisturbed runs than this, the disturbed ones count too.
constexpr std::size_t kFewestRuns = 3;

bool isUndisturbed(const Run& run) {
    return run.processorShare >= kUndisturbedShare;
}

/// Collects every single run under its benchmark's name; aggregates are computed from them later.
class Collector : public benchmark::BenchmarkReporter {
public:
    explicit Collector(std::map<std::string, Result>& resultByName) : resultByName_(resultByName) {}

    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto result = resultByName_.find(run.run_name.function_name);
            if (run.run_type == Run::RT_Iteration && !run.error_occurred && result != resultByName_.end()) {
                const auto items = static_cast<double>(result->second.series.items);
                result->second.runs.push_back({run.GetAdjustedRealTime() / items, processorShare(run)});
            }
        }
    }

private:
    static double processorShare(const Run& run) {
        const auto counter = run.counters.find(kShareCounter);
        if (counter != run.counters.end()) {
            return counter->second.value;
        }
        // The wall time is the mean of the threads, the processor time their sum.
        return run.cpu_accumulated_time / (run.real_accumulated_time * static_cast<double>(run.threads));
    }

    std::map<std::string, Result>& resultByName_;
};

std::string nameOf(const Series& series) {
    return fmt::format("{}/{}/{}/{}/{}", series.what, series.who, series.size, series.keys, series.threads);
}

void enroll(const std::string& name, const Series& series, Body body) {
    auto* registered = benchmark::RegisterBenchmark(name.c_str(), std::move(body));
    registered->Unit(benchmark::kNanosecond)->Threads(series.threads);
    if (series.manualTime) {
        registered->UseManualTime();
    } else {
        registered->UseRealTime();
    }
    if (series.repetitions > 0) {
        registered->Repetitions(series.repetitions);
    }
    if (series.iterations > 0) {
        registered->Iterations(series.iterations);
    }
}

}  // namespace

double quantile(const std::vector<double>& ascending, double share) {
    const double place = share * static_cast<double>(ascending.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, ascending.size() - 1);
    return ascending[below] + (ascending[above] - ascending[below]) * (place - static_cast<double>(below));
}

std::vector<double> Result::counted() const {
    const bool all = disturbed();
    std::vector<double> values;
    for (const Run& run : runs) {
        if (all || isUndisturbed(run)) {
            values.push_back(run.nanoseconds);
        }
    }
    std::sort(values.begin(), values.end());
    return values;
}

double Result::median() const {
    return quantile(counted(), 0.5);
}

double Result::spread() const {
    const std::vector<double> values = counted();
    return (quantile(values, 0.75) - quantile(values, 0.25)) / quantile(values, 0.5);
}

std::size_t Result::undisturbed() const {
    return static_cast<std::size_t>(std::count_if(runs.begin(), runs.end(), isUndisturbed));
}

bool Result::disturbed() const {
    return undisturbed() < kFewestRuns;
}

void Suite::add(const Series& series, Body body) {
    const auto together = std::find_if(groups_.begin(), groups_.end(), [&](const Group& group) {
        const Series& first = group.front().first;
        return first.what == series.what && first.size == series.size && first.keys == series.keys;
    });
    Group& group = together == groups_.end() ? groups_.emplace_back() : *together;
    group.emplace_back(series, std::move(body));
}

std::vector<Result> Suite::run() {
    std::vector<Result> results;
    for (Group& group : groups_) {
        std::map<std::string, Result> resultByName;
        for (auto& [series, body] : group) {
            const std::string name = nameOf(series);
            resultByName[name] = {series, {}};
            enroll(name, series, std::move(body));
        }
        Collector collector(resultByName);
        benchmark::RunSpecifiedBenchmarks(&collector);
        benchmark::ClearRegisteredBenchmarks();
        for (auto& [name, result] : resultByName) {
            if (!result.runs.empty()) {
                results.push_back(std::move(result));
            }
        }
    }
    groups_.clear();
    return results;
}

const Result* findResult(const std::vector<Result>& results, const Series& like, const std::string& who, int threads) {
    const auto found = std::find_if(results.begin(), results.end(), [&](const Result& result) {
        const Series& series = result.series;
        return series.what == like.what && series.size == like.size && series.keys == like.keys && series.who == who &&
               series.threads == threads;
    });
    return found == results.end() ? nullptr : &*found;
}

}  // namespace bench
