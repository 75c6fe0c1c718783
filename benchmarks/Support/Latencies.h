#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tavrin::Player::Bench {

/// So many wake-ups make one figure.
constexpr std::size_t kNbWakeUps = 10'000;

/// What each wake-up took, in nanoseconds.
class Latencies {
public:
    void Note(std::int64_t nanoseconds) { all_.push_back(nanoseconds); }

    /// Sets the counters p50 and p99, with the prefix before their names; takes the latencies away.
    void Report(benchmark::State& state, const std::string& prefix = "") {
        std::sort(all_.begin(), all_.end());
        state.counters[prefix + "p50"] = static_cast<double>(all_[all_.size() / 2]);
        state.counters[prefix + "p99"] = static_cast<double>(all_[all_.size() * 99 / 100]);
        all_.clear();
    }

private:
    std::vector<std::int64_t> all_;
};

}  // namespace Tavrin::Player::Bench
