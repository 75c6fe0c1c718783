#include "Playout/TickSchedule.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tavrin::Playout {
namespace {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

constexpr std::int64_t kNbTicks = 100'000;

const std::vector<SampleRate>& Rates() {
    static const std::vector<SampleRate> rates{SampleRate(24000, 1001), SampleRate(30000, 1001),
                                               SampleRate(60000, 1001), SampleRate(25, 1)};
    return rates;
}

std::int64_t FloorOf(std::int64_t numerator, std::int64_t denominator) {
    const std::int64_t quotient = numerator / denominator;
    return numerator % denominator < 0 ? quotient - 1 : quotient;
}

/// The sample that the play head belongs in, in whole numbers: counted in half places of which `2 * q` make a
/// sample, the first tick lies half a place from an edge and each further one `2 * p` on.
std::int64_t SampleAtTick(std::int64_t first, std::int64_t tick, const Ratio& samplesPerTick) {
    const std::int64_t q = samplesPerTick.Denominator();
    const std::int64_t start = samplesPerTick < Ratio() ? 2 * q - 1 : 1;
    return first + FloorOf(start + 2 * tick * samplesPerTick.Numerator(), 2 * q);
}

/// Far enough from the origin for all the ticks, and the start of a sample of every halved rate.
std::int64_t FirstSample(const Ratio& samplesPerTick) {
    constexpr std::int64_t kAligned = 4096;
    const std::int64_t reach =
        kNbTicks * (samplesPerTick.Abs().Numerator() / samplesPerTick.Abs().Denominator() + 1);
    return samplesPerTick < Ratio() ? (reach / kAligned + 1) * kAligned : 0;
}

/// The first tick at which the play head is in another sample than it belongs in; -1 when there is none.
std::int64_t FirstWrongTick(const TickSchedule& schedule, TimePoint head, const SampleRate& stream,
                            std::int64_t first, const Ratio& samplesPerTick, std::int64_t nbTicks) {
    for (std::int64_t tick = 0; tick < nbTicks; ++tick) {
        if (head.SampleNumber(stream) != SampleAtTick(first, tick, samplesPerTick)) {
            return tick;
        }
        head = schedule.Next(head, static_cast<std::uint64_t>(tick));
    }
    return -1;
}

void ExpectRightSamples(const SampleRate& stream, const SampleRate& display, const Ratio& speed,
                        std::int64_t nbTicks) {
    const TickSchedule schedule(stream, display, speed);
    const Ratio samplesPerTick = stream * speed / display;
    const std::int64_t first = FirstSample(samplesPerTick);
    const TimePoint start = schedule.Start(TimePoint::StartOfSample(first, stream));
    EXPECT_EQ(FirstWrongTick(schedule, start, stream, first, samplesPerTick, nbTicks), -1)
        << "stream " << stream << ", display " << display << ", speed " << speed;
}

TEST(TickSchedule, EachOfAHundredThousandTicksFallsInItsOwnSample) {
    for (const SampleRate& rate :
         {SampleRate(24000, 1001), SampleRate(30000, 1001), SampleRate(60000, 1001)}) {
        for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(2, 1), Ratio(-2, 1), Ratio(4, 1),
                                   Ratio(-4, 1), Ratio(1, 2), Ratio(-1, 2), Ratio(1, 3), Ratio(-3, 2)}) {
            ExpectRightSamples(rate, rate, speed, kNbTicks);
        }
    }
}

TEST(TickSchedule, TicksOfAnotherDisplayRateFallInTheirOwnSamplesToo) {
    constexpr std::int64_t kFewerTicks = 5'000;
    for (const SampleRate& stream : Rates()) {
        for (const SampleRate& display : {SampleRate(50, 1), SampleRate(60, 1), SampleRate(60000, 1001)}) {
            for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(1, 2), Ratio(-2, 1), Ratio(-1, 3)}) {
                ExpectRightSamples(stream, display, speed, kFewerTicks);
            }
        }
    }
}

/// As a player's own updates do it.
TimePoint MovedByARoundedStep(const TimePoint& head, const TickSchedule& schedule, std::int64_t tick,
                              const Ratio& speed) {
    return head + schedule.Delta(static_cast<std::uint64_t>(tick)) * speed;
}

TEST(TickSchedule, APlayHeadOnTheStartsOfSamplesThatMovesByRoundedStepsWouldShowNeighbours) {
    const SampleRate rate(30000, 1001);
    const TickSchedule schedule(rate, rate, Ratio(-1, 1));
    const std::int64_t first = FirstSample(Ratio(-1, 1));
    const TimePoint onEdge = TimePoint::StartOfSample(first, rate);
    TimePoint head = onEdge;
    bool isRight = true;
    for (std::int64_t tick = 0; tick < kNbTicks; ++tick) {
        isRight = isRight && head.SampleNumber(rate) == first - tick;
        head = MovedByARoundedStep(head, schedule, tick, Ratio(-1, 1));
    }
    EXPECT_FALSE(isRight);
    EXPECT_EQ(FirstWrongTick(schedule, onEdge, rate, first, Ratio(-1, 1), kNbTicks), -1)
        << "the schedule's own steps keep even there to the samples";
}

TEST(TickSchedule, ItStaysInTheSamplesThatAreFetchedAtHighSpeed) {
    const SampleRate rate(30000, 1001);
    const SampleRate fetched(7500, 1001);
    const TickSchedule schedule(rate, rate, Ratio(-4, 1));
    TimePoint head = schedule.Start(TimePoint::StartOfSample(400'003, rate));
    for (std::int64_t tick = 0; tick < kNbTicks; ++tick) {
        ASSERT_EQ(head.SampleNumber(fetched), 100'000 - tick);
        head = schedule.Next(head, static_cast<std::uint64_t>(tick));
    }
}

TEST(TickSchedule, WholeSpeedsDoNotDrift) {
    for (const SampleRate& rate : Rates()) {
        const TickSchedule schedule(rate, rate, Ratio(2, 1));
        const TimePoint start = schedule.Start(TimePoint());
        TimePoint head = start;
        for (std::int64_t tick = 0; tick < kNbTicks; ++tick) {
            head = schedule.Next(head, static_cast<std::uint64_t>(tick));
        }
        EXPECT_EQ(head - start, TimePoint::StartOfSample(2 * kNbTicks, rate)) << rate;
    }
}

TEST(TickSchedule, DeltasAreTheTimesFromTickToTick) {
    const TickSchedule schedule(SampleRate(25, 1), SampleRate(30000, 1001), Ratio(1, 1));
    EXPECT_EQ(schedule.Delta(0), TimePoint().FromNanoseconds(33'366'667));
    EXPECT_EQ(schedule.Delta(2), TimePoint().FromNanoseconds(33'366'666));
}

TEST(TickSchedule, ItStartsInTheMiddleOfTheSampleOnDisplay) {
    const TickSchedule schedule(SampleRate(25, 1), SampleRate(25, 1), Ratio(1, 1));
    EXPECT_EQ(schedule.Start(TimePoint().FromMilliseconds(119)), TimePoint().FromMilliseconds(100));
    EXPECT_EQ(schedule.Start(TimePoint().FromMilliseconds(120)), TimePoint().FromMilliseconds(140));
}

TEST(TickSchedule, AtHalfSpeedItStartsAQuarterFromTheEdgeThatItMovesAwayFrom) {
    const SampleRate rate(25, 1);
    EXPECT_EQ(TickSchedule(rate, rate, Ratio(1, 2)).Start(TimePoint()), TimePoint().FromMilliseconds(10));
    EXPECT_EQ(TickSchedule(rate, rate, Ratio(-1, 2)).Start(TimePoint()), TimePoint().FromMilliseconds(30));
}

TEST(TickSchedule, AtHighSpeedItStartsInASampleThatIsFetched) {
    const SampleRate rate(30, 1);
    // Of the samples 0, 4, 8 ... 116 is the one at or before 119.
    EXPECT_EQ(
        TickSchedule(rate, rate, Ratio(-4, 1)).Start(TimePoint::StartOfSample(119, rate)).SampleNumber(rate),
        116);
}

TEST(TickSchedule, OnASlowDisplayItStartsInASampleThatIsFetched) {
    const TickSchedule schedule(SampleRate(50, 1), SampleRate(25, 1), Ratio(1, 1));
    EXPECT_EQ(schedule.Start(TimePoint().FromMilliseconds(60)), TimePoint().FromMilliseconds(50));
}

TEST(TickSchedule, AtSpeedZeroThePlayHeadStands) {
    const TickSchedule schedule(SampleRate(25, 1), SampleRate(25, 1), Ratio());
    const TimePoint start = schedule.Start(TimePoint().FromMilliseconds(40));
    EXPECT_EQ(start, TimePoint().FromMilliseconds(60));
    EXPECT_EQ(schedule.Next(start, 7), start);
}

TEST(TickSchedule, BackwardItLeadsBelowTheOrigin) {
    const TickSchedule schedule(SampleRate(25, 1), SampleRate(25, 1), Ratio(-1, 1));
    EXPECT_EQ(schedule.Next(TimePoint().FromMilliseconds(20), 0), TimePoint().FromMilliseconds(-20));
}

TEST(TickSchedule, RatesOfZeroAreRefused) {
    EXPECT_THROW(TickSchedule(SampleRate(), SampleRate(25, 1), Ratio(1, 1)), std::invalid_argument);
    EXPECT_THROW(TickSchedule(SampleRate(25, 1), SampleRate(), Ratio(1, 1)), std::invalid_argument);
}

/// The sample of 25 per second that a schedule goes on with from the middle of another one.
std::int64_t SampleAfter(std::int64_t sample, const Ratio& speed) {
    const SampleRate rate(25, 1);
    const TimePoint head =
        TickSchedule(rate, rate, Ratio(1, 1)).Start(TimePoint::StartOfSample(sample, rate));
    return TickSchedule(rate, rate, speed).After(head).head.SampleNumber(rate);
}

TEST(TickSchedule, AfterAChangeOfSpeedItGoesOnWithTheNextSampleInItsDirection) {
    EXPECT_EQ(SampleAfter(7, Ratio(1, 1)), 8);
    EXPECT_EQ(SampleAfter(7, Ratio(-1, 1)), 6);
    EXPECT_EQ(SampleAfter(7, Ratio()), 7);
    EXPECT_EQ(SampleAfter(0, Ratio(-1, 1)), -1);
}

TEST(TickSchedule, ATurnNeverStaysInASampleWhoseLengthIsNoWholeNumberOfNanoseconds) {
    const SampleRate rate(30000, 1001);
    const TickSchedule forward(rate, rate, Ratio(1, 1));
    const TickSchedule backward(rate, rate, Ratio(-1, 1));
    TimePoint head = forward.Start(TimePoint());
    for (std::int64_t sample = 0; sample < 1000; ++sample) {
        ASSERT_EQ(head.SampleNumber(rate), sample);
        ASSERT_EQ(backward.After(head).head.SampleNumber(rate), sample - 1);
        ASSERT_EQ(forward.After(head).head.SampleNumber(rate), sample + 1);
        head = forward.Next(head, static_cast<std::uint64_t>(sample));
    }
}

TEST(TickSchedule, AfterAChangeToAHighSpeedItShowsNothingThatWasLeftBehind) {
    EXPECT_EQ(SampleAfter(7, Ratio(4, 1)), 8);
    EXPECT_EQ(SampleAfter(4, Ratio(4, 1)), 8);
    EXPECT_EQ(SampleAfter(7, Ratio(-4, 1)), 4);
    EXPECT_EQ(SampleAfter(4, Ratio(-4, 1)), 0);
    // Of every fourth sample fetched: 8 is on show at 10.
    EXPECT_EQ(SampleAfter(7, Ratio(3, 1)), 10);
}

TEST(TickSchedule, AfterAChangeOfSpeedThePlayHeadKeepsOffTheEdges) {
    for (const SampleRate& rate : Rates()) {
        for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(1, 2), Ratio(-1, 3), Ratio(2, 5)}) {
            const TimePoint head = TickSchedule(rate, rate, Ratio(1, 1)).Start(TimePoint().FromSeconds(100));
            const TickSchedule schedule(rate, rate, speed);
            TickSchedule::Place place = schedule.After(head);
            const TimePoint start = schedule.Start(place.head);
            for (int tick = 0; tick < 1000; ++tick) {
                const Ratio fine = rate * Ratio(2 * speed.Denominator(), 1);
                // An odd number of half places from the edges, as far as rounding goes.
                const auto nearest = (place.head - start).RoundWith(fine).SampleNumber(fine);
                EXPECT_EQ(nearest % 2, 0) << rate << " at " << speed << ", tick " << tick;
                place.head = schedule.Next(place.head, place.tick++);
            }
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
