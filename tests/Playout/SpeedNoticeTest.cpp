#include "apps/playout/SpeedNotice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <tuple>

namespace Tavrin::Playout::Program {
namespace {

using namespace std::chrono_literals;
using Time::Ratio;

const SpeedNotice::Clock::time_point kStart{1h};

TickReport Tick(double held, std::optional<std::size_t> track = {}, WaitCause cause = WaitCause::Decoder) {
    TickReport report;
    report.heldSpeed = held;
    if (track) {
        TrackWait wait;
        wait.track = *track;
        wait.cause = cause;
        wait.holds = true;
        report.waits.push_back(wait);
    }
    return report;
}

TEST(SpeedNotice, SaysNothingWhileTheSpeedIsHeld) {
    SpeedNotice notice;
    for (int tick = 0; tick < 100; ++tick) {
        EXPECT_FALSE(notice.Note(kStart + tick * 40ms, Ratio(1, 1), Tick(0.985)).has_value());
    }
    EXPECT_EQ(notice.Summary(), "");
}

TEST(SpeedNotice, SaysOnceWhatIsMadeAndForWhomThePlayHeadWaits) {
    SpeedNotice notice;
    EXPECT_FALSE(notice.Note(kStart, Ratio(1, 1), Tick(0.6, 3)).has_value());
    EXPECT_FALSE(notice.Note(kStart + 1s, Ratio(1, 1), Tick(0.6, 3)).has_value()) << "not more than a second";
    EXPECT_EQ(notice.Note(kStart + 1040ms, Ratio(1, 1), Tick(0.615, 1, WaitCause::Storage)),
              "speed 1 cannot be held here, 0.61 is made; most waited for: the decoder of track 3");
    EXPECT_FALSE(notice.Note(kStart + 2s, Ratio(1, 1), Tick(0.6)).has_value());
}

TEST(SpeedNotice, AShortDelayIsNoShortfall) {
    SpeedNotice notice;
    EXPECT_FALSE(notice.Note(kStart, Ratio(1, 1), Tick(0.5)).has_value());
    EXPECT_FALSE(notice.Note(kStart + 900ms, Ratio(1, 1), Tick(1)).has_value());
    EXPECT_FALSE(notice.Note(kStart + 1800ms, Ratio(1, 1), Tick(0.5)).has_value());
    EXPECT_EQ(notice.Summary(), "");
}

TEST(SpeedNotice, TheSummaryTellsTheWorst) {
    SpeedNotice notice;
    for (const double held : {-1.5, -1.2, -1.7}) {
        std::ignore = notice.Note(kStart, Ratio(-2, 1), Tick(held));
        std::ignore = notice.Note(kStart + 2s, Ratio(-2, 1), Tick(held));
    }
    EXPECT_EQ(notice.Summary(), "speed -2 cannot be held here, -1.20 is made");
}

TEST(SpeedNotice, AStillPictureIsNoShortfall) {
    SpeedNotice notice;
    EXPECT_FALSE(notice.Note(kStart, Ratio(), Tick(0)).has_value());
    EXPECT_FALSE(notice.Note(kStart + 5s, Ratio(), Tick(0)).has_value());
}

}  // namespace
}  // namespace Tavrin::Playout::Program
