#include "Playout/SpeedMeter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Time::TimePoint;

const SpeedMeter::Clock::time_point kStart{1h};

/// Far from any speed that is really made.
constexpr double kAsked = 99;

/// Of 25 ticks a second, told of moves by milliseconds of wall time and of the recording.
class SpeedMeterTest : public testing::Test {
protected:
    void Note(std::int64_t ms, std::int64_t headMs) {
        meter_.Note(kStart + std::chrono::milliseconds(ms), TimePoint().FromMilliseconds(headMs));
    }

    /// So many moves, each of `headMs` in `ms`, from where the latest one ended.
    void NoteMoves(int nb, std::int64_t ms, std::int64_t headMs) {
        for (int i = 0; i < nb; ++i) {
            Note(now_ += ms, head_ += headMs);
        }
    }

    [[nodiscard]] double HeldAt(std::int64_t ms) const {
        return meter_.Held(kStart + std::chrono::milliseconds(ms), kAsked);
    }

    SpeedMeter meter_{Player::SampleRate(25, 1)};
    std::int64_t now_ = 0;
    std::int64_t head_ = 0;
};

TEST_F(SpeedMeterTest, WithoutAMoveItIsTheSpeedAskedFor) {
    EXPECT_FALSE(meter_.HasBegun());
    EXPECT_EQ(HeldAt(0), kAsked);
    Note(0, 20);
    EXPECT_TRUE(meter_.HasBegun());
    EXPECT_EQ(HeldAt(39), kAsked) << "the first move is not due yet";
}

TEST_F(SpeedMeterTest, APlayHeadInTimeMakesItsSpeed) {
    NoteMoves(100, 40, 40);
    EXPECT_DOUBLE_EQ(HeldAt(now_), 1);
    EXPECT_DOUBLE_EQ(HeldAt(now_ + 39), 1) << "between two ticks too";
}

TEST_F(SpeedMeterTest, BackwardItIsNegative) {
    NoteMoves(50, 40, -80);
    EXPECT_DOUBLE_EQ(HeldAt(now_), -2);
}

TEST_F(SpeedMeterTest, TicksThatTakeTwiceAsLongHalveIt) {
    NoteMoves(50, 80, 40);
    EXPECT_DOUBLE_EQ(HeldAt(now_), 0.5);
}

TEST_F(SpeedMeterTest, OnlyTheLastSecondCounts) {
    NoteMoves(100, 160, 40);
    NoteMoves(26, 40, 40);
    EXPECT_DOUBLE_EQ(HeldAt(now_), 1);
}

TEST_F(SpeedMeterTest, ItFallsWhileAMoveIsOverdue) {
    NoteMoves(26, 40, 40);
    // 1000 ms of way in 1040 ms, less a tick.
    EXPECT_DOUBLE_EQ(HeldAt(now_ + 40), 1);
    // In 2040 ms less a tick.
    EXPECT_DOUBLE_EQ(HeldAt(now_ + 1040), 0.5);
}

TEST_F(SpeedMeterTest, AfterARestartNothingFromBeforeCounts) {
    NoteMoves(50, 80, 40);
    meter_.Restart();
    EXPECT_EQ(HeldAt(now_), kAsked);
    NoteMoves(5, 40, 40);
    EXPECT_DOUBLE_EQ(HeldAt(now_), 1);
}

TEST_F(SpeedMeterTest, ThousandsOfMovesASecondAreMeasuredToo) {
    NoteMoves(5000, 1, 40);
    EXPECT_DOUBLE_EQ(HeldAt(now_), 40);
}

}  // namespace
}  // namespace Tavrin::Playout
