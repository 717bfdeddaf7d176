#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstddef>

#include "Suite.h"

namespace bench {

inline double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// A series of loads of so many records, each of which is one iteration.
inline Series timedSeries(const char* what, const char* who, std::size_t records, int repetitions) {
    Series series;
    series.what = what;
    series.who = who;
    series.size = records;
    series.items = records;
    series.manualTime = true;
    series.repetitions = repetitions;
    series.iterations = 1;
    return series;
}

/// Loads what `make` gives and reports the seconds that `load` answers, as one iteration. `clock` is the processor time
/// of those that load: of several threads it counts together.
template <class Make, class Load>
Body timeLoadsBy(Make make, Load load, clockid_t clock = CLOCK_THREAD_CPUTIME_ID) {
    return [make, load, clock](benchmark::State& state) {
        double wall = 0;
        double processor = 0;
        for (auto _ : state) {
            const auto target = make();
            const double wallBegin = seconds(CLOCK_MONOTONIC);
            const double processorBegin = seconds(clock);
            const double reported = load(*target);
            processor += seconds(clock) - processorBegin;
            wall += seconds(CLOCK_MONOTONIC) - wallBegin;
            state.SetIterationTime(reported);
        }
        state.counters[kShareCounter] = std::min(processor / wall, 1.0);
    };
}

/// Times `load` alone, not the making and unmaking of what it loads into.
template <class Make, class Load>
Body timeLoads(Make make, Load load) {
    return timeLoadsBy(make, [load](auto& target) {
        const double begin = seconds(CLOCK_MONOTONIC);
        load(target);
        return seconds(CLOCK_MONOTONIC) - begin;
    });
}

}  // namespace bench
