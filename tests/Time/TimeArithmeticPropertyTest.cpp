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

Big Count(const TimePoint& tp) {
    return tp.ToNanoseconds();
}

Big Numerator(const Ratio& ratio) {
    return ratio.Numerator();
}

Big Denominator(const Ratio& ratio) {
    return ratio.Denominator();
}

/// Rounded to the nearest whole number, halves away from zero; the denominator is positive.
Big NearestWhole(const Big& numerator, const Big& denominator) {
    const Big magnitude = FloorDivide(2 * abs(numerator) + denominator, 2 * denominator);
    return numerator < 0 ? -magnitude : magnitude;
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
        const Big exact = NearestWhole(Count(tp) * factor.Numerator(), Denominator(factor));
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

TEST_F(TimeArithmeticProperty, RatiosCompareByValue) {
    for (int i = 0; i < kNbCases; ++i) {
        const Ratio a = AnyRatio();
        const Ratio b = Between(0, 3) == 0 ? a : AnyRatio();
        const Big difference = Numerator(a) * Denominator(b) - Numerator(b) * Denominator(a);
        ASSERT_EQ(a == b, difference == 0) << a << ' ' << b;
        ASSERT_EQ(a != b, difference != 0) << a << ' ' << b;
        ASSERT_EQ(a < b, difference < 0) << a << ' ' << b;
        ASSERT_EQ(a > b, difference > 0) << a << ' ' << b;
        ASSERT_EQ(a <= b, difference <= 0) << a << ' ' << b;
        ASSERT_EQ(a >= b, difference >= 0) << a << ' ' << b;
    }
}

Big GreatestCommonDivisor(const Big& a, const Big& b) {
    return b == 0 ? abs(a) : GreatestCommonDivisor(b, a % b);
}

/// The computed ratio holds exactly n/d, reduced, or it was refused because that does not fit.
void ExpectExactOrOverflow(const std::function<Ratio()>& compute, Big n, Big d, const std::string& what) {
    const Big divisor = GreatestCommonDivisor(n, d) * (d < 0 ? -1 : 1);
    n /= divisor;
    d /= divisor;
    if (!FitsSixtyFourBits(n) || !FitsSixtyFourBits(d)) {
        EXPECT_THROW(static_cast<void>(compute()), std::overflow_error) << what;
        return;
    }
    const Ratio result = compute();
    EXPECT_EQ(Numerator(result), n) << what;
    EXPECT_EQ(Denominator(result), d) << what;
}

TEST_F(TimeArithmeticProperty, RatiosAreHeldReducedWithAPositiveDenominator) {
    for (int i = 0; i < kNbCases && !HasFailure(); ++i) {
        const std::int64_t numerator = Any();
        const std::int64_t denominator = Between(0, 3) == 0 ? numerator : Any();
        const std::string what = std::to_string(numerator) + '/' + std::to_string(denominator);
        if (denominator == 0) {
            EXPECT_THROW(Ratio(numerator, denominator), std::invalid_argument) << what;
            continue;
        }
        ExpectExactOrOverflow([&] { return Ratio(numerator, denominator); }, numerator, denominator, what);
    }
}

TEST_F(TimeArithmeticProperty, RatioArithmeticIsExactOrThrows) {
    for (int i = 0; i < kNbCases && !HasFailure(); ++i) {
        const Ratio a = i % 2 == 0 ? AnyRatio() : ModestRatio();
        const Ratio b = i % 2 == 0 ? AnyRatio() : ModestRatio();
        const std::string what = a.ToString() + " and " + b.ToString();
        const Big an = Numerator(a);
        const Big ad = Denominator(a);
        const Big bn = Numerator(b);
        const Big bd = Denominator(b);
        ExpectExactOrOverflow([&] { return a + b; }, an * bd + bn * ad, ad * bd, what);
        ExpectExactOrOverflow([&] { return a - b; }, an * bd - bn * ad, ad * bd, what);
        ExpectExactOrOverflow([&] { return a * b; }, an * bn, ad * bd, what);
        ExpectExactOrOverflow([&] { return -a; }, -an, ad, what);
        ExpectExactOrOverflow([&] { return a.Abs(); }, abs(an), ad, what);
        if (b != Ratio()) {
            ExpectExactOrOverflow([&] { return a / b; }, an * bd, ad * bn, what);
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
    return negative ? -count : count;
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
