#include "Player/SampleRate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "Player/Support/Random.h"
#include "Time/Ratio.h"

namespace Tavrin::Player {
namespace {

using Testing::Random;
using Time::Ratio;

constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();

/// The formulas are computed here a second time, with plain integers: the test values are small enough for
/// their products to fit.
struct Fraction {
    std::int64_t numerator;
    std::int64_t denominator;  // above zero
};

Fraction Of(const Ratio& ratio) {
    return {ratio.Numerator(), ratio.Denominator()};
}

Fraction Abs(const Fraction& f) {
    return {f.numerator < 0 ? -f.numerator : f.numerator, f.denominator};
}

Fraction Times(const Fraction& a, const Fraction& b) {
    return {a.numerator * b.numerator, a.denominator * b.denominator};
}

Fraction DividedBy(const Fraction& a, const Fraction& b) {
    const std::int64_t sign = b.numerator < 0 ? -1 : 1;
    return {sign * a.numerator * b.denominator, sign * a.denominator * b.numerator};
}

bool Less(const Fraction& a, const Fraction& b) {
    return a.numerator * b.denominator < b.numerator * a.denominator;
}

bool Same(const Fraction& a, const Fraction& b) {
    return a.numerator * b.denominator == b.numerator * a.denominator;
}

Ratio AnySpeed(Random& random) {
    return {random.Between(-300, 300), random.Between(1, 40)};
}

SampleRate AnyRate(Random& random) {
    return random.Chance(30) ? SampleRate(random.Between(1, 60) * 1000, 1001)
                             : SampleRate(random.Between(0, 240), random.Between(1, 12));
}

TEST(SampleRate, DefaultIsZero) {
    EXPECT_EQ(SampleRate().Numerator(), 0);
    EXPECT_EQ(SampleRate().Denominator(), 1);
}

TEST(SampleRate, EveryWayToMakeOneTakesTheAbsoluteValue) {
    const SampleRate expected(25, 2);
    EXPECT_EQ(SampleRate(-25, 2), expected);
    EXPECT_EQ(SampleRate(25, -2), expected);
    EXPECT_EQ(SampleRate(-25, -2), expected);
    EXPECT_EQ(SampleRate(Ratio(-25, 2)), expected);
    SampleRate assigned;
    assigned = SampleRate(-25, 2);
    EXPECT_EQ(assigned, expected);
    assigned = Ratio(-50, 4);
    EXPECT_EQ(assigned, expected);
    const SampleRate copied(assigned);
    EXPECT_EQ(copied, expected);
    EXPECT_GT(expected.Numerator(), 0);
}

TEST(SampleRate, ZeroDenominatorIsRefused) {
    EXPECT_THROW(SampleRate(25, 0), std::invalid_argument);
}

TEST(SampleRate, AbsoluteValueThatDoesNotFitIsRefused) {
    EXPECT_THROW(SampleRate(kLowest, 1), std::overflow_error);
    EXPECT_EQ(SampleRate(kLowest, 2).Numerator(), std::int64_t{1} << 62);
}

TEST(SampleRate, IsARatioWithoutFieldsOfItsOwn) {
    static_assert(std::is_base_of_v<Ratio, SampleRate>);
    static_assert(std::is_convertible_v<SampleRate*, Ratio*>);
    static_assert(std::has_virtual_destructor_v<SampleRate>);
    static_assert(sizeof(SampleRate) == sizeof(Ratio));
    const SampleRate rate(30000, 1001);
    const Ratio& ratio = rate;
    EXPECT_EQ(ratio, Ratio(30000, 1001));
}

TEST(SampleRate, SamplesPerSecondsOfNtscRateIsTheQuotientOfTheTwoTerms) {
    EXPECT_DOUBLE_EQ(SampleRate(30000, 1001).GetSamplesPerSeconds(), 30000.0 / 1001.0);
    EXPECT_NEAR(SampleRate(30000, 1001).GetSamplesPerSeconds(), 29.97002997, 1e-8);
}

TEST(SampleRate, SamplesPerSecondsOfAnUnsetRateIsZero) {
    EXPECT_EQ(SampleRate().GetSamplesPerSeconds(), 0.0);
}

TEST(SampleRate, AsRatioHasTheSameTerms) {
    static_assert(std::is_same_v<decltype(SampleRate().AsRatio()), Ratio>);
    EXPECT_EQ(SampleRate(30000, 1001).AsRatio().Numerator(), 30000);
    EXPECT_EQ(SampleRate(30000, 1001).AsRatio().Denominator(), 1001);
}

TEST(SampleRate, PrintsNumeratorSlashDenominatorAndNothingElse) {
    std::ostringstream out;
    out << SampleRate(30000, 1001) << SampleRate(25, 1) << SampleRate();
    EXPECT_EQ(out.str(), "30000/100125/10/1");
}

TEST(SaturateSampleRate, ProductBelowTheDisplayRateIsKept) {
    EXPECT_EQ(SampleRate::SaturateSampleRate({25, 1}, Ratio(1, 2), {50, 1}), SampleRate(25, 2));
}

TEST(SaturateSampleRate, ProductAboveTheDisplayRateIsReplacedByIt) {
    EXPECT_EQ(SampleRate::SaturateSampleRate({25, 1}, Ratio(4, 1), {50, 1}), SampleRate(50, 1));
}

TEST(SaturateSampleRate, ProductEqualToTheDisplayRateIsKept) {
    EXPECT_EQ(SampleRate::SaturateSampleRate({25, 1}, Ratio(2, 1), {50, 1}), SampleRate(50, 1));
}

TEST(SaturateSampleRate, NegativeSpeedGivesTheSameAsItsAbsoluteValue) {
    for (const Ratio& speed : {Ratio(1, 2), Ratio(2, 1), Ratio(4, 1), Ratio(30000, 1001)}) {
        EXPECT_EQ(SampleRate::SaturateSampleRate({25, 1}, -speed, {50, 1}),
                  SampleRate::SaturateSampleRate({25, 1}, speed, {50, 1}));
    }
}

TEST(SaturateSampleRate, SpeedZeroGivesZero) {
    EXPECT_EQ(SampleRate::SaturateSampleRate({25, 1}, Ratio(0, 1), {50, 1}), SampleRate());
}

TEST(TimeSamplingRate, FastPlayIsSampledAtTheDisplayRateCarriedBackIntoStreamTime) {
    EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(4, 1), {50, 1}), SampleRate(25, 2));
    EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(-4, 1), {50, 1}), SampleRate(25, 2));
}

TEST(TimeSamplingRate, SlowPlayIsSampledAtTheStreamRate) {
    EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(1, 2), {50, 1}), SampleRate(25, 1));
}

TEST(TimeSamplingRate, ZeroSpeedGivesTheStreamRateWhateverTheDisplayRate) {
    for (const SampleRate& display : {SampleRate(), SampleRate(1, 7), SampleRate(50, 1)}) {
        EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(0, 1), display), SampleRate(25, 1));
        EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(0, 5), display), SampleRate(25, 1));
    }
}

TEST(TimeSamplingRate, NegativeStreamRateStillGivesARateAboveZero) {
    EXPECT_EQ(SampleRate::TimeSamplingRate({-25, 1}, Ratio(0, 1), {50, 1}), SampleRate(25, 1));
    EXPECT_EQ(SampleRate::TimeSamplingRate({-25, 1}, Ratio(1, 1), {50, 1}), SampleRate(25, 1));
    EXPECT_EQ(SampleRate::TimeSamplingRate({-25, 1}, Ratio(-4, 1), {50, 1}), SampleRate(25, 2));
}

TEST(TimeSamplingRate, UnsetDisplayRateGivesZeroWhenMoving) {
    EXPECT_EQ(SampleRate::TimeSamplingRate({25, 1}, Ratio(1, 1), SampleRate()), SampleRate());
}

TEST(StreamPreloadRate, HalvesUntilItIsNoFasterThanTheTimeSampling) {
    EXPECT_EQ(SampleRate::StreamPreloadRate({25, 1}, {25, 2}), SampleRate(25, 2));
    EXPECT_EQ(SampleRate::StreamPreloadRate({60, 1}, {25, 2}), SampleRate(15, 2));
    EXPECT_EQ(SampleRate::StreamPreloadRate({30000, 1001}, {10, 1}), SampleRate(7500, 1001));
}

TEST(StreamPreloadRate, StopsAtEquality) {
    EXPECT_EQ(SampleRate::StreamPreloadRate({25, 1}, {25, 1}), SampleRate(25, 1));
}

TEST(StreamPreloadRate, StreamAtOrBelowTheTimeSamplingIsReturnedUnchanged) {
    EXPECT_EQ(SampleRate::StreamPreloadRate({24, 1}, {25, 1}), SampleRate(24, 1));
    EXPECT_EQ(SampleRate::StreamPreloadRate({-24, 1}, {25, 1}), SampleRate(24, 1));
    EXPECT_EQ(SampleRate::StreamPreloadRate(SampleRate(), {25, 1}), SampleRate());
}

TEST(StreamPreloadRate, ZeroTimeSamplingUnderAPositiveStreamRateIsRefused) {
    EXPECT_THROW(SampleRate::StreamPreloadRate({25, 1}, SampleRate()), std::invalid_argument);
}

TEST(StreamPreloadRate, ZeroTimeSamplingUnderAZeroStreamRateGivesZero) {
    EXPECT_EQ(SampleRate::StreamPreloadRate(SampleRate(), SampleRate()), SampleRate());
}

TEST(StreamPreloadRate, HalvingPastSixtyFourBitsIsRefused) {
    EXPECT_THROW(SampleRate::StreamPreloadRate({1, 1}, {1, kHighest}), std::overflow_error);
    EXPECT_THROW(SampleRate::StreamPreloadRate({kHighest, 1}, {1, 1}), std::overflow_error);
}

TEST(StreamPreloadRate, HalvesAsLongAsTheResultFits) {
    const std::int64_t quarter = std::int64_t{1} << 62;
    EXPECT_EQ(SampleRate::StreamPreloadRate({kHighest, 1}, {2, 1}), SampleRate(kHighest, quarter));
    EXPECT_EQ(SampleRate::StreamPreloadRate({1, 1}, {1, quarter}), SampleRate(1, quarter));
}

TEST(SampleRateModel, SaturateSampleRateIsTheLowerOfTheAbsoluteProductAndTheDisplayRate) {
    Random random(Testing::TestSeed());
    for (int i = 0; i < 5000; ++i) {
        const SampleRate stream = AnyRate(random);
        const Ratio speed = AnySpeed(random);
        const SampleRate display = AnyRate(random);
        const Fraction product = Abs(Times(Of(stream), Of(speed)));
        const Fraction expected = Less(Of(display), product) ? Of(display) : product;
        EXPECT_TRUE(Same(Of(SampleRate::SaturateSampleRate(stream, speed, display)), expected))
            << stream << " at " << speed << " on " << display;
    }
}

TEST(SampleRateModel, TimeSamplingRateIsTheLowerOfTheStreamRateAndTheDisplayRateInStreamTime) {
    Random random(Testing::TestSeed());
    for (int i = 0; i < 5000; ++i) {
        const SampleRate stream = AnyRate(random);
        const Ratio speed = AnySpeed(random);
        const SampleRate display = AnyRate(random);
        Fraction expected = Of(stream);
        if (speed.Numerator() != 0) {
            const Fraction inStreamTime = Abs(DividedBy(Of(display), Of(speed)));
            expected = Less(Of(stream), inStreamTime) ? Of(stream) : inStreamTime;
        }
        EXPECT_TRUE(Same(Of(SampleRate::TimeSamplingRate(stream, speed, display)), expected))
            << stream << " at " << speed << " on " << display;
    }
}

TEST(SampleRateModel, StreamPreloadRateIsTheFirstHalvingNoFasterThanTheTimeSampling) {
    Random random(Testing::TestSeed());
    for (int i = 0; i < 5000; ++i) {
        const SampleRate stream = AnyRate(random);
        const SampleRate timeSampling(random.Between(1, 400), random.Between(1, 60));
        Fraction expected = Of(stream);
        while (Less(Of(timeSampling), expected)) {
            expected.denominator *= 2;
        }
        EXPECT_TRUE(Same(Of(SampleRate::StreamPreloadRate(stream, timeSampling)), expected))
            << stream << " against " << timeSampling;
    }
}

}  // namespace
}  // namespace Tavrin::Player
