#include "Playout/Pacer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleRate;

const Pacer::Clock::time_point kStart{1h};

TEST(Pacer, TicksAreDueAtTheSamplesOfTheRate) {
    Pacer pacer(SampleRate(30000, 1001), kStart);
    for (std::int64_t tick = 1; tick <= 30'000; ++tick) {
        ASSERT_EQ(pacer.Begin(pacer.Due()), 0U);
    }
    // 30001 ticks of 1001/30000 s are 1001 s and one tick, without a nanosecond of drift.
    EXPECT_EQ(pacer.Due(), kStart + 1001s + 33'366'667ns);
}

TEST(Pacer, ATickThatBeginsLateMovesNoneAfterIt) {
    Pacer pacer(SampleRate(25, 1), kStart);
    EXPECT_EQ(pacer.Begin(pacer.Due() + 39ms), 0U);
    EXPECT_EQ(pacer.Due(), kStart + 80ms);
}

TEST(Pacer, TicksWhoseTimeIsOverAreCountedAndLeftOut) {
    Pacer pacer(SampleRate(25, 1), kStart);
    EXPECT_EQ(pacer.Begin(kStart + 140ms), 2U);
    EXPECT_EQ(pacer.Due(), kStart + 160ms);
    EXPECT_EQ(pacer.Begin(pacer.Due()), 0U);
}

TEST(Pacer, ATickThatBeginsTooEarlyIsStillTheNextOne) {
    Pacer pacer(SampleRate(25, 1), kStart);
    EXPECT_EQ(pacer.Begin(kStart + 10ms), 0U);
    EXPECT_EQ(pacer.Due(), kStart + 80ms);
}

TEST(Pacer, TheTimeOfATickCountsThoseSleptThrough) {
    const auto start = Pacer::Clock::now();
    Pacer pacer(Player::SampleRate(25, 1), start);
    EXPECT_EQ(pacer.Elapsed(), Time::TimePoint());
    pacer.Begin(start + 41ms);
    EXPECT_EQ(pacer.Elapsed(), Time::TimePoint().FromMilliseconds(40));
    pacer.Begin(start + 205ms);
    EXPECT_EQ(pacer.Elapsed(), Time::TimePoint().FromMilliseconds(200));
}

TEST(Pacer, ATickThatWasHeldUpDelaysTheOnesAfterIt) {
    Pacer pacer(SampleRate(25, 1), kStart);
    pacer.Begin(pacer.Due());
    pacer.Resume(kStart + 55ms);
    EXPECT_EQ(pacer.Elapsed(), Time::TimePoint().FromMilliseconds(55));
    EXPECT_EQ(pacer.Due(), kStart + 95ms);
    EXPECT_EQ(pacer.Begin(pacer.Due()), 0U);
    EXPECT_EQ(pacer.Due(), kStart + 135ms);
    EXPECT_EQ(pacer.Begin(kStart + 180ms), 1U) << "what is slept through counts from there";
}

}  // namespace
}  // namespace Tavrin::Playout
