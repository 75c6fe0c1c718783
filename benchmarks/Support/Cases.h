#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
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

/// Runs `work` and reports its time as that of the iteration.
template <typename Work>
void Timed(benchmark::State& state, Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
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
