#include "apps/playout/WindowLayout.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <vector>

#include "apps/playout/DrawPace.h"

namespace Tavrin::Playout::Program {
namespace {

using namespace std::chrono_literals;
using Time::TimePoint;

const TimePoint kEnd = TimePoint().FromSeconds(16);

TimePoint Seconds(std::int64_t seconds) {
    return TimePoint().FromSeconds(seconds);
}

TEST(WindowLayout, ShowsPicturesPixelByPixelWhereThereIsRoom) {
    const PixelSize size = WindowLayout::SizeFor({{160, 120}, {320, 100}, {16, 16}}, {1920, 1080});
    const WindowLayout layout(size, 3, kEnd);
    EXPECT_EQ(layout.PictureArea(0), (Rectangle{0, 0, 320, 120}));
    EXPECT_EQ(layout.Picture(1, {320, 120}), layout.PictureArea(1));
}

TEST(WindowLayout, IsNotLargerThanTheDisplay) {
    const PixelSize size = WindowLayout::SizeFor(std::vector<PixelSize>(16, {3840, 2160}), {1920, 1080});
    EXPECT_LE(size.width, 1920);
    EXPECT_LE(size.height, 1080);
    EXPECT_GT(size.height, 1000);
}

TEST(WindowLayout, LaysTheTracksInRows) {
    const WindowLayout layout({400, 300}, 3, kEnd);
    EXPECT_EQ(layout.PictureArea(0), (Rectangle{0, 0, 200, 132}));
    EXPECT_EQ(layout.PictureArea(1), (Rectangle{200, 0, 200, 132}));
    EXPECT_EQ(layout.PictureArea(2), (Rectangle{0, 150, 200, 132}));
}

TEST(WindowLayout, PutsATimelineUnderEachPicture) {
    const WindowLayout layout({400, 300}, 3, kEnd);
    EXPECT_EQ(layout.Timeline(0), (Rectangle{0, 134, 200, 16}));
    EXPECT_EQ(layout.Timeline(2), (Rectangle{0, 284, 200, 16}));
}

TEST(WindowLayout, KeepsAPicturesProportions) {
    const WindowLayout layout({400, 218}, 1, kEnd);
    EXPECT_EQ(layout.Picture(0, {100, 100}), (Rectangle{100, 0, 200, 200}));
    EXPECT_EQ(layout.Picture(0, {800, 200}), (Rectangle{0, 50, 400, 100}));
    EXPECT_EQ(layout.Picture(0, {}).width, 0);
}

TEST(WindowLayout, TimesLieAtColumnsFromTheOriginToTheEnd) {
    const WindowLayout layout({320, 300}, 4, kEnd);
    EXPECT_EQ(layout.ColumnOf(0, {}), 0);
    EXPECT_EQ(layout.ColumnOf(0, Seconds(8)), 80);
    EXPECT_EQ(layout.ColumnOf(1, Seconds(8)), 160 + 80);
    EXPECT_EQ(layout.ColumnOf(0, kEnd - TimePoint().FromNanoseconds(1)), 159);
    EXPECT_EQ(layout.ColumnOf(0, kEnd + Seconds(5)), 159);
    EXPECT_EQ(layout.ColumnOf(0, -Seconds(5)), 0);
}

TEST(WindowLayout, ColumnsLieAtTimes) {
    const WindowLayout layout({320, 300}, 4, kEnd);
    EXPECT_EQ(layout.TimeAt(0, 80), Seconds(8));
    EXPECT_EQ(layout.TimeAt(1, 160), TimePoint());
    EXPECT_EQ(layout.TimeAt(0, -20), TimePoint());
    EXPECT_EQ(layout.TimeAt(0, 5000), layout.TimeAt(0, 159));
    for (int column = 0; column < 160; ++column) {
        EXPECT_EQ(layout.ColumnOf(0, layout.TimeAt(0, column)), column);
    }
}

TEST(WindowLayout, FindsTheTimelineUnderAPoint) {
    const WindowLayout layout({400, 300}, 3, kEnd);
    EXPECT_EQ(layout.TimelineAt(10, 140), std::optional<std::size_t>(0));
    EXPECT_EQ(layout.TimelineAt(210, 149), std::optional<std::size_t>(1));
    EXPECT_EQ(layout.TimelineAt(10, 60), std::nullopt);
    EXPECT_EQ(layout.TimelineAt(210, 290), std::nullopt) << "there is no fourth track";
}

TEST(WindowLayout, OfAWindowWithoutRoomIsEmpty) {
    const WindowLayout layout({0, 0}, 4, kEnd);
    EXPECT_EQ(layout.Picture(3, {160, 120}).height, 0);
    EXPECT_EQ(layout.Timeline(0).width, 0);
    EXPECT_EQ(layout.ColumnOf(0, Seconds(1)), 0);
    EXPECT_EQ(layout.TimeAt(0, 3), TimePoint());
    EXPECT_EQ(layout.TimelineAt(0, 0), std::nullopt);
}

TEST(TimelineGrip, DragsWhatItTookHoldOfUntilItLetsGo) {
    const WindowLayout layout({320, 300}, 1, kEnd);
    TimelineGrip grip;
    EXPECT_EQ(grip.Down(layout, 160, 295), PlayCommand(DragTo{Seconds(8)}));
    EXPECT_EQ(grip.Move(layout, 240), PlayCommand(DragTo{Seconds(12)}));
    EXPECT_EQ(grip.Up(), PlayCommand(Release{}));
    EXPECT_EQ(grip.Move(layout, 100), std::nullopt);
    EXPECT_EQ(grip.Up(), std::nullopt);
}

TEST(TimelineGrip, TakesHoldOfNothingOutsideOfATimeline) {
    const WindowLayout layout({320, 300}, 1, kEnd);
    TimelineGrip grip;
    EXPECT_EQ(grip.Down(layout, 160, 100), std::nullopt);
    EXPECT_EQ(grip.Move(layout, 160), std::nullopt);
    EXPECT_EQ(grip.Up(), std::nullopt);
}

constexpr DrawPace::Clock::time_point kStart{};

TEST(DrawPace, WithoutAnIntervalWhatIsDrawnQuicklyIsDrawnAtEveryTick) {
    DrawPace pace(0ms);
    EXPECT_TRUE(pace.IsDue(kStart));
    pace.Drew(kStart, kStart + 30ms);
    EXPECT_TRUE(pace.IsDue(kStart + 40ms));
}

TEST(DrawPace, WhatIsSlowToDrawTakesNoMoreThanThreeQuartersOfTheTime) {
    DrawPace pace(0ms);
    pace.Drew(kStart, kStart + 60ms);
    EXPECT_FALSE(pace.IsDue(kStart + 79ms));
    EXPECT_TRUE(pace.IsDue(kStart + 80ms));
}

TEST(DrawPace, DrawsNoMoreOftenThanItsInterval) {
    DrawPace pace(40ms);
    pace.Drew(kStart, kStart + 1ms);
    EXPECT_FALSE(pace.IsDue(kStart + 39ms));
    EXPECT_TRUE(pace.IsDue(kStart + 40ms));
}

}  // namespace
}  // namespace Tavrin::Playout::Program
