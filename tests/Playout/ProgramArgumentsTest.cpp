#include <gtest/gtest.h>

#include <set>
#include <string>

#include "apps/playout/Arguments.h"
#include "apps/playout/Output.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {
namespace {

using Time::Ratio;
using Time::TimePoint;

TEST(ProgramArguments, RatiosAreExact) {
    EXPECT_EQ(ParseRatio("1"), Ratio(1, 1));
    EXPECT_EQ(ParseRatio("-2"), Ratio(-2, 1));
    EXPECT_EQ(ParseRatio("1/2"), Ratio(1, 2));
    EXPECT_EQ(ParseRatio("-1/2"), Ratio(-1, 2));
    EXPECT_EQ(ParseRatio("0.5"), Ratio(1, 2));
    EXPECT_EQ(ParseRatio("-0.1"), Ratio(-1, 10));
    EXPECT_EQ(ParseRatio("29.97"), Ratio(2997, 100));
    EXPECT_EQ(ParseRatio("30000/1001"), Ratio(30000, 1001));
    EXPECT_EQ(ParseRatio("0"), Ratio());
    EXPECT_EQ(ParseRatio("9223372036854775807"), Ratio(9223372036854775807, 1));
}

TEST(ProgramArguments, WhatIsNoRatioIsRefused) {
    for (const char* text : {"",
                             "-",
                             "x",
                             "1x",
                             "1/",
                             "/2",
                             "1/0",
                             "1/-2",
                             "--1",
                             "+1",
                             "1e3",
                             "0x10",
                             ".5",
                             "5.",
                             "1.5/2",
                             "1/2/3",
                             " 1",
                             "1 ",
                             "inf",
                             "nan",
                             "0.1234567890",
                             "9223372036854775808",
                             "9223372036854775807.5"}) {
        EXPECT_THROW(static_cast<void>(ParseRatio(text)), UsageError) << text;
    }
}

TEST(ProgramArguments, SpeedsAndRatesAreBounded) {
    EXPECT_EQ(ParseSpeed("-1000"), Ratio(-1000, 1));
    EXPECT_THROW(static_cast<void>(ParseSpeed("1001")), UsageError);
    EXPECT_THROW(static_cast<void>(ParseSpeed("1/1000001")), UsageError);
    EXPECT_EQ(ParseRate("30000/1001"), Player::SampleRate(30000, 1001));
    EXPECT_THROW(static_cast<void>(ParseRate("0")), UsageError);
    EXPECT_THROW(static_cast<void>(ParseRate("-25")), UsageError);
    EXPECT_THROW(static_cast<void>(ParseRate("1000.1")), UsageError);
}

TEST(ProgramArguments, TimesAreReadWithAndWithoutMinutesAndHours) {
    EXPECT_EQ(ParseTime("0"), TimePoint());
    EXPECT_EQ(ParseTime("12.5"), TimePoint().FromMilliseconds(12'500));
    EXPECT_EQ(ParseTime("90"), TimePoint().FromSeconds(90));
    EXPECT_EQ(ParseTime("1:02.250"), TimePoint().FromMilliseconds(62'250));
    EXPECT_EQ(ParseTime("1:00:00.000000001"), TimePoint().FromNanoseconds(3'600'000'000'001));
    EXPECT_EQ(ParseTime("100:59:59"), TimePoint().FromSeconds(363'599));
}

TEST(ProgramArguments, WhatIsNoTimeIsRefused) {
    for (const char* text : {"", ":", "1:", ":1", "-1", "1:60", "1:60:00", "1:2:3:4", "1.5:00", "1,5", "now",
                             "0.1234567891", "9999999999999", "99999999999999999999"}) {
        EXPECT_THROW(static_cast<void>(ParseTime(text)), UsageError) << text;
    }
}

TEST(ProgramArguments, OutputsAreNamedByTheirKind) {
    EXPECT_FALSE(ParseOutput("none").IsWritten());
    EXPECT_EQ(ParseOutput("png:a:b").path, "a:b");
    EXPECT_EQ(ParseOutput("y4m:x").kind, Output::Kind::Y4m);
    EXPECT_TRUE(ParseOutput("md5:-").IsStandardOutput());
    EXPECT_FALSE(ParseOutput("md5:x").IsStandardOutput());
    for (const char* text : {"", "png", "png:", "PNG:x", "x"}) {
        EXPECT_THROW(static_cast<void>(ParseOutput(text)), UsageError) << text;
    }
}

TEST(ProgramText, MissingPicturesAreNamedInRanges) {
    EXPECT_EQ(FormatRanges({3}), "3");
    EXPECT_EQ(FormatRanges({3, 7, 8, 9, 12}), "3, 7-9, 12");
    EXPECT_EQ(FormatRanges({0, 2, 4, 6, 8, 10, 12, 14, 16, 17}), "0, 2, 4, 6, 8, 10, 12, 14 and 2 more");
}

TEST(ProgramText, TimesAreShownInMilliseconds) {
    EXPECT_EQ(FormatTime(TimePoint().FromNanoseconds(3'723'456'789'012)), "01:02:03.456");
    EXPECT_EQ(FormatRate(Ratio(30000, 1001)), "30000/1001 (29.97)");
    EXPECT_EQ(FormatRate(Ratio(25, 1)), "25");
    EXPECT_EQ(FormatCount(1, "tick"), "1 tick");
}

}  // namespace
}  // namespace Tavrin::Playout::Program
