// The window of `play` as people use it: keys are pressed and the mouse moved on a display in memory, and the
// pixels are looked at.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Playout/Support/Clips.h"
#include "Playout/Support/ProgramRun.h"
#include "Playout/Support/VirtualDisplay.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Support::Colour;
using Support::ProgramResult;
using Support::ProgramRun;
using Support::Screenshot;
using Support::VirtualDisplay;
using Support::WindowPlace;

/// Only there to turn a hang into a failure.
constexpr std::chrono::seconds kDeadline{60};

constexpr int kClipWidth = 160;
constexpr int kClipHeight = 120;

/// Above the lower edge of a timeline.
constexpr int kInTimeline = 6;

constexpr Colour kBlack{0, 0, 0};
constexpr Colour kAbsent{64, 64, 64};
constexpr Colour kAskedFor{200, 160, 40};
constexpr Colour kReady{60, 160, 75};
constexpr Colour kMissing{210, 60, 50};
constexpr Colour kHead{255, 255, 255};

/// The number of the picture of Clips::Shades that has this colour; -1 when none has.
int ShadeNumber(const Colour& colour) {
    if (colour.red != colour.green || colour.green != colour.blue) {
        return -1;
    }
    const double luma = 16.0 + colour.red * 219.0 / 255.0;
    const double number = (luma - Clips::kFirstShade) / Clips::kShadeStep;
    return std::abs(number - std::round(number)) < 0.45 ? static_cast<int>(std::round(number)) : -1;
}

class Window : public testing::Test {
protected:
    void SetUp() override {
        if (!VirtualDisplay::IsAvailable()) {
            GTEST_SKIP() << "Xvfb, xdotool or import is not installed";
        }
        display_ = std::make_unique<VirtualDisplay>();
    }

    /// Starts the program and waits for its window.
    void Play(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {PLAYOUT_PROGRAM, "play"});
        ProgramRun::Options options;
        // Drawn by SDL itself: the thread sanitizer cannot see what the threads of a graphics driver do.
        options.environment = {display_->Variable(), "SDL_RENDER_DRIVER=software",
                               "SDL_FRAMEBUFFER_ACCELERATION=0"};
        run_ = std::make_unique<ProgramRun>(arguments, options);
        ASSERT_TRUE(Await([this] {
            const auto windows = display_->Windows("playout");
            place_ = windows.empty() ? WindowPlace() : windows.front();
            return !windows.empty();
        })) << "there is no window; the program says:\n"
            << EndedByForce();
    }

    /// What the program says when it is told to end.
    [[nodiscard]] std::string EndedByForce() {
        run_->Signal(SIGINT);
        const ProgramResult result = run_->Finish();
        return result.output + result.errors;
    }

    [[nodiscard]] static bool Await(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (std::chrono::steady_clock::now() < end) {
            if (condition()) {
                return true;
            }
        }
        return false;
    }

    void Press(const std::string& key) { display_->Input("key " + key); }

    /// A pixel of the window.
    [[nodiscard]] Colour PixelAt(int x, int y) const {
        return display_->Shoot().At(place_.x + x, place_.y + y);
    }

    /// The number of the picture of Clips::Shades that the first track shows.
    [[nodiscard]] int Shown() const { return ShadeNumber(PixelAt(kClipWidth / 2, kClipHeight / 2)); }

    [[nodiscard]] bool AwaitPicture(int number) {
        const bool isThere = Await([&] { return Shown() == number; });
        EXPECT_TRUE(isThere) << "picture " << Shown() << " instead of " << number;
        return isThere;
    }

    /// The column in the middle of a picture on the first track's timeline.
    [[nodiscard]] static int ColumnOf(int picture, int nbPictures) {
        return (2 * picture + 1) * kClipWidth / (2 * nbPictures);
    }

    [[nodiscard]] bool AwaitOnTimeline(int column, const Colour& colour) {
        return Await([&] { return PixelAt(column, place_.height - kInTimeline) == colour; });
    }

    /// Puts the mouse on the timeline.
    void MoveTo(int column) {
        display_->Input("mousemove " + std::to_string(place_.x + column) + " " +
                        std::to_string(place_.y + place_.height - kInTimeline));
    }

    void ExpectQuit() {
        const ProgramResult result = run_->Finish();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_NE(result.output.find(", then quit"), std::string::npos) << result.output;
    }

    std::unique_ptr<VirtualDisplay> display_;
    std::unique_ptr<ProgramRun> run_;
    WindowPlace place_;
};

TEST_F(Window, ArrowsHomeAndEndGoToTheirPictures) {
    Play({Clips::Shades(), "--speed", "0"});
    ASSERT_TRUE(AwaitPicture(0));
    Press("Right");
    ASSERT_TRUE(AwaitPicture(1));
    Press("Right Right");
    ASSERT_TRUE(AwaitPicture(3));
    Press("Left");
    ASSERT_TRUE(AwaitPicture(2));
    Press("End");
    ASSERT_TRUE(AwaitPicture(59));
    Press("Left");
    ASSERT_TRUE(AwaitPicture(58));
    Press("Home");
    ASSERT_TRUE(AwaitPicture(0));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, PlaysToTheEndAndStaysOpenThere) {
    Play({Clips::Shades()});
    ASSERT_TRUE(AwaitPicture(59));
    Press("Left");
    ASSERT_TRUE(AwaitPicture(58));
    Press("Escape");
    ExpectQuit();
}

TEST_F(Window, JPlaysBackwardKStopsAndLPlaysForward) {
    Play({Clips::Shades(), "--speed", "0"});
    ASSERT_TRUE(AwaitPicture(0));
    Press("l");
    ASSERT_TRUE(Await([this] { return Shown() >= 5; }));
    Press("k");
    // Stopped: a step leads to the picture beside the one that is on show from then on.
    Press("Left");
    int stopped = -1;
    ASSERT_TRUE(Await([&] {
        const int before = stopped;
        stopped = Shown();
        return stopped >= 0 && stopped == before;
    }));
    Press("Left");
    ASSERT_TRUE(AwaitPicture(stopped - 1));
    Press("j");
    ASSERT_TRUE(AwaitPicture(0)) << "it stops at the beginning";
    Press("q");
    ExpectQuit();
}

TEST_F(Window, EachFurtherPressOfLAndJDoublesTheSpeedUpToSixteen) {
    const std::string file = Clips::Scratch("multiples.txt");
    Play({Clips::Shades(), "--speed", "0", "--record", file});
    ASSERT_TRUE(AwaitPicture(0));
    Press("l l l l l l");
    ASSERT_TRUE(Await([this] { return Shown() > 0; }));
    Press("j j j j j j");
    ASSERT_TRUE(AwaitPicture(0));
    Press("q");
    ExpectQuit();
    std::size_t at = 0;
    const std::string record = Clips::ReadFile(file);
    for (const char* speed : {"1/1", "2/1", "4/1", "8/1", "16/1", "-1/1", "-2/1", "-4/1", "-8/1", "-16/1"}) {
        at = record.find(std::string(" speed ") + speed + "\n", at);
        ASSERT_NE(at, std::string::npos) << speed << " is missing:\n" << record;
    }
    EXPECT_EQ(record.find("32/1"), std::string::npos) << record;
}

TEST_F(Window, SpacePlaysWhatStandsAndStopsWhatPlays) {
    const std::string file = Clips::Scratch("space.txt");
    Play({Clips::Shades(), "--speed", "0", "--record", file});
    ASSERT_TRUE(AwaitPicture(0));
    Press("space");
    ASSERT_TRUE(Await([this] { return Shown() >= 3; }));
    Press("space");
    // It stands: two looks, long enough apart for a picture to pass, show the same one.
    int before = -1;
    ASSERT_TRUE(Await([&] {
        const int now = Shown();
        return std::exchange(before, now) == now && now >= 3 && now < 59;
    }));
    Press("q");
    ExpectQuit();
    const std::string record = Clips::ReadFile(file);
    const auto plays = record.find(" speed 1/1\n");
    ASSERT_NE(plays, std::string::npos) << record;
    EXPECT_NE(record.find(" speed 0/1\n", plays), std::string::npos) << record;
}

TEST_F(Window, KHeldWithLPlaysSlowlyUntilItIsLetGo) {
    Play({Clips::Shades(), "--speed", "0", "--record", Clips::Scratch("keys.txt")});
    ASSERT_TRUE(AwaitPicture(0));
    display_->Input("keydown k keydown l");
    ASSERT_TRUE(Await([this] { return Shown() >= 2; }));
    display_->Input("keyup l keyup k");
    Press("q");
    ExpectQuit();
    const std::string record = Clips::ReadFile(Clips::Scratch("keys.txt"));
    const auto slow = record.find(" speed 1/4\n");
    ASSERT_NE(slow, std::string::npos) << record;
    EXPECT_NE(record.find(" speed 0/1\n", slow), std::string::npos) << record;
}

TEST_F(Window, TheMouseDragsTheTimeline) {
    Play({Clips::Shades(), "--speed", "0"});
    ASSERT_TRUE(AwaitPicture(0));
    MoveTo(ColumnOf(30, 60));
    display_->Input("mousedown 1");
    ASSERT_TRUE(AwaitPicture(30));
    MoveTo(ColumnOf(50, 60));
    ASSERT_TRUE(AwaitPicture(50));
    display_->Input("mouseup 1");
    MoveTo(ColumnOf(10, 60));
    Press("Right");
    ASSERT_TRUE(AwaitPicture(51)) << "what was let go stays where it is";
    Press("q");
    ExpectQuit();
}

TEST_F(Window, TheTimelineShowsThePlayHeadAndWhatIsReady) {
    // Memory for few pictures, so that the end of the recording is far beyond what is fetched.
    Play({Clips::LongGroups(), "--speed", "0", "--memory", "3"});
    EXPECT_TRUE(AwaitOnTimeline(0, kHead));
    EXPECT_TRUE(AwaitOnTimeline(ColumnOf(2, 100), kReady));
    EXPECT_TRUE(AwaitOnTimeline(ColumnOf(95, 100), kAbsent));
    Press("End");
    EXPECT_TRUE(AwaitOnTimeline(ColumnOf(99, 100), kHead));
    EXPECT_TRUE(AwaitOnTimeline(ColumnOf(97, 100), kReady));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, TheTimelineShowsWhatIsAskedFor) {
    // What is read ahead waits for its decode: at rest few pictures are decoded.
    Play({Clips::LongGroups(), "--speed", "0"});
    EXPECT_TRUE(Await([this] {
        const Screenshot shot = display_->Shoot();
        for (int column = 0; column < kClipWidth; ++column) {
            if (shot.At(place_.x + column, place_.y + place_.height - kInTimeline) == kAskedFor) {
                return true;
            }
        }
        return false;
    }));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, AFieldIsShownAloneAndStepsMoveByFields) {
    Play({Clips::NumberedFields(), "--fields", "--speed", "0"});
    // The first cell of the numbers' last bit is white for odd ones: fields of a whole picture would differ in it.
    const auto lastBit = [this] { return PixelAt(15 * 12 + 3, 2).red > 128 ? 1 : 0; };
    ASSERT_TRUE(Await([&] { return PixelAt(3, 2) != kBlack || PixelAt(9, 2) != kBlack; }));
    EXPECT_EQ(lastBit(), 0);
    Press("Right");
    EXPECT_TRUE(Await([&] { return lastBit() == 1; }));
    EXPECT_TRUE(Await([&] { return PixelAt(15 * 12 + 3, 5).red > 128; })) << "in all lines";
    Press("Right");
    EXPECT_TRUE(Await([&] { return lastBit() == 0; }));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, TheTimelineShowsWhatIsMissing) {
    Play({Clips::Truncated(), "--speed", "0"});
    Press("End");
    // Beside the play head, which covers most of the last picture.
    EXPECT_TRUE(AwaitOnTimeline(kClipWidth - 1, kMissing));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, SeveralTracksStandSideBySideAboveTheirTimelines) {
    Play({Clips::Shades(), Clips::Short(), "--speed", "0"});
    ASSERT_TRUE(AwaitPicture(0));
    Press("End");
    ASSERT_TRUE(AwaitPicture(59));
    // The second recording is over: nothing is on show, and its timeline ends after a fifth.
    const int middle = kClipWidth + kClipWidth / 2;
    EXPECT_TRUE(Await([&] { return PixelAt(middle, kClipHeight / 2) == kBlack; }));
    EXPECT_TRUE(AwaitOnTimeline(middle, kBlack));
    EXPECT_TRUE(AwaitOnTimeline(ColumnOf(59, 60), kHead));
    EXPECT_TRUE(AwaitOnTimeline(kClipWidth + ColumnOf(59, 60), kHead));
    Press("Home");
    EXPECT_TRUE(Await([&] { return PixelAt(middle, kClipHeight / 2) != kBlack; }));
    EXPECT_TRUE(AwaitOnTimeline(kClipWidth + ColumnOf(2, 60), kReady));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, PicturesThatMustBeConvertedAreShownToo) {
    Play({Clips::ProRes(), "--speed", "0"});
    EXPECT_TRUE(Await([this] { return PixelAt(kClipWidth / 2, kClipHeight / 2) != kBlack; }));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, AsFastAsPossibleItStaysOpenAtTheEndToo) {
    Play({Clips::Shades(), "--fast", "--window"});
    ASSERT_TRUE(AwaitPicture(59));
    Press("Home");
    Press("k");
    ASSERT_TRUE(Await([this] { return Shown() >= 0; }));
    Press("q");
    ExpectQuit();
}

TEST_F(Window, WhatWasDoneByHandCanBeRepeatedWithoutAWindow) {
    const std::string record = Clips::Scratch("record.txt");
    Play({Clips::Shades(), "--speed", "0", "--record", record});
    ASSERT_TRUE(AwaitPicture(0));
    Press("End");
    ASSERT_TRUE(AwaitPicture(59));
    Press("Left");
    ASSERT_TRUE(AwaitPicture(58));
    Press("q");
    ExpectQuit();
    const std::string md5 = Clips::Scratch("pictures.md5");
    const ProgramResult result =
        ProgramRun({PLAYOUT_PROGRAM, "play", Clips::Shades(), "--script", record, "--output", "md5:" + md5})
            .Finish();
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::string lines = Clips::ReadFile(md5);
    const auto first = lines.find(" 59 ");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(lines.find(" 58 ", first), std::string::npos);
}

TEST_F(Window, AnInterruptEndsItInOrder) {
    Play({Clips::Shades(), "--speed", "0"});
    ASSERT_TRUE(AwaitPicture(0));
    run_->Signal(SIGINT);
    const ProgramResult result = run_->Finish();
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_NE(result.output.find(", then interrupted"), std::string::npos) << result.output;
}

}  // namespace
}  // namespace Tavrin::Playout
