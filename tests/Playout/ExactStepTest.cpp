// Hours of ticks without a picture: every recording is in the sample that exact arithmetic says, at all of them.

#include <gtest/gtest.h>

#include <boost/multiprecision/cpp_int.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "Player/Player.h"
#include "Player/SampleRate.h"
#include "Playout/TickSchedule.h"
#include "Playout/TrackPlayer.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {
namespace {

using Big =
    boost::multiprecision::number<boost::multiprecision::cpp_int_backend<>, boost::multiprecision::et_off>;
using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

constexpr std::int64_t kHours = 6;

/// A rational number without bounds.
struct Exact {
    Big numerator;
    Big denominator = 1;

    static Exact Of(const Ratio& ratio) { return {ratio.Numerator(), ratio.Denominator()}; }
    static Exact Of(const TimePoint& tp) { return {tp.Nanoseconds(), 1'000'000'000}; }

    Exact operator+(const Exact& other) const {
        return {numerator * other.denominator + other.numerator * denominator,
                denominator * other.denominator};
    }
    Exact operator*(const Exact& other) const {
        return {numerator * other.numerator, denominator * other.denominator};
    }
    Exact operator/(const Exact& other) const {
        return {numerator * other.denominator, denominator * other.numerator};
    }

    [[nodiscard]] Big Floor() const {
        const bool isNegative = (numerator < 0) != (denominator < 0);
        const Big quotient = abs(numerator) / abs(denominator);
        return isNegative && abs(numerator) % abs(denominator) != 0 ? -quotient - 1
                                                                    : (isNegative ? -quotient : quotient);
    }
};

/// A recording by its rate and where it begins.
struct Lane {
    SampleRate rate;
    TimePoint offset;
};

const std::vector<Lane>& Lanes() {
    static const std::vector<Lane> lanes{
        {SampleRate(24000, 1001), TimePoint()},
        {SampleRate(25, 1), TimePoint()},
        {SampleRate(50, 1), TimePoint()},
        {SampleRate(30000, 1001), TimePoint().FromMilliseconds(-12'345)},
        {SampleRate(25, 1), TimePoint().FromNanoseconds(1'234'567'891)},
    };
    return lanes;
}

/// The play head of an engine's player, moved as a session moves it, beside where it belongs.
class Walk {
public:
    Walk(const SampleRate& display, const Ratio& speed)
        : schedule_(SampleRate(50, 1), display, speed), display_(display), speed_(speed) {
        const TimePoint far = TimePoint().FromSeconds(kHours * 3600 + 60) * speed.Abs();
        player_.GoTo(schedule_.Start(speed < Ratio() ? far : TimePoint()));
        start_ = player_.GetCurrentTimePoint();
        for (const Lane& lane : Lanes()) {
            views_.emplace_back(player_, lane.offset);
        }
    }

    void Tick() { player_.GoTo(schedule_.Next(player_.GetCurrentTimePoint(), tick_++)); }

    [[nodiscard]] std::int64_t Sample(std::size_t lane) const {
        return views_[lane].GetCurrentTimePoint().SampleNumber(Lanes()[lane].rate);
    }

    /// floor((start + tick / display * speed - offset) * rate), of the exact numbers.
    [[nodiscard]] Big ExactSample(std::size_t lane) const {
        const Exact way = Exact{tick_} / Exact::Of(display_) * Exact::Of(speed_);
        const Exact place = Exact::Of(start_) + way + Exact::Of(-Lanes()[lane].offset);
        return (place * Exact::Of(Lanes()[lane].rate)).Floor();
    }

    [[nodiscard]] std::uint64_t NbTicks() const { return tick_; }
    [[nodiscard]] bool IsOver() const {
        return Exact{tick_}.numerator * display_.Denominator() >= Big(kHours * 3600) * display_.Numerator();
    }

private:
    Player::Player player_;
    TickSchedule schedule_;
    SampleRate display_;
    Ratio speed_;
    TimePoint start_;
    std::deque<TrackPlayer> views_;
    std::uint64_t tick_ = 0;
};

/// The first tick at which a recording is in another sample than it belongs in; nothing when there is none.
void ExpectExactStep(const SampleRate& display, const Ratio& speed) {
    // Big numbers at every one of a million ticks take long: a prime stride meets all places of the pattern.
    constexpr std::uint64_t kStride = 7;
    Walk walk(display, speed);
    for (; !walk.IsOver(); walk.Tick()) {
        for (std::size_t lane = 0; walk.NbTicks() % kStride == 0 && lane < Lanes().size(); ++lane) {
            ASSERT_EQ(walk.ExactSample(lane), walk.Sample(lane))
                << "at tick " << walk.NbTicks() << " of " << display << " a second, speed " << speed
                << ", recording " << lane << " of " << Lanes()[lane].rate;
        }
    }
}

TEST(ExactStep, ForwardForHours) {
    ExpectExactStep(SampleRate(50, 1), Ratio(1, 1));
}

TEST(ExactStep, BackwardForHours) {
    ExpectExactStep(SampleRate(50, 1), Ratio(-1, 1));
}

TEST(ExactStep, OnADisplayWhosePeriodIsNoWholeNumberOfNanoseconds) {
    ExpectExactStep(SampleRate(24000, 1001), Ratio(1, 1));
    ExpectExactStep(SampleRate(60000, 1001), Ratio(-1, 1));
}

TEST(ExactStep, AtOddSpeeds) {
    for (const Ratio& speed : {Ratio(3, 7), Ratio(-3, 7), Ratio(17, 5), Ratio(-1001, 1000), Ratio(-1, 3)}) {
        ExpectExactStep(SampleRate(50, 1), speed);
    }
}

TEST(ExactStep, AtHighSpeeds) {
    for (const Ratio& speed : {Ratio(4, 1), Ratio(-16, 1)}) {
        ExpectExactStep(SampleRate(30000, 1001), speed);
    }
}

/// How far the steps that a player rounds by itself end from where they belong.
TEST(ExactStep, StepsRoundedOneByOneWouldDrift) {
    const SampleRate display(25, 1);
    const Ratio speed(3, 7);
    const TickSchedule schedule(display, display, speed);
    Player::Player player;
    player.SetSpeed(speed);
    constexpr std::uint64_t kNbTicks = 600'000;
    TimePoint exact;
    for (std::uint64_t tick = 0; tick < kNbTicks; ++tick) {
        player.Update(schedule.Delta(tick));
        exact = schedule.Next(exact, tick);
    }
    EXPECT_GT((player.GetCurrentTimePoint() - exact).Abs(), TimePoint().FromNanoseconds(1000));
    EXPECT_EQ(exact, TimePoint::StartOfSample(kNbTicks, display / speed));
}

}  // namespace
}  // namespace Tavrin::Playout
