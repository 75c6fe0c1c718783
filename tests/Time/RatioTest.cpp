#include "Time/Ratio.h"

#include <gtest/gtest.h>

#include <compare>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace Tavrin::Time {
namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

/// The message of the exception of that type which the action throws.
template <typename Exception, typename Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const Exception& error) {
        return error.what();
    }
    return "nothing was thrown";
}

std::string TermsOf(const Ratio& ratio) {
    return std::to_string(ratio.Numerator()) + '/' + std::to_string(ratio.Denominator());
}

TEST(Ratio, IsZeroOverOneByDefault) {
    EXPECT_EQ(TermsOf(Ratio()), "0/1");
}

TEST(Ratio, IsPolymorphic) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Ratio>);
}

TEST(Ratio, HasNoImplicitConversionFromANumber) {
    EXPECT_FALSE((std::is_convertible_v<int, Ratio>));
    EXPECT_FALSE((std::is_convertible_v<double, Ratio>));
}

TEST(Ratio, IsHeldReduced) {
    EXPECT_EQ(TermsOf(Ratio(50, 2)), "25/1");
    EXPECT_EQ(TermsOf(Ratio(60000, 2002)), "30000/1001");
    EXPECT_EQ(TermsOf(Ratio(-6, 4)), "-3/2");
    EXPECT_EQ(TermsOf(Ratio(kHighest, kHighest)), "1/1");
    EXPECT_EQ(TermsOf(Ratio(kHighest, kHighest - 1)), "9223372036854775807/9223372036854775806");
}

TEST(Ratio, HoldsItsSignInTheNumerator) {
    EXPECT_EQ(TermsOf(Ratio(1, -2)), "-1/2");
    EXPECT_EQ(TermsOf(Ratio(-1, -2)), "1/2");
    EXPECT_EQ(TermsOf(Ratio(kHighest, -1)), "-9223372036854775807/1");
}

TEST(Ratio, HoldsEveryZeroAsZeroOverOne) {
    EXPECT_EQ(TermsOf(Ratio(0, 5)), "0/1");
    EXPECT_EQ(TermsOf(Ratio(0, -5)), "0/1");
    EXPECT_EQ(TermsOf(Ratio(0, kLowest)), "0/1");
}

TEST(Ratio, HoldsTheLowestNumberWhereItReduces) {
    EXPECT_EQ(TermsOf(Ratio(kLowest, 1)), "-9223372036854775808/1");
    EXPECT_EQ(TermsOf(Ratio(kLowest, 3)), "-9223372036854775808/3");
    EXPECT_EQ(TermsOf(Ratio(kLowest, -2)), "4611686018427387904/1");
    EXPECT_EQ(TermsOf(Ratio(kLowest, kLowest)), "1/1");
    EXPECT_EQ(TermsOf(Ratio(2, kLowest)), "-1/4611686018427387904");
}

TEST(Ratio, ThrowsWhereItsReducedTermsDoNotFit) {
    EXPECT_THROW(Ratio(kLowest, -1), std::overflow_error);
    EXPECT_THROW(Ratio(kLowest, -3), std::overflow_error);
    EXPECT_THROW(Ratio(1, kLowest), std::overflow_error);
    EXPECT_THROW(Ratio(-3, kLowest), std::overflow_error);
    EXPECT_EQ(
        MessageOf<std::overflow_error>([] { Ratio(1, kLowest); }),
        "The reduced terms of the ratio 1/-9223372036854775808 do not fit signed 64 bits with a positive "
        "denominator");
}

TEST(Ratio, RefusesAZeroDenominator) {
    EXPECT_THROW(Ratio(1, 0), std::invalid_argument);
    EXPECT_THROW(Ratio(0, 0), std::invalid_argument);
    EXPECT_EQ(MessageOf<std::invalid_argument>([] { Ratio(25, 0); }),
              "The ratio 25/0 has a zero denominator");
}

TEST(Ratio, ComparesByValue) {
    EXPECT_EQ(Ratio(2, 2), Ratio(1, 1));
    EXPECT_EQ(Ratio(0, 2), Ratio(0, 1));
    EXPECT_EQ(Ratio(-1, 2), Ratio(1, -2));
    EXPECT_NE(Ratio(30000, 1001), Ratio(30, 1));
    EXPECT_LT(Ratio(30000, 1001), Ratio(30, 1));
    EXPECT_GT(Ratio(1, 2), Ratio(1, 3));
    EXPECT_LT(Ratio(-1, 2), Ratio(-1, 3));
    EXPECT_LT(Ratio(-1, 2), Ratio(0, 1));
    EXPECT_LE(Ratio(2, 4), Ratio(1, 2));
    EXPECT_GE(Ratio(2, 4), Ratio(1, 2));
    EXPECT_EQ(Ratio(3, 9) <=> Ratio(1, 3), std::strong_ordering::equal);
}

TEST(Ratio, ComparesExactlyWhereDoublesAndSixtyFourBitsFail) {
    EXPECT_LT(Ratio(kHighest - 1, kHighest), Ratio(kHighest, kHighest));
    EXPECT_LT(Ratio(kHighest - 2, kHighest - 1), Ratio(kHighest - 1, kHighest));
    EXPECT_LT(Ratio(kLowest, 1), Ratio(-kHighest, 1));
    EXPECT_LT(Ratio(kLowest, 1), Ratio(kLowest, kHighest));
    EXPECT_GT(Ratio(kHighest, 1), Ratio(1, kHighest));
}

TEST(Ratio, MultipliesExactly) {
    EXPECT_EQ(Ratio(2, 3) * Ratio(3, 4), Ratio(1, 2));
    EXPECT_EQ(Ratio(30000, 1001) * Ratio(-1, 2), Ratio(-15000, 1001));
    EXPECT_EQ(Ratio(25, 1) * Ratio(), Ratio());
    EXPECT_EQ(Ratio(kHighest, 2) * Ratio(2, kHighest), Ratio(1, 1));
    EXPECT_EQ(Ratio(kLowest, 1) * Ratio(1, kHighest), Ratio(kLowest, kHighest));
}

TEST(Ratio, DividesExactly) {
    EXPECT_EQ(Ratio(50, 1) / Ratio(4, 1), Ratio(25, 2));
    EXPECT_EQ(Ratio(50, 1) / Ratio(-1, 2), Ratio(-100, 1));
    EXPECT_EQ(Ratio() / Ratio(-7, 3), Ratio());
    EXPECT_EQ(Ratio(kLowest, 1) / Ratio(kLowest, 1), Ratio(1, 1));
    EXPECT_EQ(Ratio(kHighest, 3) / Ratio(kHighest, 1), Ratio(1, 3));
}

TEST(Ratio, AddsAndSubtractsExactly) {
    EXPECT_EQ(Ratio(1, 2) + Ratio(1, 3), Ratio(5, 6));
    EXPECT_EQ(Ratio(1, 6) + Ratio(1, 3), Ratio(1, 2));
    EXPECT_EQ(Ratio(1, 2) - Ratio(1, 3), Ratio(1, 6));
    EXPECT_EQ(Ratio(1, 2) - Ratio(1, 2), Ratio());
    EXPECT_EQ(Ratio(kHighest, kHighest - 1) - Ratio(1, kHighest - 1), Ratio(1, 1));
    EXPECT_EQ(Ratio(kLowest, 1) + Ratio(kHighest, 1), Ratio(-1, 1));
}

TEST(Ratio, NegatesItsValue) {
    EXPECT_EQ(-Ratio(1, 2), Ratio(-1, 2));
    EXPECT_EQ(-Ratio(-1, 2), Ratio(1, 2));
    EXPECT_EQ(-Ratio(), Ratio());
}

TEST(Ratio, ThrowsWhereAResultDoesNotFitAndNamesTheOperands) {
    EXPECT_EQ(MessageOf<std::overflow_error>([] { return Ratio(kHighest, 1) * Ratio(2, 1); }),
              "The reduced terms of the ratio 9223372036854775807/1 * 2/1 do not fit signed 64 bits with a "
              "positive denominator");
    EXPECT_THROW(static_cast<void>(Ratio(1, kHighest) * Ratio(1, 2)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(kHighest, 1) / Ratio(1, 2)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(1, 1) / Ratio(kLowest, 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(kHighest, 1) + Ratio(1, 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(kLowest, 1) - Ratio(1, 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(1, kHighest) + Ratio(1, kHighest - 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(-Ratio(kLowest, 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(kLowest, 1).Abs()), std::overflow_error);
}

TEST(Ratio, StandsTheLowestTermsInEveryOperation) {
    EXPECT_THROW(static_cast<void>(Ratio(kLowest, 1) * Ratio(kLowest, 1)), std::overflow_error);
    EXPECT_THROW(static_cast<void>(Ratio(kLowest, 1) + Ratio(kLowest, 1)), std::overflow_error);
    EXPECT_EQ(Ratio(kLowest, 1) - Ratio(kLowest, 1), Ratio());
    EXPECT_EQ(Ratio(kLowest, kHighest) / Ratio(kLowest, kHighest), Ratio(1, 1));
    EXPECT_EQ(Ratio(kLowest, kHighest) - Ratio(kLowest, kHighest), Ratio());
    EXPECT_THROW(static_cast<void>(Ratio(kLowest, kHighest) + Ratio(kLowest, kHighest - 2)),
                 std::overflow_error);
}

TEST(Ratio, RefusesToDivideByZero) {
    EXPECT_EQ(MessageOf<std::invalid_argument>([] { return Ratio(25, 1) / Ratio(0, 3); }),
              "The ratio 25/1 cannot be divided by 0/1");
    EXPECT_THROW(static_cast<void>(Ratio() / Ratio()), std::invalid_argument);
}

TEST(Ratio, AbsTakesTheSignAway) {
    EXPECT_EQ(Ratio(-3, 2).Abs(), Ratio(3, 2));
    EXPECT_EQ(Ratio(3, 2).Abs(), Ratio(3, 2));
    EXPECT_EQ(Ratio().Abs(), Ratio());
    EXPECT_EQ(Ratio(-kHighest, 2).Abs(), Ratio(kHighest, 2));
}

TEST(Ratio, IsPositiveOnlyAboveZero) {
    EXPECT_TRUE(Ratio(1, 1000).Positive());
    EXPECT_TRUE(Ratio(-1, -1000).Positive());
    EXPECT_FALSE(Ratio(0, 5).Positive());
    EXPECT_FALSE(Ratio(-1, 1000).Positive());
}

TEST(Ratio, PrintsItsTerms) {
    std::ostringstream stream;
    stream << Ratio(60000, 2002) << ' ' << Ratio(3, -2) << ' ' << Ratio();
    EXPECT_EQ(stream.str(), "30000/1001 -3/2 0/1");
    EXPECT_EQ(Ratio(kLowest, kHighest).ToString(), "-9223372036854775808/9223372036854775807");
}

TEST(Ratio, PrintsTheSameOnAStreamWithOtherNumberFormatting) {
    std::ostringstream stream;
    stream << std::hex << std::showpos << std::setfill('*') << Ratio(30000, 1001);
    EXPECT_EQ(stream.str(), "30000/1001");
}

TEST(Ratio, ReadsItsTextAndWholeNumbers) {
    EXPECT_EQ(Ratio::FromString("30000/1001"), Ratio(30000, 1001));
    EXPECT_EQ(Ratio::FromString("-2/4"), Ratio(-1, 2));
    EXPECT_EQ(Ratio::FromString("2/-4"), Ratio(-1, 2));
    EXPECT_EQ(Ratio::FromString("-4"), Ratio(-4, 1));
    EXPECT_EQ(Ratio::FromString("0"), Ratio());
    EXPECT_EQ(Ratio::FromString("-9223372036854775808/9223372036854775807"), Ratio(kLowest, kHighest));
}

TEST(Ratio, RefusesEveryOtherText) {
    for (const char* text : {"", "/", "1/", "/2", "1/2/3", " 1/2", "1/2 ", "1 /2", "1.5", "+1/2", "1/+2", "a",
                             "1/b", "0x10", "--1", "9223372036854775808", "1/9223372036854775808", "1/0"}) {
        EXPECT_THROW(static_cast<void>(Ratio::FromString(text)), std::invalid_argument) << '"' << text << '"';
    }
    EXPECT_EQ(MessageOf<std::invalid_argument>([] { return Ratio::FromString("fast"); }),
              "\"fast\" is not a ratio: expected two whole numbers of 64 bits as in 30000/1001");
}

}  // namespace
}  // namespace Tavrin::Time
