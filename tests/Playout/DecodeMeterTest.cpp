#include "Playout/DecodeMeter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Clock = DecodeMeter::Clock;

constexpr Clock::time_point kStart{100s};

TEST(DecodeMeter, SaysNothingBeforeEnoughWasDecoded) {
    DecodeMeter meter;
    EXPECT_EQ(meter.BytesPerSecond(), 0);
    meter.Begin(kStart);
    meter.End(kStart + 10ms, 1000);
    EXPECT_EQ(meter.BytesPerSecond(), 0);
}

TEST(DecodeMeter, DividesBytesByTheTimeOfDecoding) {
    DecodeMeter meter;
    meter.Begin(kStart);
    meter.End(kStart + 500ms, 1000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 2000);
}

TEST(DecodeMeter, TimeInWhichNobodyDecodesDoesNotCount) {
    DecodeMeter meter;
    meter.Begin(kStart);
    meter.End(kStart + 200ms, 1000);
    meter.Begin(kStart + 10s);
    meter.End(kStart + 10s + 200ms, 1000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 5000);
}

TEST(DecodeMeter, SeveralThatEndTogetherAreNotTakenForFaster) {
    DecodeMeter meter;
    Clock::time_point begin = kStart;
    for (int round = 0; round < 5; ++round) {
        for (int decode = 0; decode < 4; ++decode) {
            meter.Begin(begin);
        }
        // Each has taken all the time since then: 4000 bytes in 1.25 s.
        for (const auto end : {950ms, 1100ms, 1200ms, 1250ms}) {
            meter.End(begin + end, 1000);
            EXPECT_LE(meter.BytesPerSecond(), 3200.1);
        }
        EXPECT_NEAR(meter.BytesPerSecond(), 3200, 0.1);
        begin += 2s;
    }
}

TEST(DecodeMeter, TimeInWhichSeveralDecodeCountsOnce) {
    DecodeMeter meter;
    meter.Begin(kStart);
    meter.Begin(kStart + 100ms);
    meter.End(kStart + 300ms, 1000);
    meter.End(kStart + 400ms, 1000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 5000);
}

TEST(DecodeMeter, FollowsWhatIsNew) {
    DecodeMeter meter;
    auto now = kStart;
    const auto decode = [&](std::size_t nbBytes) {
        meter.Begin(now);
        now += 500ms;
        meter.End(now, nbBytes);
    };
    for (int i = 0; i < 20; ++i) {
        decode(5000);
    }
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 10'000);
    for (int i = 0; i < 12; ++i) {
        decode(500);
    }
    EXPECT_NEAR(meter.BytesPerSecond(), 1000, 100);
}

}  // namespace
}  // namespace Tavrin::Playout
