#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace Tavrin::Player::Testing {

/// The seed of this run: the environment's TAVRIN_TEST_SEED or a fixed one, printed so that a failure can be
/// run again. Sequence i of a test uses this seed plus i, so a single failing sequence is repeated first
/// when its own seed is set.
inline std::uint64_t TestSeed() {
    const char* chosen = std::getenv("TAVRIN_TEST_SEED");
    const std::uint64_t seed = chosen == nullptr ? 20'260'101 : std::strtoull(chosen, nullptr, 10);
    std::cout << "TAVRIN_TEST_SEED=" << seed << std::endl;
    return seed;
}

/// A repeatable source of choices.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    /// From `low` to `high`, both included.
    std::int64_t Between(std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(engine_);
    }

    /// True in `percent` of a hundred cases.
    bool Chance(int percent) { return Between(1, 100) <= percent; }

    template <typename Item>
    const Item& Among(const std::vector<Item>& items) {
        return items[static_cast<std::size_t>(Between(0, static_cast<std::int64_t>(items.size()) - 1))];
    }

    template <typename Item>
    void Shuffle(std::vector<Item>& items) {
        std::shuffle(items.begin(), items.end(), engine_);
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace Tavrin::Player::Testing
