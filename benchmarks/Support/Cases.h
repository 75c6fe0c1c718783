#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Support/Grouped.h"
#include "Support/Kits.h"

/// What every benchmark is made with.
namespace Tavrin::Player::Bench {

/// Registers one version of a case under a name that the report takes apart: "Cache: intake [engine]".
template <typename Run>
benchmark::internal::Benchmark* AddVersion(const std::string& name, const char* version, Run run) {
    return benchmark::RegisterBenchmark((name + " [" + version + "]").c_str(), std::move(run));
}

/// Whose time an iteration has: that of all it does, or the one it sets itself because it also has to put
/// something right again that is not to be measured.
enum class Timing { Whole, Own };

/// Both versions of a case: `run(state, kit)` with a `LiteralKit` and with an `EngineKit`. `check` runs once,
/// before the first iteration of either version, and throws when the two do not give the same answers.
template <typename Check, typename Run>
void AddCase(const std::string& name, Timing timing, Check check, Run run) {
    const auto checked = std::make_shared<bool>(false);
    const auto checkOnce = [check, checked] {
        if (!*checked) {
            check();
            *checked = true;
        }
    };
    const auto add = [&](const char* version, auto kit) {
        auto* const added = AddVersion(name, version, [checkOnce, run, kit](benchmark::State& state) {
            checkOnce();
            run(state, kit);
        });
        if (timing == Timing::Own) {
            added->UseManualTime();
        }
    };
    add("literal", LiteralKit());
    add("engine", EngineKit());
}

inline std::int64_t SteadyNanoseconds() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

inline std::int64_t ThreadNanoseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

/// Runs `work`, which no other thread takes part in, and reports its time as that of the iteration.
///
/// Two clocks look on. The steady one is read quickly, but goes on while another process has the core; the
/// thread's own stands still then, but reading it is a system call. Both show at least what the work took, so
/// the lower is the better of the two.
template <typename Work>
void Timed(benchmark::State& state, Work work) {
    const std::int64_t threadStart = ThreadNanoseconds();
    const std::int64_t start = SteadyNanoseconds();
    work();
    const std::int64_t elapsed = SteadyNanoseconds() - start;
    const std::int64_t threadElapsed = ThreadNanoseconds() - threadStart;
    state.SetIterationTime(static_cast<double>(std::min(elapsed, threadElapsed)) / 1e9);
}

/// Says that each iteration is `nb` of what the case is named after: the report divides by it.
inline void SetBatch(benchmark::State& state, std::size_t nb) {
    state.counters["batch"] = static_cast<double>(nb);
}

/// Ends the whole run: a figure of two versions that do different things would mean nothing.
inline void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error("The literal version and the engine disagree: " + what);
    }
}

}  // namespace Tavrin::Player::Bench
