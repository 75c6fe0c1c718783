#include "Playout/Desk.h"

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

class DeskTest : public testing::Test {
protected:
    static TimePoint MiddleOf(std::int64_t sample) {
        return TimePoint().FromNanoseconds((2 * sample + 1) * 20'000'000);
    }

    [[nodiscard]] std::size_t Shown() const { return desk_.Shown().tracks.at(0).picture->Number(); }

    Session session_{{RecordingIndex::Build(Support::Clips::Numbered())}};
    Desk desk_{session_};
};

TEST_F(DeskTest, CommandsWaitForTheExactPicture) {
    desk_.Start(MiddleOf(30), Ratio());
    EXPECT_EQ(Shown(), 30U);
    desk_.GoTo(MiddleOf(7));
    EXPECT_EQ(Shown(), 7U);
}

TEST_F(DeskTest, StepMovesByOnePictureAndStands) {
    desk_.Start(MiddleOf(24), Ratio());
    desk_.Step(Ratio(-1, 1));
    EXPECT_EQ(Shown(), 23U);
    desk_.Step(Ratio(1, 1));
    EXPECT_EQ(Shown(), 24U);
    EXPECT_EQ(session_.Speed(), Ratio());
}

TEST_F(DeskTest, PlayShowsEachTickOnceAndLeavesNoPictureOut) {
    desk_.Start(MiddleOf(10), Ratio(1, 1));
    std::size_t nbTicks = 0;
    std::size_t before = Shown();
    desk_.Play(8, [&] {
        ++nbTicks;
        EXPECT_LE(Shown() - before, 1U);
        before = Shown();
    });
    EXPECT_EQ(nbTicks, 8U);
}

TEST_F(DeskTest, PlayKeepsTheTimeOfTicks) {
    desk_.Start(MiddleOf(10), Ratio(1, 1));
    desk_.WaitForTick();
    const auto begin = Desk::Clock::now();
    desk_.Play(5, [] {});
    EXPECT_GE(Desk::Clock::now() - begin, 4 * desk_.Period());
}

TEST_F(DeskTest, TurnShowsTheNeighbourOnTheOtherSide) {
    desk_.Start(MiddleOf(30), Ratio(1, 1));
    desk_.Turn(Ratio(-1, 1));
    EXPECT_EQ(Shown(), 29U);
}

TEST_F(DeskTest, SettlingEndsWhenNothingIsOnItsWay) {
    desk_.Start(MiddleOf(30), Ratio());
    desk_.Settle(std::chrono::seconds(20));
    EXPECT_EQ(session_.GetInformation(0).nbPending, 0U);
}

}  // namespace
}  // namespace Tavrin::Playout
