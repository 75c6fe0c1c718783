// Sums, products, quotients and text forms of random values of all magnitudes, against numbers without
// bounds.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "PropertySupport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Time::Testing {
namespace {

constexpr int kNbCases = 20'000;

using Rational = boost::multiprecision::cpp_rational;

Big Count(const TimePoint& tp) {
    return tp.ToNanoseconds();
}

Rational Exact(const Ratio& ratio) {
    return {Big(ratio.Numerator()), Big(ratio.Denominator())};
}

/// Rounded to the nearest whole number, halves away from zero; the denominator is positive.
Big NearestWhole(const Big& numerator, const Big& denominator) {
    const Big magnitude = FloorDivide(2 * abs(numerator) + denominator, 2 * denominator);
    return numerator < 0 ? Big(-magnitude) : magnitude;
}

class TimeArithmeticProperty : public PropertyTest {
protected:
    Ratio AnyRatio() {
        const std::int64_t numerator = Any();
        return {numerator, Between(0, 1) == 0 ? Magnitude(1000) : Magnitude()};
    }

    /// Terms small enough that most results of two such ratios fit.
    Ratio ModestRatio() {
        const std::int64_t highest = std::int64_t{1} << 31;
        return {Between(0, 1) == 0 ? Magnitude(highest) : -Magnitude(highest), Magnitude(highest)};
    }
};

TEST_F(TimeArithmeticProperty, SumsAndDifferencesAreExactOrSaturated) {
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint a = Ns(Any());
        const TimePoint b = Ns(Any());
        ASSERT_EQ(Count(a + b), Clamped(Count(a) + Count(b))) << a << ' ' << b;
        ASSERT_EQ(Count(a - b), Clamped(Count(a) - Count(b))) << a << ' ' << b;
        ASSERT_EQ(Count(-a), Clamped(-Count(a))) << a;
        ASSERT_EQ(Count(a.Abs()), Clamped(abs(Count(a)))) << a;
    }
}

TEST_F(TimeArithmeticProperty, OrderIsThatOfTheCounts) {
    for (int i = 0; i < kNbCases; ++i) {
        const std::int64_t a = Any();
        const std::int64_t b = Between(0, 3) == 0 ? a : Any();
        ASSERT_EQ(Ns(a) <=> Ns(b), a <=> b) << a << ' ' << b;
        ASSERT_EQ(Ns(a) == Ns(b), a == b) << a << ' ' << b;
    }
}

TEST_F(TimeArithmeticProperty, WholeNumberScalingIsExactOrSaturated) {
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint tp = Ns(Any());
        const std::int64_t number = Any();
        ASSERT_EQ(Count(tp * number), Clamped(Count(tp) * number)) << tp << ' ' << number;
        ASSERT_EQ(number * tp, tp * number) << tp << ' ' << number;
        if (number != 0) {
            ASSERT_EQ(Count(tp / number), Clamped(Count(tp) / number)) << tp << ' ' << number;
        }
    }
}

TEST_F(TimeArithmeticProperty, RatioScalingIsTheNearestNanosecondOrSaturated) {
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint tp = Ns(Any());
        const Ratio factor = AnyRatio();
        const Big exact = NearestWhole(Count(tp) * factor.Numerator(), factor.Denominator());
        ASSERT_EQ(Count(tp * factor), Clamped(exact)) << tp << ' ' << factor;
    }
}

TEST_F(TimeArithmeticProperty, RatioScalingRoundsHalvesAwayFromZero) {
    for (int i = 0; i < kNbCases; ++i) {
        const std::int64_t t = 2 * Between(kLowest / 2, kHighest / 2) + 1;
        const std::int64_t away = t / 2 + (t < 0 ? -1 : 1);
        ASSERT_EQ(Ns(t) * Ratio(1, 2), Ns(away)) << t;
        ASSERT_EQ(Ns(t) * Ratio(-1, 2), Ns(-away)) << t;
    }
}

TEST_F(TimeArithmeticProperty, MovingForwardAndBackByTheSameAmountReturns) {
    TimePoint playHead = TimePoint::GetArbitraryTimePoint();
    const TimePoint begin = playHead;
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint delta = Ns(Between(0, 1'000'000'000));
        const Ratio speed(Between(-16'000, 16'000), Between(1, 1001));
        playHead += delta * speed;
        playHead += delta * -speed;
        ASSERT_EQ(playHead, begin) << delta << " at " << speed;
    }
}

TEST_F(TimeArithmeticProperty, RatiosAreHeldReducedWithAPositiveDenominator) {
    for (int i = 0; i < kNbCases; ++i) {
        const std::int64_t numerator = Any();
        const std::int64_t denominator = Between(0, 3) == 0 && numerator != 0 ? numerator : Any();
        if (denominator == 0) {
            ASSERT_THROW(Ratio(numerator, denominator), std::invalid_argument) << numerator;
            continue;
        }
        const Big divisor = gcd(Big(numerator), Big(denominator)) * (denominator < 0 ? -1 : 1);
        const Big n = numerator / divisor;
        const Big d = denominator / divisor;
        if (!FitsSixtyFourBits(n) || !FitsSixtyFourBits(d)) {
            ASSERT_THROW(Ratio(numerator, denominator), std::overflow_error)
                << numerator << '/' << denominator;
            continue;
        }
        const Ratio ratio(numerator, denominator);
        ASSERT_EQ(Big(ratio.Numerator()), n) << numerator << '/' << denominator;
        ASSERT_EQ(Big(ratio.Denominator()), d) << numerator << '/' << denominator;
    }
}

TEST_F(TimeArithmeticProperty, RatiosCompareByValue) {
    for (int i = 0; i < kNbCases; ++i) {
        const Ratio a = AnyRatio();
        const Ratio b = Between(0, 3) == 0 ? a : AnyRatio();
        ASSERT_EQ(a == b, Exact(a) == Exact(b)) << a << ' ' << b;
        ASSERT_EQ(a != b, Exact(a) != Exact(b)) << a << ' ' << b;
        ASSERT_EQ(a < b, Exact(a) < Exact(b)) << a << ' ' << b;
        ASSERT_EQ(a > b, Exact(a) > Exact(b)) << a << ' ' << b;
        ASSERT_EQ(a <= b, Exact(a) <= Exact(b)) << a << ' ' << b;
        ASSERT_EQ(a >= b, Exact(a) >= Exact(b)) << a << ' ' << b;
    }
}

/// The computed ratio is the exact value, or it was refused because the reduced exact value does not fit.
void ExpectExactOrOverflow(const std::function<Ratio()>& compute, const Rational& exact,
                           const std::string& what) {
    const Big n = numerator(exact);
    const Big d = denominator(exact);
    if (!FitsSixtyFourBits(n) || !FitsSixtyFourBits(d)) {
        EXPECT_THROW(static_cast<void>(compute()), std::overflow_error) << what;
        return;
    }
    const Ratio result = compute();
    EXPECT_EQ(Big(result.Numerator()), n) << what;
    EXPECT_EQ(Big(result.Denominator()), d) << what;
}

TEST_F(TimeArithmeticProperty, RatioArithmeticIsExactOrThrows) {
    for (int i = 0; i < kNbCases && !HasFailure(); ++i) {
        const Ratio a = i % 2 == 0 ? AnyRatio() : ModestRatio();
        const Ratio b = i % 2 == 0 ? AnyRatio() : ModestRatio();
        const std::string what = a.ToString() + " and " + b.ToString();
        ExpectExactOrOverflow([&] { return a + b; }, Exact(a) + Exact(b), what);
        ExpectExactOrOverflow([&] { return a - b; }, Exact(a) - Exact(b), what);
        ExpectExactOrOverflow([&] { return a * b; }, Exact(a) * Exact(b), what);
        ExpectExactOrOverflow([&] { return -a; }, -Exact(a), what);
        ExpectExactOrOverflow([&] { return a.Abs(); }, abs(Exact(a)), what);
        if (b != Ratio()) {
            ExpectExactOrOverflow([&] { return a / b; }, Exact(a) / Exact(b), what);
        }
    }
}

TEST_F(TimeArithmeticProperty, TextAndSerialisedFormsRoundTrip) {
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint tp = Ns(Any());
        ASSERT_EQ(TimePoint(tp.ToString()), tp);
        std::array<std::uint8_t, TimePoint::GetSerializedSize()> buffer{};
        tp.Serialize(buffer.data(), buffer.size());
        TimePoint read;
        read.Deserialize(buffer.data(), buffer.size());
        ASSERT_EQ(read, tp);
        const Ratio ratio = AnyRatio();
        ASSERT_EQ(Ratio::FromString(ratio.ToString()), ratio);
    }
}

TEST_F(TimeArithmeticProperty, TextsOrderedBySizeAndValueAreOrderedAsTheTimePoints) {
    for (int i = 0; i < kNbCases; ++i) {
        const TimePoint a = Ns(Between(0, kHighest));
        const TimePoint b = Ns(Magnitude());
        const std::string left = a.ToString();
        const std::string right = b.ToString();
        const bool less = left.size() != right.size() ? left.size() < right.size() : left < right;
        ASSERT_EQ(less, a < b) << a << ' ' << b;
    }
}

/// Reads hours, minutes, seconds and decimals back, without bounds.
Big CountOfDuration(std::string text) {
    const bool negative = text.starts_with('-');
    text.erase(0, negative ? 1 : 0);
    const auto point = text.find('.');
    const std::string decimals = (text.substr(point + 1) + "000000").substr(0, 9);
    const Big seconds = Big(std::stoll(text.substr(0, point - 6))) * 3600 +
                        std::stoi(text.substr(point - 5, 2)) * 60 + std::stoi(text.substr(point - 2, 2));
    const Big count = seconds * 1'000'000'000 + std::stoll(decimals);
    return negative ? Big(-count) : count;
}

TEST_F(TimeArithmeticProperty, DurationTextsLoseNothing) {
    for (int i = 0; i < kNbCases; ++i) {
        const std::int64_t unit = std::array{1, 1000, 1'000'000}[static_cast<std::size_t>(Between(0, 2))];
        const TimePoint tp = Ns(Any() / unit * unit);
        ASSERT_EQ(CountOfDuration(tp.ToDurationString()), Count(tp)) << tp.ToDurationString();
    }
}

TEST_F(TimeArithmeticProperty, SecondsWithAFractionAreExactForBinaryFractions) {
    for (int i = 0; i < kNbCases; ++i) {
        const std::int64_t seconds = Between(-9'000'000'000, 9'000'000'000);
        const std::int64_t steps = Between(-4096, 4096);
        const Big exact = Big(seconds) * 1'000'000'000 + NearestWhole(Big(steps) * 1'000'000'000, 1024);
        ASSERT_EQ(Count(TimePoint(seconds, static_cast<double>(steps) / 1024)), exact)
            << seconds << ' ' << steps;
    }
}

}  // namespace
}  // namespace Tavrin::Time::Testing
