#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tavrin::Player::Bench {

/// So many wake-ups make one figure.
constexpr std::size_t kNbWakeUps = 10'000;

/// Runs `measure` that often and reports the median as the time, and p50 and p99 in nanoseconds beside it.
template <typename Measure>
void MeasureLatencies(benchmark::State& state, Measure measure) {
    std::vector<std::int64_t> latencies(kNbWakeUps);
    for (auto _ : state) {
        for (std::int64_t& latency : latencies) {
            latency = measure();
        }
        std::sort(latencies.begin(), latencies.end());
        const auto p50 = static_cast<double>(latencies[kNbWakeUps / 2]);
        state.counters["p50"] = p50;
        state.counters["p99"] = static_cast<double>(latencies[kNbWakeUps * 99 / 100]);
        state.SetIterationTime(p50 / 1e9);
    }
}

}  // namespace Tavrin::Player::Bench
