#include "Playout/TimedOperator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using Time::Ratio;
using Time::TimePoint;

class TimedOperatorTest : public testing::Test {
protected:
    static TimePoint MiddleOf(std::int64_t sample) {
        return TimePoint().FromNanoseconds((2 * sample + 1) * 20'000'000);
    }

    [[nodiscard]] std::size_t Shown() const { return hands_.Shown().tracks.at(0).picture->Number(); }

    Session session_{{RecordingIndex::Build(Support::Clips::Numbered())}};
    TimedOperator hands_{session_};
};

TEST_F(TimedOperatorTest, CommandsWaitForTheExactPicture) {
    hands_.Start(MiddleOf(30), Ratio());
    EXPECT_EQ(Shown(), 30U);
    hands_.GoTo(MiddleOf(7));
    EXPECT_EQ(Shown(), 7U);
}

TEST_F(TimedOperatorTest, StepMovesByOnePictureAndStands) {
    hands_.Start(MiddleOf(24), Ratio());
    hands_.Step(Ratio(-1, 1));
    EXPECT_EQ(Shown(), 23U);
    hands_.Step(Ratio(1, 1));
    EXPECT_EQ(Shown(), 24U);
    EXPECT_EQ(session_.Speed(), Ratio());
}

TEST_F(TimedOperatorTest, PlayShowsEachTickOnceAndLeavesNoPictureOut) {
    hands_.Start(MiddleOf(10), Ratio(1, 1));
    std::size_t nbTicks = 0;
    std::size_t before = Shown();
    hands_.Play(8, [&] {
        ++nbTicks;
        EXPECT_LE(Shown() - before, 1U);
        before = Shown();
    });
    EXPECT_EQ(nbTicks, 8U);
}

TEST_F(TimedOperatorTest, PlayKeepsTheTimeOfTicks) {
    hands_.Start(MiddleOf(10), Ratio(1, 1));
    hands_.WaitForTick();
    const auto begin = TimedOperator::Clock::now();
    hands_.Play(5, [] {});
    EXPECT_GE(TimedOperator::Clock::now() - begin, 4 * hands_.Period());
}

TEST_F(TimedOperatorTest, TurnShowsTheNeighbourOnTheOtherSide) {
    hands_.Start(MiddleOf(30), Ratio(1, 1));
    hands_.Turn(Ratio(-1, 1));
    EXPECT_EQ(Shown(), 29U);
}

TEST_F(TimedOperatorTest, SettlingEndsWhenNothingIsOnItsWay) {
    hands_.Start(MiddleOf(30), Ratio());
    hands_.Settle(std::chrono::seconds(20));
    EXPECT_EQ(session_.GetInformation(0).nbPending, 0U);
}

}  // namespace
}  // namespace Tavrin::Playout
