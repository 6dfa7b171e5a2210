#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>

// Times ours and a reference in turns within one benchmark, so that whatever else the
// machine does falls on both, and reports the ratio of their medians beside the bound
// that it is meant to keep. The benchmark's own times are those of both together.
template <typename Ours, typename Reference>
void compareSideBySide(benchmark::State& state, double bound, Ours ours, Reference reference) {
    using Clock = std::chrono::steady_clock;
    const auto secondsOf = [](auto& work) {
        const Clock::time_point start = Clock::now();
        work();
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    const auto median = [](std::vector<double>& times) {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    };
    std::vector<double> ourTimes;
    std::vector<double> referenceTimes;
    for ([[maybe_unused]] auto iteration : state) {
        referenceTimes.push_back(secondsOf(reference));
        ourTimes.push_back(secondsOf(ours));
    }
    state.counters["ours_us"] = median(ourTimes) * 1e6;
    state.counters["ratio"] = median(ourTimes) / median(referenceTimes);
    state.counters["bound"] = bound;
}
