#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Player/Support/Random.h"

namespace Tavrin::Soak {

/// A number that looks random and depends on both arguments only.
inline std::uint64_t Mixed(std::uint64_t seed, std::uint64_t value) {
    // The finaliser of SplitMix64: neighbouring arguments give unrelated results.
    std::uint64_t x = seed + 0x9e3779b97f4a7c15U * (value + 1);
    x = (x ^ (x >> 30U)) * 0xbf58476d1ce4e5b9U;
    x = (x ^ (x >> 27U)) * 0x94d049bb133111ebU;
    return x ^ (x >> 31U);
}

/// The choices of one phase, and a digest of all that were made: two runs with one seed have the same.
///
/// What is drawn, and how often, must depend on nothing but what was drawn before: never on which thread was
/// faster.
///
/// *Threads:* externally synchronised.
class Choices {
public:
    explicit Choices(std::uint64_t seed) : random_(seed), digest_(seed) {}

    /// From `low` to `high`, both included.
    std::int64_t Between(std::int64_t low, std::int64_t high) {
        const std::int64_t drawn = random_.Between(low, high);
        digest_ = Mixed(digest_, static_cast<std::uint64_t>(drawn));
        return drawn;
    }

    /// Below `end`, which is above zero.
    std::size_t Below(std::size_t end) {
        return static_cast<std::size_t>(Between(0, static_cast<std::int64_t>(end) - 1));
    }

    bool Chance(int percent) { return Between(1, 100) <= percent; }

    template <typename Item>
    const Item& Among(const std::vector<Item>& items) {
        return items[Below(items.size())];
    }

    /// A seed for something that draws by itself.
    std::uint64_t Seed() { return static_cast<std::uint64_t>(Between(0, INT64_MAX)); }

    [[nodiscard]] std::uint64_t Digest() const { return digest_; }

private:
    Player::Testing::Random random_;
    std::uint64_t digest_;
};

}  // namespace Tavrin::Soak
