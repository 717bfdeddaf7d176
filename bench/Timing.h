#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include "Suite.h"

namespace bench {

inline double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Loads what `make` gives and reports the seconds that `load` answers, as one iteration.
template <class Make, class Load>
Body timeLoadsBy(Make make, Load load) {
    return [make, load](benchmark::State& state) {
        double wall = 0;
        double processor = 0;
        for (auto _ : state) {
            const auto target = make();
            const double wallBegin = seconds(CLOCK_MONOTONIC);
            const double processorBegin = seconds(CLOCK_THREAD_CPUTIME_ID);
            const double reported = load(*target);
            processor += seconds(CLOCK_THREAD_CPUTIME_ID) - processorBegin;
            wall += seconds(CLOCK_MONOTONIC) - wallBegin;
            state.SetIterationTime(reported);
        }
        state.counters[kShareCounter] = processor / wall;
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
