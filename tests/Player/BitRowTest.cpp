#include "Player/BitRow.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>

#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

TEST(BitRow, AnEmptyRowHasNoSetBit) {
    const BitRow row;
    EXPECT_EQ(row.SetFrom(0), 0U);
    EXPECT_EQ(row.SetBefore(0), 0U);
}

TEST(BitRow, BitsThatWereCutOffAreNotSetWhenTheRowGrowsAgain) {
    BitRow row;
    row.Resize(70);
    row.Set(69, true);
    row.Resize(69);
    row.Resize(70);
    EXPECT_EQ(row.SetFrom(0), 70U);
}

TEST(BitRow, RandomRowsGiveWhatASetOfPlacesGives) {
    Testing::Random random(Testing::TestSeed());
    constexpr int kNbSequences = 100;
    constexpr int kNbSteps = 300;
    for (int sequence = 0; sequence < kNbSequences; ++sequence) {
        BitRow row;
        std::set<std::size_t> places;
        const int percent = static_cast<int>(random.Between(1, 60));
        for (int step = 0; step < kNbSteps; ++step) {
            if (step % 50 == 0) {
                row.Resize(static_cast<std::size_t>(random.Between(0, 400)));
                places.erase(places.lower_bound(row.size()), places.end());
            }
            if (row.size() > 0) {
                const auto at =
                    static_cast<std::size_t>(random.Between(0, static_cast<std::int64_t>(row.size()) - 1));
                const bool isSet = random.Chance(percent);
                row.Set(at, isSet);
                isSet ? void(places.insert(at)) : void(places.erase(at));
            }
            const auto asked =
                static_cast<std::size_t>(random.Between(0, static_cast<std::int64_t>(row.size())));
            const auto above = places.lower_bound(asked);
            ASSERT_EQ(row.SetFrom(asked), above == places.end() ? row.size() : *above);
            ASSERT_EQ(row.SetBefore(asked), above == places.begin() ? row.size() : *std::prev(above));
        }
    }
}

}  // namespace
}  // namespace Tavrin::Player
