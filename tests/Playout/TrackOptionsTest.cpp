#include "apps/playout/TrackOptions.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Playout/Support/Clips.h"
#include "apps/playout/Arguments.h"

namespace Tavrin::Playout::Program {
namespace {

using Time::TimePoint;

std::vector<std::shared_ptr<const RecordingIndex>> Three() {
    static const auto index = RecordingIndex::Build(Support::Clips::Short());
    return {index, index, index};
}

/// What the refusal says.
std::string Refusal(const std::function<void(TrackOptions&)>& ask) {
    TrackOptions options;
    try {
        ask(options);
        const auto tracks = options.Apply(Three());
    } catch (const UsageError& error) {
        return error.what();
    }
    return "not refused";
}

TEST(TrackOptions, WithoutAnyAllFilesBeginTogetherAndAreRequired) {
    const auto tracks = TrackOptions().Apply(Three());
    ASSERT_EQ(tracks.size(), 3U);
    for (const SessionTrack& track : tracks) {
        EXPECT_EQ(track.offset, TimePoint());
        EXPECT_EQ(track.rule, ReadinessRule::Required());
        EXPECT_EQ(track.weight, 1U);
        EXPECT_EQ(DescribeSettings(track), "");
    }
}

TEST(TrackOptions, EachGoesToTheTrackThatItNames) {
    TrackOptions options;
    options.AddOffset("1=1:02.5");
    options.AddOffset("2=-0.04");
    options.AddWait("0=optional");
    options.AddWait("1=required");
    options.AddWait("2=250");
    options.AddWeight("2=3");
    const auto tracks = options.Apply(Three());
    EXPECT_EQ(tracks[1].offset, TimePoint().FromMilliseconds(62'500));
    EXPECT_EQ(tracks[2].offset, TimePoint().FromMilliseconds(-40));
    EXPECT_EQ(tracks[0].rule, ReadinessRule::Optional());
    EXPECT_EQ(tracks[1].rule, ReadinessRule::Required());
    EXPECT_EQ(tracks[2].rule, ReadinessRule::HoldUpTo(TimePoint().FromMilliseconds(250)));
    EXPECT_EQ(tracks[2].weight, 3U);
    EXPECT_EQ(DescribeSettings(tracks[2]), "begins at -00:00:00.040, waited for up to 250 ms, weight 3");
}

TEST(TrackOptions, WhatCannotBeMeantIsRefusedWithTheValueAndTheRule) {
    for (const std::string text : {"", "1", "=1", "a=1", "-1=1", "1.5=1"}) {
        EXPECT_EQ(Refusal([&](TrackOptions& options) { options.AddOffset(text); }),
                  "'" + text + "' is not of the form TRACK=TIME, such as 1=2.5: tracks are numbered from 0");
    }
    EXPECT_EQ(Refusal([](TrackOptions& options) { options.AddWait("0=soon"); }),
              "'soon' is none of required, optional and a number of milliseconds from 1 to 86400000");
    EXPECT_EQ(Refusal([](TrackOptions& options) { options.AddWeight("0=0"); }),
              "'0' is no weight: it must be a whole number from 1 to 1000");
    EXPECT_EQ(Refusal([](TrackOptions& options) { options.AddOffset("3=1"); }),
              "--offset 3=1: there is no track 3: 3 files numbered from 0");
    EXPECT_EQ(Refusal([](TrackOptions& options) {
                  options.AddWait("1=20");
                  options.AddWait("1=optional");
              }),
              "--wait 1=optional: track 1 was given one before");
}

}  // namespace
}  // namespace Tavrin::Playout::Program
