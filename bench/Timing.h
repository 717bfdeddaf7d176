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

/// Times `load` alone, not the making and unmaking of what it loads into.
template <class Make, class Load>
Body timeLoads(Make make, Load load) {
    return [make, load](benchmark::State& state) {
        double wall = 0;
        double processor = 0;
        for (auto _ : state) {
            const auto target = make();
            const double wallBegin = seconds(CLOCK_MONOTONIC);
            const double processorBegin = seconds(CLOCK_THREAD_CPUTIME_ID);
            load(*target);
            processor += seconds(CLOCK_THREAD_CPUTIME_ID) - processorBegin;
            const double taken = seconds(CLOCK_MONOTONIC) - wallBegin;
            wall += taken;
            state.SetIterationTime(taken);
        }
        state.counters[kShareCounter] = processor / wall;
    };
}

}  // namespace bench
