#include "Time/TimePoint.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tavrin::Time {
namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

constexpr TimePoint Ns(std::int64_t count) {
    return TimePoint().FromNanoseconds(count);
}

/// The message of the std::invalid_argument which the action throws.
template <typename Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST(TimePoint, IsTheOriginByDefault) {
    EXPECT_EQ(TimePoint().ToNanoseconds(), 0);
}

TEST(TimePoint, IsAPlainValueOfSixtyFourBits) {
    EXPECT_TRUE((std::is_same_v<kp_timepoint, std::int64_t>));
    EXPECT_TRUE(std::is_trivially_copyable_v<TimePoint>);
    EXPECT_EQ(sizeof(TimePoint), sizeof(kp_timepoint));
}

TEST(TimePoint, IsNotMadeFromABareNumber) {
    EXPECT_FALSE((std::is_constructible_v<TimePoint, int>));
    EXPECT_FALSE((std::is_constructible_v<TimePoint, std::int64_t>));
}

TEST(TimePoint, WorksInConstantExpressions) {
    constexpr TimePoint frame = TimePoint().FromMilliseconds(40);
    static_assert(frame + frame == TimePoint().FromNanoseconds(80'000'000));
    static_assert(frame - frame * 2 < TimePoint() && (-frame).Abs() == frame);
    static_assert(TimePoint::GetHighestTimePoint() + frame == TimePoint::GetHighestTimePoint());
    EXPECT_EQ(frame.Milliseconds(), 40);
}

TEST(TimePoint, TakesCountsOfItsUnits) {
    EXPECT_EQ(TimePoint().FromSeconds(-3).ToNanoseconds(), -3'000'000'000);
    EXPECT_EQ(TimePoint().FromMilliseconds(40).ToNanoseconds(), 40'000'000);
    EXPECT_EQ(TimePoint().FromNanoseconds(-7).ToNanoseconds(), -7);
}

TEST(TimePoint, SettersReturnTheObjectItself) {
    TimePoint tp;
    EXPECT_EQ(&tp.FromSeconds(1), &tp);
    EXPECT_EQ(&tp.FromMilliseconds(1), &tp);
    EXPECT_EQ(&tp.FromNanoseconds(1), &tp);
    EXPECT_EQ(&tp.FromRatio(1, 1, 25), &tp);
    EXPECT_EQ(&tp.FromString("1.040000000"), &tp);
}

TEST(TimePoint, CountsOutsideItsRangeSaturate) {
    EXPECT_EQ(TimePoint().FromSeconds(9'223'372'036), Ns(9'223'372'036'000'000'000));
    EXPECT_EQ(TimePoint().FromSeconds(9'223'372'037), Ns(kHighest));
    EXPECT_EQ(TimePoint().FromSeconds(-9'223'372'037), Ns(kLowest));
    EXPECT_EQ(TimePoint().FromSeconds(kLowest), Ns(kLowest));
    EXPECT_EQ(TimePoint().FromMilliseconds(9'223'372'036'854), Ns(9'223'372'036'854'000'000));
    EXPECT_EQ(TimePoint().FromMilliseconds(9'223'372'036'855), Ns(kHighest));
    EXPECT_EQ(TimePoint().FromMilliseconds(kLowest), Ns(kLowest));
}

TEST(TimePoint, TotalsAreTruncatedTowardZero) {
    const TimePoint tp = Ns(1'999'999'999);
    EXPECT_EQ(tp.Seconds(), 1);
    EXPECT_EQ(tp.Milliseconds(), 1999);
    EXPECT_EQ(tp.Nanoseconds(), 1'999'999'999);
    EXPECT_EQ(tp.ToNanoseconds(), 1'999'999'999);
    EXPECT_EQ((-tp).Seconds(), -1);
    EXPECT_EQ((-tp).Milliseconds(), -1999);
    EXPECT_EQ(Ns(-999'999).Milliseconds(), 0);
    EXPECT_EQ(Ns(kLowest).Seconds(), -9'223'372'036);
}

TEST(TimePoint, AddsWholeSecondsAndAFraction) {
    EXPECT_EQ(TimePoint(1, 0.04), Ns(1'040'000'000));
    EXPECT_EQ(TimePoint(-1, 0.25), Ns(-750'000'000));
    EXPECT_EQ(TimePoint(-1, -0.25), Ns(-1'250'000'000));
    EXPECT_EQ(TimePoint(2, 1.5), Ns(3'500'000'000));
    EXPECT_EQ(TimePoint(0, 0.0), TimePoint());
}

TEST(TimePoint, FractionIsRoundedToTheNearestNanosecond) {
    EXPECT_EQ(TimePoint(0, 1.4e-9), Ns(1));
    EXPECT_EQ(TimePoint(0, 1.6e-9), Ns(2));
    EXPECT_EQ(TimePoint(0, -1.6e-9), Ns(-2));
    // A tie in binary: 2^-10 s is 976562.5 ns.
    EXPECT_EQ(TimePoint(0, 0.0009765625), Ns(976'563));
    EXPECT_EQ(TimePoint(0, -0.0009765625), Ns(-976'563));
}

TEST(TimePoint, FractionDoesNotSpoilManySeconds) {
    EXPECT_EQ(TimePoint(9'000'000'000, 0.123456789), Ns(9'000'000'000'123'456'789));
}

TEST(TimePoint, SecondsWithAFractionSaturate) {
    EXPECT_EQ(TimePoint(9'223'372'036, 0.9), Ns(kHighest));
    EXPECT_EQ(TimePoint(-9'223'372'036, -0.9), Ns(kLowest));
    EXPECT_EQ(TimePoint(kLowest, 1e300), Ns(kHighest));
    EXPECT_EQ(TimePoint(kHighest, -1e300), Ns(kLowest));
    EXPECT_EQ(TimePoint(kLowest, 0.5), Ns(kLowest));
}

TEST(TimePoint, RefusesAFractionThatIsNotFinite) {
    EXPECT_THROW(TimePoint(0, std::numeric_limits<double>::infinity()), std::invalid_argument);
    EXPECT_THROW(TimePoint(0, std::numeric_limits<double>::quiet_NaN()), std::invalid_argument);
}

TEST(TimePoint, ComparesItsSixtyFourBits) {
    EXPECT_TRUE(Ns(-1) < Ns(0) && Ns(0) < Ns(1) && Ns(kLowest) < Ns(kHighest));
    EXPECT_TRUE(Ns(1) > Ns(0) && Ns(0) >= Ns(0) && Ns(0) <= Ns(0) && Ns(-1) <= Ns(0) && Ns(1) >= Ns(0));
    EXPECT_TRUE(Ns(5) == Ns(5) && Ns(5) != Ns(-5));
    EXPECT_FALSE(Ns(5) < Ns(5) || Ns(5) > Ns(5) || Ns(5) != Ns(5));
}

TEST(TimePoint, AddsAndSubtractsDurations) {
    TimePoint tp = Ns(10);
    EXPECT_EQ(tp += Ns(5), Ns(15));
    EXPECT_EQ(tp -= Ns(20), Ns(-5));
    EXPECT_EQ(tp + Ns(5), TimePoint());
    EXPECT_EQ(tp - Ns(5), Ns(-10));
    EXPECT_EQ(-tp, Ns(5));
    EXPECT_EQ(tp, Ns(-5));
}

TEST(TimePoint, SumsAndDifferencesSaturate) {
    EXPECT_EQ(Ns(kHighest) + Ns(1), Ns(kHighest));
    EXPECT_EQ(Ns(kLowest) + Ns(-1), Ns(kLowest));
    EXPECT_EQ(Ns(kLowest) - Ns(1), Ns(kLowest));
    EXPECT_EQ(Ns(kHighest) - Ns(-1), Ns(kHighest));
    EXPECT_EQ(TimePoint() - Ns(kLowest), Ns(kHighest));
    EXPECT_EQ(Ns(-1) - Ns(kLowest), Ns(kHighest));
    EXPECT_EQ(-Ns(kLowest), Ns(kHighest));
    EXPECT_EQ(Ns(kHighest) + Ns(kLowest), Ns(-1));
}

TEST(TimePoint, AddsAndSubtractsItself) {
    TimePoint tp = Ns(kHighest - 1);
    EXPECT_EQ(tp += tp, Ns(kHighest));
    EXPECT_EQ(tp -= tp, TimePoint());
    TimePoint low = Ns(kLowest);
    EXPECT_EQ(low += low, Ns(kLowest));
}

TEST(TimePoint, AbsTakesTheSignAwayAndSaturates) {
    EXPECT_EQ(Ns(-5).Abs(), Ns(5));
    EXPECT_EQ(Ns(5).Abs(), Ns(5));
    EXPECT_EQ(Ns(kLowest).Abs(), Ns(kHighest));
}

TEST(TimePoint, ScalesByWholeNumbers) {
    TimePoint tp = Ns(7);
    EXPECT_EQ(tp *= -3, Ns(-21));
    EXPECT_EQ(tp * 2, Ns(-42));
    EXPECT_EQ(2 * tp, Ns(-42));
    EXPECT_EQ(tp * 0, TimePoint());
}

TEST(TimePoint, DividesByWholeNumbersTowardZero) {
    TimePoint tp = Ns(-21);
    EXPECT_EQ(tp / 2, Ns(-10));
    EXPECT_EQ(tp / -2, Ns(10));
    EXPECT_EQ(tp /= 4, Ns(-5));
    EXPECT_EQ(Ns(21) / 2, Ns(10));
    EXPECT_EQ(Ns(kHighest) / kLowest, TimePoint());
}

TEST(TimePoint, WholeNumberScalingSaturates) {
    EXPECT_EQ(Ns(kHighest) * 2, Ns(kHighest));
    EXPECT_EQ(Ns(kHighest) * -2, Ns(kLowest));
    EXPECT_EQ(Ns(kLowest) * 2, Ns(kLowest));
    EXPECT_EQ(Ns(kLowest) * -1, Ns(kHighest));
    EXPECT_EQ(Ns(-1) * kLowest, Ns(kHighest));
    EXPECT_EQ(Ns(kLowest) / -1, Ns(kHighest));
    EXPECT_EQ(Ns(kLowest) / 1, Ns(kLowest));
}

TEST(TimePoint, RefusesToDivideByZeroAndStaysAsItWas) {
    TimePoint tp = Ns(5);
    EXPECT_EQ(MessageOf([&] { tp /= 0; }), "The time point 0.000000005 cannot be divided by zero");
    EXPECT_EQ(tp, Ns(5));
    EXPECT_THROW(static_cast<void>(tp / 0), std::invalid_argument);
}

template <typename Factor>
concept ScalesATimePoint = requires(TimePoint tp, Factor factor) {
    tp* factor;
};

TEST(TimePoint, IsNotScaledByFloatingPointNumbers) {
    EXPECT_TRUE(ScalesATimePoint<Ratio>);
    EXPECT_TRUE(ScalesATimePoint<int>);
    EXPECT_FALSE(ScalesATimePoint<double>);
    EXPECT_FALSE(ScalesATimePoint<float>);
}

TEST(TimePoint, ScalesByARatioKeepingItsSign) {
    EXPECT_EQ(TimePoint().FromMilliseconds(40) * Ratio(-1, 1), TimePoint().FromMilliseconds(-40));
    EXPECT_EQ(TimePoint().FromMilliseconds(-40) * Ratio(-1, 2), TimePoint().FromMilliseconds(20));
    EXPECT_EQ(TimePoint().FromMilliseconds(40) * Ratio(), TimePoint());
    TimePoint tp = TimePoint().FromSeconds(1);
    EXPECT_EQ(tp *= Ratio(1001, 30000), Ns(33'366'667));
    EXPECT_EQ(tp, Ns(33'366'667));
}

TEST(TimePoint, RatioScalingRoundsToTheNearestWithHalvesAwayFromZero) {
    EXPECT_EQ(Ns(1) * Ratio(1, 2), Ns(1));
    EXPECT_EQ(Ns(-1) * Ratio(1, 2), Ns(-1));
    EXPECT_EQ(Ns(1) * Ratio(-1, 2), Ns(-1));
    EXPECT_EQ(Ns(3) * Ratio(1, 2), Ns(2));
    EXPECT_EQ(Ns(1) * Ratio(1, 3), Ns(0));
    EXPECT_EQ(Ns(2) * Ratio(1, 3), Ns(1));
    EXPECT_EQ(Ns(-1) * Ratio(1, 3), Ns(0));
    EXPECT_EQ(Ns(-2) * Ratio(1, 3), Ns(-1));
    EXPECT_EQ(Ns(kHighest / 2) * Ratio(1, kHighest), Ns(0));
    EXPECT_EQ(Ns(kHighest / 2 + 1) * Ratio(1, kHighest), Ns(1));
}

TEST(TimePoint, RatioScalingSaturates) {
    EXPECT_EQ(Ns(kHighest) * Ratio(3, 2), Ns(kHighest));
    EXPECT_EQ(Ns(kHighest) * Ratio(-3, 2), Ns(kLowest));
    EXPECT_EQ(Ns(kLowest) * Ratio(kLowest, 1), Ns(kHighest));
    EXPECT_EQ(Ns(kLowest) * Ratio(-1, 1), Ns(kHighest));
    EXPECT_EQ(Ns(kLowest) * Ratio(1, 1), Ns(kLowest));
    EXPECT_EQ(Ns(kHighest) * Ratio(kHighest, kHighest - 1), Ns(kHighest));
}

TEST(TimePoint, ArbitraryTimePointIsFixedAndNeitherOriginNorExtreme) {
    const TimePoint tp = TimePoint::GetArbitraryTimePoint();
    EXPECT_EQ(tp.ToString(), "3723.456789012");
    for (const Ratio& rate : {Ratio(24, 1), Ratio(25, 1), Ratio(30, 1), Ratio(50, 1), Ratio(60, 1),
                              Ratio(24000, 1001), Ratio(30000, 1001), Ratio(60000, 1001), Ratio(1000, 1)}) {
        EXPECT_NE(tp.AlignWith(rate), tp) << rate;
    }
}

TEST(TimePoint, HighestTimePointIsTheHighestSixtyFourBitValue) {
    EXPECT_EQ(TimePoint::GetHighestTimePoint().ToNanoseconds(), kHighest);
}

const std::vector<std::pair<std::int64_t, std::string>> kTexts = {
    {0, "0.000000000"},
    {1, "0.000000001"},
    {-1, "-0.000000001"},
    {1'040'000'000, "1.040000000"},
    {-1'040'000'000, "-1.040000000"},
    {999'999'999, "0.999999999"},
    {kHighest, "9223372036.854775807"},
    {kLowest, "-9223372036.854775808"},
};

TEST(TimePoint, PrintsSignedSecondsWithNineDecimals) {
    for (const auto& [count, text] : kTexts) {
        EXPECT_EQ(Ns(count).ToString(), text);
        std::ostringstream stream;
        stream << Ns(count);
        EXPECT_EQ(stream.str(), text);
    }
}

TEST(TimePoint, PrintsTheSameOnAStreamWithOtherNumberFormatting) {
    std::ostringstream stream;
    stream << std::hex << std::showpos << std::setprecision(2) << std::setfill('*') << Ns(17'040'000'000);
    EXPECT_EQ(stream.str(), "17.040000000");
}

TEST(TimePoint, ReadsBackWhatItPrints) {
    for (const auto& [count, text] : kTexts) {
        EXPECT_EQ(TimePoint(text), Ns(count));
        EXPECT_EQ(TimePoint().FromString(text), Ns(count));
    }
    EXPECT_EQ(TimePoint("1.040000000").Milliseconds(), 1040);
}

TEST(TimePoint, RefusesEveryOtherTextAndStaysAsItWas) {
    TimePoint tp = Ns(5);
    for (const std::string text : {"",
                                   "-",
                                   ".",
                                   "1",
                                   "1.",
                                   ".040000000",
                                   "-.040000000",
                                   "1.04",
                                   "1.0400000000",
                                   "+1.040000000",
                                   " 1.040000000",
                                   "1.040000000 ",
                                   "1,040000000",
                                   "1.04000000a",
                                   "1.04000000-",
                                   "a1.040000000",
                                   "01.040000000",
                                   "-0.000000000",
                                   "--1.040000000",
                                   "1.040.00000",
                                   "1.040000000s",
                                   "0x1.040000000",
                                   "1040000000",
                                   "9223372036.854775808",
                                   "-9223372036.854775809",
                                   "99999999999999999999999.000000000",
                                   "1e5",
                                   "nan",
                                   "00:00:01.040"}) {
        EXPECT_THROW(tp.FromString(text), std::invalid_argument) << '"' << text << '"';
        EXPECT_THROW(TimePoint{text}, std::invalid_argument) << '"' << text << '"';
        EXPECT_EQ(tp, Ns(5)) << '"' << text << '"';
    }
    EXPECT_THROW(tp.FromString(std::string("1.040000000\0", 12)), std::invalid_argument);
}

TEST(TimePoint, NamesTheTextThatItRefuses) {
    EXPECT_EQ(
        MessageOf([] { TimePoint("noon"); }),
        "\"noon\" is not a time point: expected seconds with nine decimals as in 1.040000000 that fit 64 "
        "bits of nanoseconds");
}

TEST(TimePoint, PrintsDurationsForPeople) {
    EXPECT_EQ(TimePoint().ToDurationString(), "00:00:00.000");
    EXPECT_EQ(Ns(1'040'000'000).ToDurationString(), "00:00:01.040");
    EXPECT_EQ(Ns(33'366'667).ToDurationString(), "00:00:00.033366667");
    EXPECT_EQ(Ns(500'000).ToDurationString(), "00:00:00.000500");
    EXPECT_EQ(Ns(-1).ToDurationString(), "-00:00:00.000000001");
    EXPECT_EQ(TimePoint().FromSeconds(59 * 60 + 59).ToDurationString(), "00:59:59.000");
    EXPECT_EQ(TimePoint().FromSeconds(-100'000).ToDurationString(), "-27:46:40.000");
    EXPECT_EQ(TimePoint::GetHighestTimePoint().ToDurationString(), "2562047:47:16.854775807");
    EXPECT_EQ(Ns(kLowest).ToDurationString(), "-2562047:47:16.854775808");
}

TEST(TimePoint, SerialisesToEightBytesMostSignificantFirst) {
    EXPECT_EQ(TimePoint::GetSerializedSize(), 8U);
    std::array<std::uint8_t, 8> buffer{};
    EXPECT_EQ(Ns(0x0102030405060708).Serialize(buffer.data(), buffer.size()), 8U);
    EXPECT_EQ(buffer, (std::array<std::uint8_t, 8>{1, 2, 3, 4, 5, 6, 7, 8}));
    Ns(-2).Serialize(buffer.data(), buffer.size());
    EXPECT_EQ(buffer, (std::array<std::uint8_t, 8>{255, 255, 255, 255, 255, 255, 255, 254}));
}

TEST(TimePoint, DeserialisesWhatItSerialised) {
    for (const std::int64_t count :
         {std::int64_t{0}, std::int64_t{-1}, kLowest, kHighest, std::int64_t{1} << 40}) {
        std::array<std::uint8_t, 8> buffer{};
        Ns(count).Serialize(buffer.data(), buffer.size());
        TimePoint read = Ns(5);
        EXPECT_EQ(read.Deserialize(buffer.data(), buffer.size()), 8U);
        EXPECT_EQ(read, Ns(count));
    }
}

TEST(TimePoint, LeavesTheRestOfALongerBufferAlone) {
    std::array<std::uint8_t, 10> buffer{};
    buffer.fill(0xAA);
    Ns(1).Serialize(buffer.data(), buffer.size());
    EXPECT_EQ(buffer, (std::array<std::uint8_t, 10>{0, 0, 0, 0, 0, 0, 0, 1, 0xAA, 0xAA}));
    EXPECT_EQ(TimePoint().Deserialize(buffer.data(), buffer.size()), 8U);
}

TEST(TimePoint, RefusesAShortBufferAndLeavesObjectAndBufferAsTheyWere) {
    std::array<std::uint8_t, 8> buffer{};
    buffer.fill(0xAA);
    TimePoint tp = Ns(5);
    for (std::size_t size = 0; size < TimePoint::GetSerializedSize(); ++size) {
        EXPECT_THROW(tp.Serialize(buffer.data(), size), std::invalid_argument) << size;
        EXPECT_THROW(tp.Deserialize(buffer.data(), size), std::invalid_argument) << size;
    }
    EXPECT_EQ(tp, Ns(5));
    EXPECT_EQ(std::vector<std::uint8_t>(buffer.begin(), buffer.end()), std::vector<std::uint8_t>(8, 0xAA));
    EXPECT_EQ(MessageOf([&] { tp.Deserialize(buffer.data(), 7); }),
              "Cannot deserialize a time point: the buffer has 7 bytes, it needs 8");
}

TEST(TimePoint, RefusesANullBuffer) {
    TimePoint tp = Ns(5);
    EXPECT_THROW(tp.Serialize(nullptr, 8), std::invalid_argument);
    EXPECT_THROW(tp.Deserialize(nullptr, 8), std::invalid_argument);
    EXPECT_EQ(tp, Ns(5));
}

}  // namespace
}  // namespace Tavrin::Time
