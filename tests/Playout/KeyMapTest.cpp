#include "apps/playout/KeyMap.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace Tavrin::Playout::Program {
namespace {

using Time::Ratio;
using Time::TimePoint;

const TimePoint kEnd = TimePoint().FromSeconds(10);

KeyMap Keys(const Ratio& speed) {
    KeyMap keys(kEnd);
    keys.Follow(speed);
    return keys;
}

/// What a key does at a speed.
std::optional<PlayCommand> At(const Ratio& speed, Key key) {
    return Keys(speed).Press(key);
}

/// The speeds that a key asks for, pressed so often.
std::vector<Ratio> Presses(KeyMap keys, Key key, int nb) {
    std::vector<Ratio> speeds;
    for (int i = 0; i < nb; ++i) {
        speeds.push_back(std::get<SetSpeed>(keys.Press(key).value()).speed);
    }
    return speeds;
}

PlayCommand Speed(std::int64_t numerator, std::int64_t denominator = 1) {
    return SetSpeed{Ratio(numerator, denominator)};
}

TEST(KeyMap, LPlaysForwardAndFasterEachTimeUpToSixteen) {
    EXPECT_EQ(
        Presses(Keys(Ratio()), Key::L, 6),
        (std::vector<Ratio>{Ratio(1, 1), Ratio(2, 1), Ratio(4, 1), Ratio(8, 1), Ratio(16, 1), Ratio(16, 1)}));
}

TEST(KeyMap, JPlaysBackwardAndFasterEachTimeUpToSixteen) {
    EXPECT_EQ(Presses(Keys(Ratio()), Key::J, 6),
              (std::vector<Ratio>{Ratio(-1, 1), Ratio(-2, 1), Ratio(-4, 1), Ratio(-8, 1), Ratio(-16, 1),
                                  Ratio(-16, 1)}));
}

TEST(KeyMap, TheOtherDirectionBeginsAtOne) {
    EXPECT_EQ(At(Ratio(8, 1), Key::J), Speed(-1));
    EXPECT_EQ(At(Ratio(-8, 1), Key::L), Speed(1));
}

TEST(KeyMap, FromASlowSpeedJAndLBeginAtOne) {
    EXPECT_EQ(At(Ratio(1, 2), Key::L), Speed(1));
    EXPECT_EQ(At(Ratio(-1, 2), Key::J), Speed(-1));
}

TEST(KeyMap, ItBuildsOnTheSpeedThatIsReallyPlayedAt) {
    KeyMap keys = Keys(Ratio(4, 1));
    keys.Follow(Ratio());
    EXPECT_EQ(keys.Press(Key::L), Speed(1)) << "playing has come to its end meanwhile";
}

TEST(KeyMap, KStops) {
    EXPECT_EQ(At(Ratio(4, 1), Key::K), Speed(0));
}

TEST(KeyMap, KHeldWithJOrLPlaysSlowlyUntilEitherIsLetGo) {
    for (const Key letGo : {Key::K, Key::L}) {
        KeyMap keys = Keys(Ratio(1, 1));
        EXPECT_EQ(keys.Press(Key::K), Speed(0));
        EXPECT_EQ(keys.Press(Key::L), Speed(1, 4));
        EXPECT_EQ(keys.Release(letGo), Speed(0));
    }
    KeyMap keys = Keys(Ratio());
    EXPECT_EQ(keys.Press(Key::K), Speed(0));
    EXPECT_EQ(keys.Press(Key::J), Speed(-1, 4));
    EXPECT_EQ(keys.Release(Key::J), Speed(0));
    EXPECT_EQ(keys.Press(Key::J), Speed(-1, 4)) << "K is still held";
}

TEST(KeyMap, OnceKIsLetGoJAndLPlayAtFullSpeed) {
    KeyMap keys = Keys(Ratio());
    EXPECT_EQ(keys.Press(Key::K), Speed(0));
    EXPECT_EQ(keys.Release(Key::K), std::nullopt);
    EXPECT_EQ(keys.Press(Key::L), Speed(1));
    EXPECT_EQ(keys.Release(Key::L), std::nullopt) << "it plays on";
}

TEST(KeyMap, SpaceStopsWhatPlaysAndPlaysWhatStands) {
    EXPECT_EQ(At(Ratio(-4, 1), Key::Space), Speed(0));
    EXPECT_EQ(At(Ratio(), Key::Space), Speed(1));
}

TEST(KeyMap, ArrowsStepByOnePicture) {
    EXPECT_EQ(At(Ratio(1, 1), Key::Left), PlayCommand(StepBy{-1}));
    EXPECT_EQ(At(Ratio(1, 1), Key::Right), PlayCommand(StepBy{1}));
}

TEST(KeyMap, AfterAStepItPlaysFromTheBeginningOfTheScale) {
    KeyMap keys = Keys(Ratio(8, 1));
    EXPECT_EQ(keys.Press(Key::Right), PlayCommand(StepBy{1}));
    EXPECT_EQ(keys.Press(Key::L), Speed(1));
}

TEST(KeyMap, HomeAndEndJumpToTheFirstAndTheLastMoment) {
    EXPECT_EQ(At(Ratio(), Key::Home), PlayCommand(JumpTo{TimePoint()}));
    EXPECT_EQ(At(Ratio(), Key::End), PlayCommand(JumpTo{kEnd - TimePoint().FromNanoseconds(1)}));
}

TEST(KeyMap, EscapeAndQQuit) {
    EXPECT_EQ(At(Ratio(1, 1), Key::Escape), PlayCommand(Quit{}));
    EXPECT_EQ(At(Ratio(1, 1), Key::Q), PlayCommand(Quit{}));
}

TEST(KeyMap, OfKeysThatAreHeldOnlyTheArrowsRepeat) {
    for (const Key key : {Key::J, Key::K, Key::L, Key::Space, Key::Home, Key::End, Key::Q, Key::Escape}) {
        EXPECT_EQ(Keys(Ratio(1, 1)).Press(key, true), std::nullopt);
    }
    EXPECT_EQ(Keys(Ratio()).Press(Key::Left, true), PlayCommand(StepBy{-1}));
}

}  // namespace
}  // namespace Tavrin::Playout::Program
