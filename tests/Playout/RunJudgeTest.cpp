#include "Playout/RunJudge.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Playout/StraightDecoder.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using std::chrono::milliseconds;
using Time::Ratio;
using Time::TimePoint;

constexpr std::int64_t kTickMs = 40;

/// A judge of one track at 25 ticks a second, told of ticks by the pictures' numbers. The clock is that of the
/// test.
class RunJudgeTest : public testing::Test {
protected:
    RunJudgeTest() : judge_({Recording()}, SampleRate(25, 1), Ratio(1, 1)) {}

    /// At \p ms after the beginning the play head stands in the middle of sample \p head.
    bool Note(std::int64_t ms, std::int64_t head, std::size_t shown) {
        return judge_.Note(MiddleOf(head), {Pictures()[shown]}, start_ + milliseconds(ms));
    }

    static TimePoint MiddleOf(std::int64_t sample) {
        return TimePoint().FromNanoseconds((2 * sample + 1) * kTickMs * 500'000);
    }

    static const NumberedRecording& Recording() {
        static const NumberedRecording recording(RecordingIndex::Build(Clips::Numbered()));
        return recording;
    }

    static const std::vector<std::shared_ptr<const Picture>>& Pictures() {
        static const auto pictures = [] {
            std::vector<std::shared_ptr<const Picture>> all;
            StraightDecoder(Recording().Index()).Run([&all](const std::shared_ptr<const Picture>& picture) {
                all.push_back(picture);
                return true;
            });
            return all;
        }();
        return pictures;
    }

    RunJudge judge_;
    RunJudge::Clock::time_point start_ = RunJudge::Clock::now();
};

TEST_F(RunJudgeTest, TicksThatShowWhatBelongsThereAreRight) {
    for (std::int64_t tick = 0; tick < 10; ++tick) {
        EXPECT_TRUE(Note(tick * kTickMs, 5 + tick, static_cast<std::size_t>(5 + tick)));
    }
    const RunFigures figures = judge_.Figures();
    EXPECT_EQ(figures.nbTicks, 10U);
    EXPECT_EQ(figures.nbRight, 10U);
    EXPECT_EQ(figures.nbRightByClock, 10U);
    EXPECT_EQ(figures.nbNew, 10U);
    EXPECT_EQ(figures.nbBehind, 0);
    EXPECT_EQ(figures.longestStand, milliseconds(kTickMs));
    EXPECT_EQ(figures.elapsed, milliseconds(9 * kTickMs));
    EXPECT_EQ(figures.played, TimePoint().FromNanoseconds(9 * kTickMs * 1'000'000));
}

TEST_F(RunJudgeTest, TicksThatAreNotedAMomentEarlyOrLateAreStillRightByTheClock) {
    Note(0, 5, 5);
    Note(kTickMs - 5, 6, 6);
    Note(2 * kTickMs + 15, 7, 7);
    EXPECT_EQ(judge_.Figures().nbRightByClock, 3U);
}

TEST_F(RunJudgeTest, NeighbouringPictureIsWrong) {
    EXPECT_TRUE(Note(0, 5, 5));
    EXPECT_FALSE(Note(kTickMs, 6, 7));
    EXPECT_EQ(judge_.Figures().nbRight, 1U);
}

TEST_F(RunJudgeTest, PictureWhoseBarCodeCannotBeReadIsWrongAndCountedOnce) {
    std::shared_ptr<const Picture> without;
    StraightDecoder(RecordingIndex::Build(Clips::ClosedGroups()))
        .Run([&without](const std::shared_ptr<const Picture>& picture) {
            without = picture;
            return false;
        });
    EXPECT_TRUE(Note(0, 5, 5));
    EXPECT_FALSE(judge_.Note(MiddleOf(6), {without}, start_ + milliseconds(kTickMs)));
    EXPECT_FALSE(judge_.Note(MiddleOf(6), {without}, start_ + milliseconds(2 * kTickMs)));
    EXPECT_TRUE(Note(3 * kTickMs, 7, 7));
    EXPECT_EQ(judge_.Figures().nbUnread, 1U);
}

TEST_F(RunJudgeTest, TickAtWhichThePlayHeadIsHeldIsWrong) {
    EXPECT_TRUE(Note(0, 5, 5));
    EXPECT_FALSE(Note(kTickMs, 5, 5));
    EXPECT_TRUE(Note(2 * kTickMs, 6, 6));
}

TEST_F(RunJudgeTest, LatePictureIsWrongUntilItComes) {
    EXPECT_TRUE(Note(0, 5, 5));
    EXPECT_FALSE(Note(kTickMs, 6, 5));
    EXPECT_TRUE(Note(2 * kTickMs, 6, 6));
    EXPECT_EQ(judge_.Figures().longestStand, milliseconds(2 * kTickMs));
}

TEST_F(RunJudgeTest, AfterAWaitTicksAreRightByThePlayHeadAndWrongByTheClock) {
    Note(0, 5, 5);
    Note(kTickMs, 5, 5);
    Note(2 * kTickMs, 6, 6);
    Note(3 * kTickMs, 7, 7);
    const RunFigures figures = judge_.Figures();
    EXPECT_EQ(figures.nbRight, 3U);
    EXPECT_EQ(figures.nbRightByClock, 1U);
    EXPECT_EQ(figures.nbBehind, 1);
}

TEST_F(RunJudgeTest, PictureThatBelongsToTwoTicksStandsForOne) {
    judge_.Begin(Ratio(1, 2));
    for (std::int64_t tick = 0; tick < 8; ++tick) {
        const TimePoint head = MiddleOf(5) + TimePoint().FromNanoseconds((2 * tick - 1) * 10'000'000);
        EXPECT_TRUE(judge_.Note(head, {Pictures()[static_cast<std::size_t>(5 + tick / 2)]},
                                start_ + milliseconds(tick * kTickMs)));
    }
    EXPECT_EQ(judge_.Figures().longestStand, milliseconds(kTickMs));
    EXPECT_EQ(judge_.Figures().longestGap, milliseconds(2 * kTickMs));
}

TEST_F(RunJudgeTest, PictureThatNeverChangesAgainStandsToTheEnd) {
    Note(0, 5, 5);
    for (std::int64_t tick = 1; tick < 6; ++tick) {
        Note(tick * kTickMs, 5, 5);
    }
    EXPECT_EQ(judge_.Figures().longestStand, milliseconds(5 * kTickMs));
}

TEST_F(RunJudgeTest, BackwardIsJudgedAsForward) {
    judge_.Begin(Ratio(-2, 1));
    for (std::int64_t tick = 0; tick < 10; ++tick) {
        EXPECT_TRUE(Note(tick * kTickMs, 40 - 2 * tick, static_cast<std::size_t>(40 - 2 * tick)));
    }
    EXPECT_EQ(judge_.Figures().nbRightByClock, 10U);
    EXPECT_EQ(judge_.Figures().played, TimePoint().FromNanoseconds(18 * kTickMs * 1'000'000));
}

TEST_F(RunJudgeTest, LastPictureFetchedBelongsWhereTheDisplayCannotShowEach) {
    judge_.Begin(Ratio(4, 1));
    EXPECT_TRUE(Note(0, 9, 8));
    EXPECT_TRUE(Note(kTickMs, 13, 13));
    EXPECT_FALSE(Note(2 * kTickMs, 17, 15));
}

TEST_F(RunJudgeTest, NearIsCountedApart) {
    judge_.Begin(Ratio(16, 1));
    Note(0, 0, 0);
    Note(kTickMs, 16, 32);
    Note(2 * kTickMs, 32, 15);
    const RunFigures figures = judge_.Figures();
    EXPECT_EQ(figures.nbNear, 2U);
    EXPECT_EQ(figures.nbRight, 1U);
}

TEST_F(RunJudgeTest, NothingOnShowIsRightOutsideOfTheRecordingOnly) {
    EXPECT_FALSE(judge_.Note(MiddleOf(59), {nullptr}, start_));
    EXPECT_TRUE(judge_.Note(MiddleOf(60), {nullptr}, start_ + milliseconds(kTickMs)));
}

TEST_F(RunJudgeTest, TickIsRightOnlyIfEveryTrackIs) {
    RunJudge judge({Recording(), Recording()}, SampleRate(25, 1), Ratio(1, 1));
    EXPECT_TRUE(judge.Note(MiddleOf(5), {Pictures()[5], Pictures()[5]}, start_));
    EXPECT_FALSE(judge.Note(MiddleOf(6), {Pictures()[6], Pictures()[5]}, start_ + milliseconds(kTickMs)));
    EXPECT_EQ(judge.Figures().nbNew, 3U);
}

TEST_F(RunJudgeTest, TracksThatShowOneTimeAreTogetherAlsoWhileThePlayHeadIsAhead) {
    RunJudge judge({Recording(), Recording()}, SampleRate(25, 1), Ratio(1, 1));
    judge.Note(MiddleOf(5), {Pictures()[5], Pictures()[5]}, start_);
    judge.Note(MiddleOf(6), {Pictures()[5], Pictures()[5]}, start_ + milliseconds(kTickMs));
    EXPECT_EQ(judge.Figures().nbTogether, 2U);
    judge.Note(MiddleOf(6), {Pictures()[6], Pictures()[5]}, start_ + milliseconds(2 * kTickMs));
    EXPECT_EQ(judge.Figures().nbTogether, 2U);
    judge.Note(MiddleOf(6), {Pictures()[6], Pictures()[6]}, start_ + milliseconds(3 * kTickMs));
    EXPECT_EQ(judge.Figures().nbTogether, 3U);
    judge.Note(MiddleOf(7), {Pictures()[4], Pictures()[4]}, start_ + milliseconds(4 * kTickMs));
    EXPECT_EQ(judge.Figures().nbTogether, 3U) << "a time that they were not at last";
}

TEST_F(RunJudgeTest, AnotherRunBeginsAnewWhereverItDoes) {
    Note(0, 5, 5);
    judge_.Begin(Ratio(1, 1));
    EXPECT_TRUE(Note(1000, 50, 50));
    EXPECT_EQ(judge_.Figures().nbRightByClock, 2U);
    EXPECT_EQ(judge_.Figures().elapsed, milliseconds(0));
    EXPECT_EQ(judge_.Figures().longestStand, milliseconds(0));
}

TEST(RunJudge, RefusesDisplayWithoutRate) {
    EXPECT_THROW(RunJudge({}, SampleRate(), Ratio(1, 1)), std::invalid_argument);
}

TEST_F(RunJudgeTest, ATrackWithAnOffsetIsJudgedByItsOwnTime) {
    const TimePoint offset = MiddleOf(3) - MiddleOf(0);
    RunJudge judge({Recording(), Recording()}, SampleRate(25, 1), Ratio(1, 1), {TimePoint(), offset});
    EXPECT_TRUE(judge.Note(MiddleOf(5), {Pictures()[5], Pictures()[2]}, start_));
    EXPECT_FALSE(judge.Note(MiddleOf(6), {Pictures()[6], Pictures()[6]}, start_));
    EXPECT_TRUE(judge.Note(MiddleOf(2), {Pictures()[2], nullptr}, start_)) << "it has not begun there";
    EXPECT_THROW(RunJudge({Recording()}, SampleRate(25, 1), Ratio(1, 1), {offset, offset}),
                 std::invalid_argument);
}

}  // namespace
}  // namespace Tavrin::Playout
