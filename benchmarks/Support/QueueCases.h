#pragma once

#include <string>
#include <utility>

#include "Support/Cases.h"

namespace Tavrin::Player::Bench {

/// One entry pushed and popped again, for the queue and the entries that `Select` names: `Queue<Kit>` and
/// `Entry<Kit>`, of which `Select::Make<Kit>()` makes one and `Select::Mark(entry)` tells which one it is.
template <typename Select>
void AddQueueCase(const std::string& name) {
    const auto passOne = [](auto kit) {
        using Kit = decltype(kit);
        typename Select::template Queue<Kit> queue;
        const auto entry = Select::template Make<Kit>();
        typename Select::template Entry<Kit> out;
        const bool foundEarly = queue.Pop(out);
        queue.Push(entry);
        const bool found = queue.Pop(out);
        return std::pair(!foundEarly && found && !queue.Pop(out), Select::Mark(out));
    };
    const auto check = [=] {
        const auto expected = passOne(LiteralKit());
        Require(expected.first && expected == passOne(EngineKit()), name);
    };
    AddCase(name, Timing::Whole, check, [](benchmark::State& state, auto kit) {
        using Kit = decltype(kit);
        typename Select::template Queue<Kit> queue;
        const auto entry = Select::template Make<Kit>();
        typename Select::template Entry<Kit> out;
        for (auto _ : state) {
            queue.Push(entry);
            benchmark::DoNotOptimize(queue.Pop(out));
            benchmark::ClobberMemory();
        }
    });
}

}  // namespace Tavrin::Player::Bench
