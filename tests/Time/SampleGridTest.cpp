// The grid of samples that a rate lays over time: examples worked out by hand. The property tests beside this
// file hold the same rules against independent arithmetic.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "Time/TimePoint.h"

namespace Tavrin::Time {
namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kHighestUnsigned = std::numeric_limits<std::uint64_t>::max();

const Ratio kPal(25, 1);
const Ratio kNtsc(30000, 1001);

constexpr TimePoint Ns(std::int64_t count) {
    return TimePoint().FromNanoseconds(count);
}

constexpr TimePoint Ms(std::int64_t count) {
    return TimePoint().FromMilliseconds(count);
}

TEST(SampleGrid, SampleStartsAreRoundedUpToWholeNanoseconds) {
    EXPECT_EQ(TimePoint().FromRatio(26, 1, 25), Ms(1040));
    EXPECT_EQ(TimePoint().FromRatio(1, 1001, 30000), Ns(33'366'667));
    EXPECT_EQ(TimePoint().FromRatio(2, 1001, 30000), Ns(66'733'334));
    EXPECT_EQ(TimePoint().FromRatio(3, 1001, 30000), Ns(100'100'000));
    EXPECT_EQ(TimePoint().FromRatio(1, 1, 3), Ns(333'333'334));
}

TEST(SampleGrid, SamplesBelowTheOriginStartRoundedUpToo) {
    EXPECT_EQ(TimePoint::StartOfSample(-1, kPal), Ms(-40));
    EXPECT_EQ(TimePoint::StartOfSample(-1, kNtsc), Ns(-33'366'666));
    EXPECT_EQ(TimePoint::StartOfSample(-2, kNtsc), Ns(-66'733'333));
    EXPECT_EQ(TimePoint::StartOfSample(-3, kNtsc), Ns(-100'100'000));
}

TEST(SampleGrid, FromRatioTakesTermsThatAreNotReduced) {
    EXPECT_EQ(TimePoint().FromRatio(1, 2002, 60000), TimePoint().FromRatio(1, 1001, 30000));
}

TEST(SampleGrid, FromRatioAndStartOfSampleAgree) {
    for (const std::int64_t n : {std::int64_t{0}, std::int64_t{1}, std::int64_t{107'892'107}, kHighest}) {
        EXPECT_EQ(TimePoint::StartOfSample(n, kNtsc),
                  TimePoint().FromRatio(static_cast<std::uint64_t>(n), 1001, 30000))
            << n;
    }
}

TEST(SampleGrid, FromRatioRefusesAZeroRateAndStaysAsItWas) {
    TimePoint tp = Ns(5);
    try {
        tp.FromRatio(7, 2, 0);
        FAIL() << "a zero rate was taken";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()),
                  "Sample 7 of the rate 0/2 has no start: the rate must not be zero");
    }
    EXPECT_EQ(tp, Ns(5));
    EXPECT_THROW(tp.FromRatio(0, 0, 0), std::invalid_argument);
}

TEST(SampleGrid, FromRatioTakesAllOfItsUnsignedRange) {
    EXPECT_EQ(TimePoint().FromRatio(kHighestUnsigned, kHighestUnsigned, kHighestUnsigned),
              TimePoint::GetHighestTimePoint());
    EXPECT_EQ(TimePoint().FromRatio(kHighestUnsigned, kHighestUnsigned, 1), TimePoint::GetHighestTimePoint());
    EXPECT_EQ(TimePoint().FromRatio(1, 1, kHighestUnsigned), Ns(1));
    EXPECT_EQ(TimePoint().FromRatio(kHighestUnsigned, 1, kHighestUnsigned), TimePoint().FromSeconds(1));
    // Product and rate leave a remainder of 2^64 - 2, which only a wide scaling carries to nanoseconds.
    EXPECT_EQ(TimePoint().FromRatio(kHighestUnsigned - 1, 1, kHighestUnsigned), TimePoint().FromSeconds(1));
    EXPECT_EQ(TimePoint().FromRatio(5, 0, 25), TimePoint());
}

TEST(SampleGrid, SampleNumberCountsWholeSamplesSinceTheOrigin) {
    EXPECT_EQ(Ms(0).SampleNumber(kPal), 0);
    EXPECT_EQ(Ns(39'999'999).SampleNumber(kPal), 0);
    EXPECT_EQ(Ms(40).SampleNumber(kPal), 1);
    EXPECT_EQ(Ms(1010).SampleNumber(kPal), 25);
    EXPECT_EQ(Ns(33'366'666).SampleNumber(kNtsc), 0);
    EXPECT_EQ(Ns(33'366'667).SampleNumber(kNtsc), 1);
}

TEST(SampleGrid, SampleNumberGoesDownwardBelowTheOrigin) {
    EXPECT_EQ(Ns(-1).SampleNumber(kPal), -1);
    EXPECT_EQ(Ms(-40).SampleNumber(kPal), -1);
    EXPECT_EQ(Ns(-40'000'001).SampleNumber(kPal), -2);
    EXPECT_EQ(Ns(-33'366'666).SampleNumber(kNtsc), -1);
    EXPECT_EQ(Ns(-33'366'667).SampleNumber(kNtsc), -2);
}

TEST(SampleGrid, SampleNumberSaturates) {
    EXPECT_EQ(TimePoint::GetHighestTimePoint().SampleNumber(Ratio(kHighest, 1)), kHighest);
    EXPECT_EQ(Ns(kLowest).SampleNumber(Ratio(kHighest, 1)), kLowest);
    EXPECT_EQ(Ns(kLowest).SampleNumber(Ratio(kLowest, 1)), kHighest);
    EXPECT_EQ(Ns(kHighest).SampleNumber(Ratio(1'000'000'000, 1)), kHighest);
    EXPECT_EQ(Ns(kLowest).SampleNumber(Ratio(1'000'000'000, 1)), kLowest);
    EXPECT_EQ(Ns(kLowest).SampleNumber(Ratio(1, kHighest)), -1);
}

TEST(SampleGrid, AlignWithGivesTheStartOfTheSampleUnderway) {
    EXPECT_EQ(Ms(1010).AlignWith(kPal), Ms(1000));
    EXPECT_EQ(Ms(1040).AlignWith(kPal), Ms(1040));
    EXPECT_EQ(Ns(-1).AlignWith(kPal), Ms(-40));
    EXPECT_EQ(Ns(66'733'333).AlignWith(kNtsc), Ns(33'366'667));
    EXPECT_EQ(Ns(66'733'334).AlignWith(kNtsc), Ns(66'733'334));
}

TEST(SampleGrid, AlignWithSaturatesAtTheLowestValue) {
    EXPECT_EQ(Ns(kLowest).AlignWith(Ratio(1, 1)), Ns(kLowest));
    EXPECT_EQ(Ns(kLowest).AlignWith(Ratio(1, kHighest)), Ns(kLowest));
    EXPECT_EQ(Ns(kHighest).AlignWith(Ratio(1, 1)), TimePoint().FromSeconds(9'223'372'036));
}

TEST(SampleGrid, RoundWithGivesTheNearestSampleStart) {
    EXPECT_EQ(Ns(19'999'999).RoundWith(kPal), Ms(0));
    EXPECT_EQ(Ns(20'000'001).RoundWith(kPal), Ms(40));
    EXPECT_EQ(Ms(40).RoundWith(kPal), Ms(40));
    EXPECT_EQ(Ns(-19'999'999).RoundWith(kPal), Ms(0));
    EXPECT_EQ(Ns(-20'000'001).RoundWith(kPal), Ms(-40));
}

TEST(SampleGrid, RoundWithGoesToTheLaterStartAtHalfway) {
    EXPECT_EQ(Ms(20).RoundWith(kPal), Ms(40));
    EXPECT_EQ(Ms(-20).RoundWith(kPal), Ms(0));
    EXPECT_EQ(Ms(-60).RoundWith(kPal), Ms(-40));
}

TEST(SampleGrid, RoundWithMeasuresToStartsOutsideItsRangeAsFarAsTheyAre) {
    // The samples begin at whole multiples of ten seconds; 36.85 s are nearer to 40 s than to 30 s, and 33 s
    // to 30 s, although the highest value lies at 36.85 s.
    const Ratio slow(1, 10);
    EXPECT_EQ(Ns(kHighest).RoundWith(slow), Ns(kHighest));
    EXPECT_EQ(Ns(9'223'372'034'000'000'000).RoundWith(slow), TimePoint().FromSeconds(9'223'372'030));
    EXPECT_EQ(Ns(9'223'372'036'000'000'000).RoundWith(slow), Ns(kHighest));
    EXPECT_EQ(Ns(-9'223'372'034'000'000'000).RoundWith(slow), TimePoint().FromSeconds(-9'223'372'030));
    EXPECT_EQ(Ns(-9'223'372'036'000'000'000).RoundWith(slow), Ns(kLowest));
    EXPECT_EQ(Ns(kHighest).RoundWith(Ratio(1, kHighest)), TimePoint());
    EXPECT_EQ(Ns(kLowest).RoundWith(Ratio(1, kHighest)), TimePoint());
}

TEST(SampleGrid, RoundWithKnowsNoSampleBeyondTheHighestNumber) {
    const Ratio fast(kHighest, 1);
    EXPECT_EQ(Ns(kHighest).RoundWith(fast), TimePoint::StartOfSample(kHighest, fast));
    EXPECT_EQ(Ns(kLowest).RoundWith(fast), TimePoint::StartOfSample(kLowest, fast));
}

TEST(SampleGrid, ZeroRateHasTheOneSampleAtTheOrigin) {
    for (const TimePoint tp :
         {Ns(kLowest), Ns(-1), Ns(0), TimePoint::GetArbitraryTimePoint(), Ns(kHighest)}) {
        EXPECT_EQ(tp.SampleNumber(Ratio()), 0);
        EXPECT_EQ(tp.AlignWith(Ratio()), TimePoint());
        EXPECT_EQ(tp.RoundWith(Ratio()), TimePoint());
    }
    EXPECT_EQ(TimePoint::StartOfSample(7, Ratio()), TimePoint());
}

TEST(SampleGrid, NegativeRateIsMirroredAtTheOrigin) {
    const Ratio backward(-30000, 1001);
    EXPECT_EQ(TimePoint::StartOfSample(1, backward), Ns(-33'366'667));
    EXPECT_EQ(TimePoint::StartOfSample(-1, backward), Ns(33'366'666));
    EXPECT_EQ(Ns(1).SampleNumber(backward), -1);
    EXPECT_EQ(Ns(-33'366'666).SampleNumber(backward), 0);
    EXPECT_EQ(Ns(-33'366'667).SampleNumber(backward), 1);
    EXPECT_EQ(Ns(1).AlignWith(backward), Ns(33'366'666));
}

TEST(SampleGrid, NegativeRateRoundsToTheNearestStartWithHalfwayLater) {
    EXPECT_EQ(Ms(19).RoundWith(Ratio(-25, 1)), Ms(0));
    EXPECT_EQ(Ms(20).RoundWith(Ratio(-25, 1)), Ms(40));
    EXPECT_EQ(Ms(-20).RoundWith(Ratio(-25, 1)), Ms(0));
    EXPECT_EQ(Ms(-21).RoundWith(Ratio(-25, 1)), Ms(-40));
}

TEST(SampleGrid, LowestRateTermsAreStood) {
    const Ratio lowest(kLowest, 1);
    EXPECT_EQ(Ns(kLowest).AlignWith(lowest), TimePoint::StartOfSample(kHighest, lowest));
    EXPECT_EQ(TimePoint::StartOfSample(kLowest, lowest), TimePoint().FromSeconds(1));
    EXPECT_EQ(TimePoint::StartOfSample(kLowest, Ratio(1, kHighest)), Ns(kLowest));
}

// At 30000/1001 one sample more or less shows within seven minutes when a rate is taken as 29.97 or when
// nanoseconds per sample are summed up.
TEST(SampleGrid, DoesNotDriftWithinACentury) {
    const std::int64_t century =
        94'608'000'000 * 1000 / 1001;  // samples of 30000/1001 in 100 years of 365 days
    const TimePoint start = TimePoint::StartOfSample(century, kNtsc);
    EXPECT_EQ(start.SampleNumber(kNtsc), century);
    EXPECT_EQ((start - Ns(1)).SampleNumber(kNtsc), century - 1);
    EXPECT_EQ(start.Seconds(), 3'153'599'999);
}

}  // namespace
}  // namespace Tavrin::Time
