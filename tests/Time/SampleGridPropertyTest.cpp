// Thousands of rates, each with sample numbers and time points around the origin, a century out and at the
// extremes, against integers without bounds.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "PropertySupport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Time::Testing {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kSecondsPerCentury = 100LL * 366 * 86400;
constexpr std::int64_t kHighestRate = 1'000'000'000;
constexpr int kNbRandomRates = 1000;  // of each kind

/// n*d/r seconds in nanoseconds, rounded up: the exact start of sample n of a positive rate.
Big ExactStart(const Big& n, const Ratio& rate) {
    return CeilDivide(n * rate.Denominator() * kNanosecondsPerSecond, rate.Numerator());
}

Big ExactSampleNumber(const Big& t, const Ratio& rate) {
    return FloorDivide(t * rate.Numerator(), Big(rate.Denominator()) * kNanosecondsPerSecond);
}

class SampleGridProperty : public PropertyTest {
protected:
    /// Positive rates up to 10^9 samples per second, where starts round-trip.
    std::vector<Ratio> Rates() {
        std::vector<Ratio> rates = {{24, 1},
                                    {25, 1},
                                    {30, 1},
                                    {50, 1},
                                    {60, 1},
                                    {120, 1},
                                    {24000, 1001},
                                    {30000, 1001},
                                    {60000, 1001},
                                    {120000, 1001},
                                    {1, 1},
                                    {1, 2},
                                    {15, 2},
                                    {25, 2},
                                    {44100, 1},
                                    {48000, 1},
                                    {90000, 1},
                                    {27000000, 1},
                                    {999999937, 1},
                                    {kHighestRate, 1},
                                    {1, kHighestRate},
                                    {1, kHighest},
                                    {kHighest, kHighest - 1},
                                    {kHighest - 1, kHighest},
                                    {2305843009213693951, 4611686018427387847},
                                    {kHighest, 9223372037}};
        for (int i = 0; i < kNbRandomRates; ++i) {
            rates.emplace_back(Between(1, kHighestRate), 1);
            rates.emplace_back(Between(1, kHighestRate), Between(1, kHighestRate));
            rates.emplace_back(Between(1, 200) * 1000, 1001);
            rates.push_back(RateOfAnyTerms());
        }
        return rates;
    }

    Ratio RateOfAnyTerms() {
        while (true) {
            const Ratio rate(Magnitude(), Magnitude());
            if (rate <= Ratio(kHighestRate, 1)) {
                return rate;
            }
        }
    }

    /// Sample numbers near the origin, anywhere within a century and at a century, on both sides.
    std::vector<std::int64_t> SampleNumbers(const Ratio& rate) {
        const auto century = static_cast<std::int64_t>(
            Clamped(FloorDivide(Big(kSecondsPerCentury) * rate.Numerator(), Big(rate.Denominator()))));
        const std::int64_t n = Between(0, century);
        return {0, 1, 2, n, century - 1, century, -1, -2, -n, -century};
    }

    /// Time points near the origin, anywhere within a century, anywhere, and at and beside starts of samples.
    std::vector<std::int64_t> TimePoints(const Ratio& rate) {
        std::vector<std::int64_t> result = {0, 1, -1, Any(), Any(), kHighest, kLowest};
        const std::int64_t century = kSecondsPerCentury * kNanosecondsPerSecond;
        result.push_back(Between(-century, century));
        for (const std::int64_t n : SampleNumbers(rate)) {
            const Big start = ExactStart(n, rate);
            for (const Big& t : {start - 1, start, start + 1}) {
                if (FitsSixtyFourBits(t)) {
                    result.push_back(static_cast<std::int64_t>(t));
                }
            }
        }
        return result;
    }
};

TEST_F(SampleGridProperty, EverySampleStartRoundTrips) {
    std::size_t nbChecked = 0;
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t n : SampleNumbers(rate)) {
            if (!FitsSixtyFourBits(ExactStart(n, rate))) {
                continue;
            }
            const TimePoint start = TimePoint::StartOfSample(n, rate);
            ASSERT_EQ(start.SampleNumber(rate), n) << rate;
            ASSERT_EQ(start.AlignWith(rate), start) << n << " at " << rate;
            ASSERT_EQ(start.RoundWith(rate), start) << n << " at " << rate;
            ++nbChecked;
        }
    }
    EXPECT_GT(nbChecked, 8 * kNbRandomRates);
}

TEST_F(SampleGridProperty, EverySampleHasItsStartAsFirstNanosecond) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t n : SampleNumbers(rate)) {
            const Big start = ExactStart(n, rate);
            if (FitsSixtyFourBits(start - 1) && FitsSixtyFourBits(start)) {
                const TimePoint before = TimePoint::StartOfSample(n, rate) - Ns(1);
                ASSERT_EQ(before.SampleNumber(rate), n - 1) << rate;
            }
        }
    }
}

TEST_F(SampleGridProperty, FromRatioGivesTheStartsOfAllSamplesFromTheOriginOn) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t n : SampleNumbers(rate)) {
            if (n >= 0) {
                const auto d = static_cast<std::uint64_t>(rate.Denominator());
                const auto r = static_cast<std::uint64_t>(rate.Numerator());
                ASSERT_EQ(TimePoint().FromRatio(static_cast<std::uint64_t>(n), d, r),
                          TimePoint::StartOfSample(n, rate))
                    << n << " at " << rate;
            }
        }
    }
}

TEST_F(SampleGridProperty, FromRatioIsExactOrSaturatedForAllUnsignedTerms) {
    for (int i = 0; i < 20'000; ++i) {
        const auto bits = [this] { return random_() >> Between(0, 63); };
        const std::uint64_t n = bits();
        const std::uint64_t d = bits();
        const std::uint64_t r = std::max<std::uint64_t>(bits(), 1);
        const Big exact = CeilDivide(Big(n) * d * kNanosecondsPerSecond, r);
        ASSERT_EQ(Big(TimePoint().FromRatio(n, d, r).ToNanoseconds()), Clamped(exact))
            << n << '*' << d << '/' << r;
    }
}

TEST_F(SampleGridProperty, StartsAreExactOrSaturatedForAllSampleNumbers) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t n : {Any(), Any(), Any(), kHighest, kLowest}) {
            ASSERT_EQ(Big(TimePoint::StartOfSample(n, rate).ToNanoseconds()), Clamped(ExactStart(n, rate)))
                << n << " at " << rate;
        }
    }
}

TEST_F(SampleGridProperty, SampleNumberIsExactOrSaturated) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t t : TimePoints(rate)) {
            ASSERT_EQ(Big(Ns(t).SampleNumber(rate)), Clamped(ExactSampleNumber(t, rate)))
                << Ns(t) << " at " << rate;
        }
    }
}

TEST_F(SampleGridProperty, AlignWithGivesTheExactStartOfTheExactSample) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t t : TimePoints(rate)) {
            const Big start = ExactStart(ExactSampleNumber(t, rate), rate);
            ASSERT_EQ(Big(Ns(t).AlignWith(rate).ToNanoseconds()), Clamped(start)) << Ns(t) << " at " << rate;
            ASSERT_LE(start, Big(t)) << Ns(t) << " at " << rate;
        }
    }
}

TEST_F(SampleGridProperty, RoundWithGivesTheNearestOfAllStartsAroundWithHalfwayLater) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t t : TimePoints(rate)) {
            const Big n = ExactSampleNumber(t, rate);
            Big nearest = ExactStart(n - 2, rate);
            for (int step = -1; step <= 2; ++step) {
                const Big start = ExactStart(n + step, rate);
                nearest = abs(start - t) <= abs(nearest - t) ? start : nearest;
            }
            ASSERT_EQ(Big(Ns(t).RoundWith(rate).ToNanoseconds()), Clamped(nearest))
                << Ns(t) << " at " << rate;
        }
    }
}

TEST_F(SampleGridProperty, LaterSamplesStartLater) {
    for (const Ratio& rate : Rates()) {
        for (const std::int64_t n : SampleNumbers(rate)) {
            const TimePoint start = TimePoint::StartOfSample(n, rate);
            const TimePoint next = TimePoint::StartOfSample(n + 1, rate);
            if (FitsSixtyFourBits(ExactStart(n, rate)) && start != Ns(kHighest)) {
                ASSERT_LT(start, next) << n << " at " << rate;
            } else {
                ASSERT_LE(start, next) << n << " at " << rate;
            }
        }
    }
}

TEST_F(SampleGridProperty, LaterTimePointsNeverLieInEarlierSamples) {
    for (const Ratio& rate : Rates()) {
        const TimePoint a = Ns(Any());
        const TimePoint b = Ns(Any());
        ASSERT_EQ(a<b, b> a);
        const TimePoint earlier = a < b ? a : b;
        const TimePoint later = a < b ? b : a;
        ASSERT_LE(earlier.SampleNumber(rate), later.SampleNumber(rate))
            << earlier << ' ' << later << ' ' << rate;
        ASSERT_LE(earlier.AlignWith(rate), later.AlignWith(rate)) << earlier << ' ' << later << ' ' << rate;
        ASSERT_LE(earlier.RoundWith(rate), later.RoundWith(rate)) << earlier << ' ' << later << ' ' << rate;
    }
}

TEST_F(SampleGridProperty, FasterRatesThanNanosecondsStayExact) {
    for (int i = 0; i < 4 * kNbRandomRates; ++i) {
        const Ratio rate(Between(kHighestRate, kHighest), Magnitude(1'000'000));
        const std::int64_t t = Any();
        const std::int64_t n = Any();
        ASSERT_EQ(Big(Ns(t).SampleNumber(rate)), Clamped(ExactSampleNumber(t, rate)))
            << Ns(t) << " at " << rate;
        ASSERT_EQ(Big(TimePoint::StartOfSample(n, rate).ToNanoseconds()), Clamped(ExactStart(n, rate)))
            << n << " at " << rate;
        ASSERT_EQ(Ns(t).AlignWith(rate), TimePoint::StartOfSample(Ns(t).SampleNumber(rate), rate))
            << Ns(t) << " at " << rate;
    }
}

TEST_F(SampleGridProperty, NegativeRatesKeepTheFloorAndRoundTrip) {
    for (const Ratio& positive : Rates()) {
        const Ratio rate = -positive;
        for (const std::int64_t n : SampleNumbers(rate.Abs())) {
            const Big exact =
                FloorDivide(Big(n) * rate.Denominator() * kNanosecondsPerSecond, rate.Numerator());
            const TimePoint start = TimePoint::StartOfSample(n, rate);
            ASSERT_EQ(Big(start.ToNanoseconds()), Clamped(exact)) << n << " at " << rate;
            if (FitsSixtyFourBits(exact)) {
                ASSERT_EQ(start.SampleNumber(rate), n) << rate;
            }
        }
        const std::int64_t t = Any();
        ASSERT_EQ(Big(Ns(t).SampleNumber(rate)), Clamped(ExactSampleNumber(t, rate)))
            << Ns(t) << " at " << rate;
    }
}

}  // namespace
}  // namespace Tavrin::Time::Testing
