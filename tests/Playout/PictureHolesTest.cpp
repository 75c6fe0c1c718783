#include "Playout/PictureHoles.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tavrin::Playout {
namespace {

using Samples = std::vector<std::int64_t>;

/// At 25 per second: twenty pictures one after the other, then those, then a last one of one sample.
PictureGrid GridWith(const Samples& starts) {
    PictureGrid grid{Player::SampleRate(25, 1), {}, starts.back() + 1};
    for (std::int64_t i = 0; i < 20; ++i) {
        grid.starts.push_back(i);
    }
    grid.starts.insert(grid.starts.end(), starts.begin(), starts.end());
    return grid;
}

/// Where picture 19 ends.
std::int64_t EndOfTwentieth(const PictureGrid& grid, std::int64_t duration = 0) {
    Samples durations(grid.starts.size(), 0);
    durations[19] = duration;
    return EndsOnDisplay(grid, durations).at(19);
}

TEST(PictureHoles, PicturesEndWhereTheNextOneBegins) {
    const auto ends = EndsOnDisplay(GridWith({20, 21}), Samples(22, 0));
    for (std::size_t i = 0; i < ends.size(); ++i) {
        EXPECT_EQ(ends[i], static_cast<std::int64_t>(i) + 1);
    }
}

TEST(PictureHoles, AnInterruptionOfMoreThanASecondIsAHole) {
    EXPECT_EQ(EndOfTwentieth(GridWith({20 + 26})), 20);
}

TEST(PictureHoles, OverAShorterInterruptionThePictureStays) {
    EXPECT_EQ(EndOfTwentieth(GridWith({20 + 25})), 45);
}

TEST(PictureHoles, APictureStaysAsLongAsTheFileSays) {
    EXPECT_EQ(EndOfTwentieth(GridWith({100}), 80), 100);
    EXPECT_EQ(EndOfTwentieth(GridWith({100}), 10), 29) << "and then there is a hole";
}

TEST(PictureHoles, ARecordingOfVariableRateHasNone) {
    EXPECT_EQ(EndOfTwentieth(GridWith({100, 103, 120, 122, 140})), 100);
}

TEST(PictureHoles, PicturesThatHideOneAnotherEndWhereTheyBegin) {
    const auto ends = EndsOnDisplay(GridWith({19, 20}), Samples(22, 1));
    EXPECT_EQ(ends.at(19), 19);
    EXPECT_EQ(ends.at(20), 20);
}

TEST(PictureHoles, ASinglePictureEndsWithItsRecording) {
    EXPECT_EQ(EndsOnDisplay({Player::SampleRate(1, 1), {0}, 10}, {0}), Samples{10});
}

}  // namespace
}  // namespace Tavrin::Playout
