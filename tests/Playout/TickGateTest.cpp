#include "Playout/TickGate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Time::TimePoint;

const TickGate::Clock::time_point kStart{1h};

ReadinessRule HoldMs(std::int64_t ms) {
    return ReadinessRule::HoldUpTo(TimePoint().FromMilliseconds(ms));
}

TEST(ReadinessRule, IsRequiredUnlessItIsSaid) {
    EXPECT_EQ(ReadinessRule(), ReadinessRule::Required());
    EXPECT_FALSE(ReadinessRule().LongestWait().has_value());
    EXPECT_EQ(ReadinessRule::Optional().LongestWait(), TimePoint());
    EXPECT_EQ(HoldMs(200).LongestWait(), TimePoint().FromMilliseconds(200));
}

TEST(ReadinessRule, ATimeToHoldThatIsNotAboveZeroIsRefusedWithTheValue) {
    EXPECT_THROW(HoldMs(0), std::invalid_argument);
    try {
        HoldMs(-40);
        ADD_FAILURE() << "not refused";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("-00:00:00.040"), std::string::npos) << error.what();
    }
}

TEST(TickGate, IsOpenWhileNothingIsWaitedFor) {
    TickGate gate({ReadinessRule(), HoldMs(100)});
    EXPECT_TRUE(gate.IsOpen());
    gate.Note(0, true, kStart);
    gate.Note(1, true, kStart);
    EXPECT_TRUE(gate.IsOpen());
    EXPECT_EQ(gate.Waited(0), 0s);
}

TEST(TickGate, ARequiredTrackHoldsThePlayHeadForEver) {
    TickGate gate({ReadinessRule::Required()});
    gate.Note(0, false, kStart);
    gate.Note(0, false, kStart + 24h);
    EXPECT_TRUE(gate.Holds(0));
    EXPECT_FALSE(gate.IsOpen());
    EXPECT_EQ(gate.Waited(0), 24h);
    EXPECT_FALSE(gate.Left(0).has_value());
    gate.Note(0, true, kStart + 25h);
    EXPECT_TRUE(gate.IsOpen());
}

TEST(TickGate, AnOptionalTrackNeverHoldsThePlayHead) {
    TickGate gate({ReadinessRule::Optional()});
    gate.Note(0, false, kStart);
    EXPECT_TRUE(gate.IsOpen());
    EXPECT_TRUE(gate.IsLeftBehind(0));
    gate.Note(0, false, kStart + 3s);
    EXPECT_EQ(gate.Waited(0), 3s) << "it still is told how long its picture has been missing";
}

TEST(TickGate, AHeldTrackHoldsThePlayHeadForSoLongAndNoLonger) {
    TickGate gate({HoldMs(200)});
    gate.Note(0, false, kStart);
    gate.Note(0, false, kStart + 150ms);
    EXPECT_TRUE(gate.Holds(0));
    EXPECT_EQ(gate.Left(0), 50ms);
    gate.Note(0, false, kStart + 200ms);
    EXPECT_FALSE(gate.Holds(0));
    EXPECT_TRUE(gate.IsLeftBehind(0));
    EXPECT_TRUE(gate.IsOpen());
}

TEST(TickGate, ATrackLeftBehindIsNotWaitedForAgainBeforeItHasCaughtUp) {
    TickGate gate({HoldMs(200)});
    gate.Note(0, false, kStart);
    gate.Note(0, false, kStart + 200ms);
    gate.Note(0, false, kStart + 240ms);
    EXPECT_TRUE(gate.IsOpen());
    gate.Note(0, true, kStart + 280ms);
    EXPECT_FALSE(gate.IsLeftBehind(0));
    gate.Note(0, false, kStart + 320ms);
    EXPECT_TRUE(gate.Holds(0)) << "it had caught up, so it is waited for as before";
}

TEST(TickGate, AJumpBeginsAllWaitsAnew) {
    TickGate gate({HoldMs(200), ReadinessRule::Required()});
    gate.Note(0, false, kStart);
    gate.Note(1, false, kStart);
    gate.Note(0, false, kStart + 1s);
    gate.Restart();
    EXPECT_TRUE(gate.IsOpen());
    gate.Note(0, false, kStart + 2s);
    EXPECT_TRUE(gate.Holds(0));
    EXPECT_EQ(gate.Waited(0), 0s);
}

TEST(TickGate, EachTrackWaitsForItself) {
    TickGate gate({ReadinessRule::Optional(), ReadinessRule::Required(), HoldMs(100)});
    gate.Note(0, false, kStart);
    gate.Note(1, true, kStart);
    gate.Note(2, false, kStart + 20ms);
    EXPECT_FALSE(gate.Holds(0));
    EXPECT_FALSE(gate.Holds(1));
    EXPECT_TRUE(gate.Holds(2));
    EXPECT_FALSE(gate.IsOpen());
}

}  // namespace
}  // namespace Tavrin::Playout
