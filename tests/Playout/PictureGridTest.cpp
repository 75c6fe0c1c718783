#include "Playout/PictureGrid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

namespace Tavrin::Playout {
namespace {

using Player::SampleRate;
using Time::Ratio;

constexpr std::int64_t kLimit = 240;

/// Picture i at i/rate, in units of 1/perSecond, rounded to the nearest.
PictureTimes Constant(std::size_t nb, const Ratio& rate, std::int64_t perSecond) {
    PictureTimes pictures{{}, 0, Ratio(1, perSecond), {}};
    for (std::size_t i = 0; i < nb; ++i) {
        const auto numerator = static_cast<std::int64_t>(i) * perSecond * rate.Denominator();
        pictures.times.push_back((2 * numerator + rate.Numerator()) / (2 * rate.Numerator()));
    }
    return pictures;
}

TEST(PictureGrid, FindsEveryUsualRateInMillisecondsWithoutBeingTold) {
    for (const auto& rate : {Ratio(24'000, 1001), Ratio(24, 1), Ratio(25, 1), Ratio(30'000, 1001),
                             Ratio(30, 1), Ratio(50, 1), Ratio(60'000, 1001), Ratio(60, 1)}) {
        const auto grid = LayOutGrid(Constant(1000, rate, 1000), kLimit);
        EXPECT_EQ(grid.rate, SampleRate(rate));
        EXPECT_EQ(grid.nbSamples, 1000);
    }
}

TEST(PictureGrid, ShortRecordingsHaveTheClaimedRateOfTwoThatFit) {
    // After ten pictures 30 and 30000/1001 differ by a third of a millisecond.
    auto pictures = Constant(10, Ratio(30'000, 1001), 1000);
    pictures.claimedRates = {Ratio(30'000, 1001)};
    EXPECT_EQ(LayOutGrid(pictures, kLimit).rate, SampleRate(30'000, 1001));
    pictures.claimedRates = {Ratio(30, 1)};
    EXPECT_EQ(LayOutGrid(pictures, kLimit).rate, SampleRate(30, 1));
}

TEST(PictureGrid, AClaimedRateThatIsAlmostAUsualOneIsTakenForIt) {
    auto pictures = Constant(10, Ratio(30'000, 1001), 1000);
    pictures.claimedRates = {Ratio(19'001, 634)};
    EXPECT_EQ(LayOutGrid(pictures, kLimit).rate, SampleRate(30'000, 1001));
}

TEST(PictureGrid, AClaimedRateThatDoesNotFitIsNotBelieved) {
    auto pictures = Constant(100, Ratio(25, 1), 90'000);
    pictures.claimedRates = {Ratio(50, 1), Ratio(0, 1)};
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_EQ(grid.rate, SampleRate(25, 1));
    EXPECT_EQ(grid.nbSamples, 100);
}

TEST(PictureGrid, UnusualConstantRatesAreExactToo) {
    EXPECT_EQ(LayOutGrid(Constant(500, Ratio(1000, 41), 90'000), kLimit).rate, SampleRate(1000, 41));
    EXPECT_EQ(LayOutGrid(Constant(50, Ratio(1, 7), 1), kLimit).rate, SampleRate(1, 7));
}

TEST(PictureGrid, AConstantRateAboveTheLimitOfVariableOnesIsKept) {
    auto pictures = Constant(500, Ratio(1000, 1), 90'000);
    pictures.claimedRates = {Ratio(1000, 1)};
    EXPECT_EQ(LayOutGrid(pictures, kLimit).rate, SampleRate(1000, 1));
}

TEST(PictureGrid, HolesLeaveTheRateAsItIs) {
    auto pictures = Constant(300, Ratio(30'000, 1001), 1000);
    const auto all = pictures.times;
    pictures.times = {all[0], all[1], all[5], all[6], all[299]};
    pictures.claimedRates = {Ratio(90'000, 1), Ratio(1300, 61)};
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_EQ(grid.rate, SampleRate(30'000, 1001));
    EXPECT_EQ(grid.starts, (std::vector<std::int64_t>{0, 1, 5, 6, 299}));
}

TEST(PictureGrid, TheLastPictureStaysForItsDuration) {
    auto pictures = Constant(10, Ratio(25, 1), 1000);
    pictures.times = {0, 40, 120, 160};
    pictures.lastDuration = 200;
    EXPECT_EQ(LayOutGrid(pictures, kLimit).nbSamples, 4 + 5);
    pictures.lastDuration = 0;
    EXPECT_EQ(LayOutGrid(pictures, kLimit).nbSamples, 4 + 1);
}

TEST(PictureGrid, TheNominalRateIsMultipliedUntilNoTwoPicturesMeet) {
    PictureTimes pictures{{0, 40, 48, 120, 163, 200}, 40, Ratio(1, 1000), {Ratio(25, 1)}};
    // At 25 and 50 per second 40 and 48 ms round to one sample; at 75 they do not.
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_EQ(grid.rate, SampleRate(75, 1));
    EXPECT_EQ(grid.starts, (std::vector<std::int64_t>{0, 3, 4, 9, 12, 15}));
}

TEST(PictureGrid, StampsFarOutNeitherOverflowNorChangeTheOrder) {
    // Of damaged files: times whose samples do not fit 64 bits.
    std::mt19937_64 random(3);
    std::uniform_int_distribution<std::int64_t> anyTime(0, std::int64_t{1} << 60);
    for (const auto& timeBase : {Ratio(1, 1), Ratio(1, 1000), Ratio(1, 90'000)}) {
        for (int round = 0; round < 50; ++round) {
            std::set<std::int64_t> times{0, 1};
            while (times.size() < 6) {
                times.insert(anyTime(random));
            }
            const PictureTimes pictures{{times.begin(), times.end()}, 1, timeBase, {Ratio(25, 1)}};
            const auto grid = LayOutGrid(pictures, kLimit);
            EXPECT_TRUE(std::is_sorted(grid.starts.begin(), grid.starts.end()));
            EXPECT_EQ(grid.starts.front(), 0);
            EXPECT_LT(grid.starts.back(), grid.nbSamples);
        }
    }
}

TEST(PictureGrid, BeyondTheLimitPicturesShareASample) {
    PictureTimes pictures{{0, 1, 2, 41, 80}, 40, Ratio(1, 1000), {Ratio(25, 1)}};
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_EQ(grid.rate, SampleRate(225, 1)) << "the finest multiple of 25 up to 240";
    EXPECT_EQ(grid.starts, (std::vector<std::int64_t>{0, 0, 0, 9, 18}));
}

TEST(PictureGrid, OnePictureIsOneSampleOfTheClaimedRate) {
    PictureTimes pictures{{0}, 0, Ratio(1, 1000), {Ratio(50, 1)}};
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_EQ(grid.rate, SampleRate(50, 1));
    EXPECT_EQ(grid.nbSamples, 1);
}

TEST(PictureGrid, PicturesOfOneTimeDoNotBreakIt) {
    PictureTimes pictures{{0, 0, 0}, 0, Ratio(1, 1000), {}};
    const auto grid = LayOutGrid(pictures, kLimit);
    EXPECT_TRUE(grid.rate.Positive());
    EXPECT_EQ(grid.starts, (std::vector<std::int64_t>{0, 0, 0}));
    EXPECT_EQ(grid.nbSamples, 1);
}

TEST(PictureGrid, RandomTimesAreRoundedToTheNearestSampleInOrder) {
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        PictureTimes pictures{{0}, 33, Ratio(1, 1000), {Ratio(30, 1)}};
        for (int i = 0; i < 100; ++i) {
            pictures.times.push_back(pictures.times.back() + 8 + static_cast<std::int64_t>(random() % 60));
        }
        const auto grid = LayOutGrid(pictures, kLimit);
        const std::set<std::int64_t> distinct(grid.starts.begin(), grid.starts.end());
        ASSERT_EQ(distinct.size(), grid.starts.size());
        for (std::size_t i = 0; i < pictures.times.size(); ++i) {
            // |sample / rate - time / 1000| <= 1 / (2 rate), without fractions.
            const auto difference =
                grid.starts[i] * 1000 * grid.rate.Denominator() - pictures.times[i] * grid.rate.Numerator();
            ASSERT_LE(2 * std::abs(difference), 1000 * grid.rate.Denominator());
        }
        ASSERT_GT(grid.nbSamples, grid.starts.back());
    }
}

}  // namespace
}  // namespace Tavrin::Playout
