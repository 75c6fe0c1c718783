#include "Player/BitRow.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

TEST(BitRow, AnEmptyRowHasNoSetBit) {
    const BitRow row;
    EXPECT_EQ(row.SetFrom(0), 0U);
    EXPECT_EQ(row.SetBefore(0), 0U);
}

/// The row and the same bits one by one.
void ExpectSame(const BitRow& row, const std::vector<bool>& bits) {
    ASSERT_EQ(row.size(), bits.size());
    for (std::size_t asked = 0; asked <= bits.size(); ++asked) {
        std::size_t above = asked;
        while (above < bits.size() && !bits[above]) {
            ++above;
        }
        std::size_t below = asked;
        while (below > 0 && !bits[below - 1]) {
            --below;
        }
        ASSERT_EQ(row.SetFrom(asked), above);
        ASSERT_EQ(row.SetBefore(asked), below == 0 ? bits.size() : below - 1);
    }
}

TEST(BitRow, RandomChangesGiveWhatBitsOneByOneGive) {
    Testing::Random random(Testing::TestSeed());
    constexpr int kNbSequences = 60;
    constexpr int kNbSteps = 400;
    for (int sequence = 0; sequence < kNbSequences; ++sequence) {
        BitRow row;
        std::vector<bool> bits;
        const int percent = static_cast<int>(random.Between(1, 60));
        for (int step = 0; step < kNbSteps; ++step) {
            const auto place = [&](std::size_t end) {
                return static_cast<std::size_t>(random.Between(0, static_cast<std::int64_t>(end)));
            };
            if (bits.empty() || random.Chance(step < kNbSteps / 2 ? 70 : 30)) {
                const std::size_t at = place(bits.size());
                row.Insert(at);
                bits.insert(bits.begin() + static_cast<std::ptrdiff_t>(at), false);
            } else {
                const std::size_t at = place(bits.size() - 1);
                row.Erase(at);
                bits.erase(bits.begin() + static_cast<std::ptrdiff_t>(at));
            }
            if (!bits.empty()) {
                const std::size_t at = place(bits.size() - 1);
                const bool isSet = random.Chance(percent);
                row.Set(at, isSet);
                bits[at] = isSet;
            }
            ASSERT_NO_FATAL_FAILURE(ExpectSame(row, bits));
        }
    }
}

}  // namespace
}  // namespace Tavrin::Player
