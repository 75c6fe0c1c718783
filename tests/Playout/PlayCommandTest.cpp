// Playing under commands: which picture is on show at which tick.

#include "Playout/PlayCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using Time::Ratio;
using Time::TimePoint;

namespace Clips = Support::Clips;

/// Only there to turn a hang into a failure.
constexpr std::chrono::seconds kDeadline{60};

constexpr std::int64_t kMsPerTick = 40;  // All clips but one are shown at 25 per second.

/// Commands at the ticks that they are meant for, counted in calls: in real time too.
class TickScript final : public ICommandSource {
public:
    explicit TickScript(std::vector<std::pair<int, PlayCommand>> commands) : commands_(std::move(commands)) {}

    std::vector<PlayCommand> Take(const TimePoint& at) override {
        times.push_back(at);
        if (onTake) {
            onTake(tick_);
        }
        std::vector<PlayCommand> due;
        for (; IsOpen() && commands_[next_].first <= tick_; ++next_) {
            due.push_back(commands_[next_].second);
        }
        ++tick_;
        return due;
    }
    bool IsOpen() const override { return next_ < commands_.size(); }

    std::vector<TimePoint> times;
    std::function<void(int tick)> onTake;

private:
    std::vector<std::pair<int, PlayCommand>> commands_;
    std::size_t next_ = 0;
    int tick_ = 0;
};

std::unique_ptr<Session> Open(const std::vector<std::string>& files) {
    std::vector<std::shared_ptr<const RecordingIndex>> recordings;
    for (const std::string& file : files) {
        recordings.push_back(RecordingIndex::Build(file));
    }
    return std::make_unique<Session>(recordings);
}

PlaybackOptions AtSpeed(const Ratio& speed) {
    PlaybackOptions options;
    options.speed = speed;
    options.stallTimeout = kDeadline;
    return options;
}

TimePoint Ms(std::int64_t ms) {
    return TimePoint().FromMilliseconds(ms);
}

/// The middle of a picture of a clip at 25 per second.
TimePoint PictureTime(std::int64_t picture) {
    return Ms(picture * kMsPerTick + kMsPerTick / 2);
}

struct Played {
    std::vector<int> pictures;  ///< Of the first track; -1 where nothing is on show.
    PlayReport report;
};

Played Play(const std::string& file, const PlaybackOptions& options, ICommandSource& commands) {
    const auto session = Open({file});
    Played played;
    played.report =
        Playback(*session, options)
            .Run(
                [&](const ShownTick& shown, const TickReport&) {
                    const auto& picture = shown.pictures.front();
                    played.pictures.push_back(picture == nullptr ? -1 : static_cast<int>(picture->Number()));
                    return true;
                },
                nullptr, &commands);
    return played;
}

/// As fast as possible, from the beginning at speed 1.
std::vector<int> PicturesUnder(const std::vector<std::pair<int, PlayCommand>>& commands,
                               const std::string& file = Clips::ClosedGroups(),
                               const Ratio& speed = Ratio(1, 1)) {
    TickScript script(commands);
    return Play(file, AtSpeed(speed), script).pictures;
}

using Numbers = std::vector<int>;

TEST(PlayCommand, ASpeedHoldsFromItsTickOn) {
    const Numbers pictures = PicturesUnder({{3, SetSpeed{Ratio(2, 1)}}, {6, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 2, 4, 6, 8}));
}

TEST(PlayCommand, AReversalLeadsToThePictureBefore) {
    const Numbers pictures = PicturesUnder({{4, SetSpeed{Ratio(-1, 1)}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 2, 3, 2, 1, 0}));
}

TEST(PlayCommand, FastSpeedsGoOnWithoutShowingWhatWasLeftBehind) {
    EXPECT_EQ(PicturesUnder({{8, SetSpeed{Ratio(4, 1)}}, {10, Quit{}}}),
              (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 12}));
    EXPECT_EQ(PicturesUnder({{8, SetSpeed{Ratio(-4, 1)}}}), (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 4, 0}));
}

TEST(PlayCommand, ThePictureStandsAtSpeedZeroAndPlayingGoesOnFromIt) {
    const Numbers pictures = PicturesUnder({{3, SetSpeed{Ratio()}}, {6, SetSpeed{Ratio(1, 1)}}, {8, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 2, 2, 2, 2, 3, 4}));
}

TEST(PlayCommand, AJumpShowsItsPictureAtItsTick) {
    EXPECT_EQ(PicturesUnder({{2, JumpTo{PictureTime(40)}}, {5, Quit{}}}), (Numbers{0, 1, 40, 41, 42}));
}

TEST(PlayCommand, AJumpBeyondAnEndShowsThePictureAtThatEnd) {
    EXPECT_EQ(PicturesUnder({{2, JumpTo{Ms(99'000)}}}), (Numbers{0, 1, 59}));
    EXPECT_EQ(PicturesUnder({{2, JumpTo{Ms(-5)}}, {4, Quit{}}}), (Numbers{0, 1, 0, 1}));
}

TEST(PlayCommand, AStepStopsOnThePictureBeside) {
    const Numbers pictures = PicturesUnder({{3, StepBy{1}}, {5, StepBy{-1}}, {6, StepBy{-1}}, {8, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 2, 3, 3, 2, 1, 1}));
}

TEST(PlayCommand, StepsBetweenTwoTicksAddUp) {
    EXPECT_EQ(PicturesUnder({{2, StepBy{1}}, {2, StepBy{1}}, {2, StepBy{3}}}), (Numbers{0, 1, 6}));
}

TEST(PlayCommand, AStepLeadsToTheNextPictureHoweverLongOneStays) {
    const auto index = RecordingIndex::Build(Clips::VariableRate());
    const auto nbPictures = static_cast<int>(index->NbPictures());
    std::vector<std::pair<int, PlayCommand>> steps;
    Numbers expected{0};
    for (int picture = 1; picture < nbPictures; ++picture) {
        steps.emplace_back(picture, StepBy{1});
        expected.push_back(picture);
    }
    EXPECT_EQ(PicturesUnder(steps, Clips::VariableRate()), expected);
}

TEST(PlayCommand, AStepBeyondAnEndStaysAtThatEnd) {
    EXPECT_EQ(PicturesUnder({{1, StepBy{-5}}, {2, StepBy{100}}}), (Numbers{0, 0, 59}));
}

TEST(PlayCommand, WhatIsDraggedStandsUntilItIsReleased) {
    const Numbers pictures = PicturesUnder(
        {{2, DragTo{PictureTime(20)}}, {4, DragTo{PictureTime(40)}}, {6, Release{}}, {8, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 20, 20, 40, 40, 41, 42}));
}

TEST(PlayCommand, ASpeedGivenWhileDraggingHoldsAfterwards) {
    const Numbers pictures = PicturesUnder(
        {{2, DragTo{PictureTime(20)}}, {3, SetSpeed{Ratio(-1, 1)}}, {4, Release{}}, {6, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 20, 20, 19, 18}));
}

TEST(PlayCommand, AReleaseWithoutADragChangesNothing) {
    EXPECT_EQ(PicturesUnder({{2, Release{}}, {4, Quit{}}}), (Numbers{0, 1, 2, 3}));
}

TEST(PlayCommand, CommandsForTheFirstTickSayWhereToStart) {
    EXPECT_EQ(PicturesUnder({{0, JumpTo{PictureTime(30)}}, {0, SetSpeed{Ratio(-1, 1)}}, {3, Quit{}}}),
              (Numbers{30, 29, 28}));
    EXPECT_EQ(PicturesUnder({{0, SetSpeed{Ratio(-1, 1)}}, {2, Quit{}}}), (Numbers{59, 58}))
        << "backward begins with the last picture";
}

TEST(PlayCommand, QuitBeforeTheFirstTickShowsNothing) {
    TickScript script({{0, Quit{}}});
    const Played played = Play(Clips::Short(), AtSpeed(Ratio(1, 1)), script);
    EXPECT_TRUE(played.pictures.empty());
    EXPECT_EQ(played.report.end, PlayEnd::Quit);
}

TEST(PlayCommand, WhileACommandMayComeThePlayHeadStandsAtTheEnd) {
    const Numbers pictures = PicturesUnder({{14, SetSpeed{Ratio(-1, 1)}}, {16, Quit{}}}, Clips::Short());
    EXPECT_EQ(pictures, (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 11, 11, 10, 9}));
}

TEST(PlayCommand, WhileACommandMayComeThePlayHeadStandsAtTheOrigin) {
    const Numbers pictures =
        PicturesUnder({{2, SetSpeed{Ratio(-1, 1)}}, {5, SetSpeed{Ratio(1, 1)}}, {7, Quit{}}});
    EXPECT_EQ(pictures, (Numbers{0, 1, 0, 0, 0, 1, 2}));
}

TEST(PlayCommand, AfterTheLastCommandPlayingEndsAtTheEnd) {
    TickScript script({{2, JumpTo{PictureTime(57)}}});
    const Played played = Play(Clips::ClosedGroups(), AtSpeed(Ratio(1, 1)), script);
    EXPECT_EQ(played.pictures, (Numbers{0, 1, 57, 58, 59}));
    EXPECT_EQ(played.report.end, PlayEnd::Reached);
}

TEST(PlayCommand, TheFirstCommandLiftsTheTimeToPlayTo) {
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.to = Ms(200);
    TickScript script({{2, JumpTo{PictureTime(20)}}, {4, Quit{}}});
    EXPECT_EQ(Play(Clips::ClosedGroups(), options, script).pictures, (Numbers{0, 1, 20, 21}));
}

TEST(PlayCommand, AsManyTicksAsAskedForEndPlayingWhateverMayCome) {
    PlaybackOptions options = AtSpeed(Ratio());
    options.nbTicks = 3;
    TickScript script({{1000, Quit{}}});
    const Played played = Play(Clips::ClosedGroups(), options, script);
    EXPECT_EQ(played.pictures, (Numbers{0, 0, 0}));
    EXPECT_EQ(played.report.end, PlayEnd::Counted);
}

TEST(PlayCommand, TimesOfCommandsAreThoseOfTheTicks) {
    TickScript script({{5, Quit{}}});
    Play(Clips::Ntsc(), AtSpeed(Ratio(1, 1)), script);
    ASSERT_EQ(script.times.size(), 6U);
    for (std::size_t tick = 0; tick < script.times.size(); ++tick) {
        EXPECT_EQ(script.times[tick],
                  TimePoint::StartOfSample(static_cast<std::int64_t>(tick), Ratio(30000, 1001)));
    }
}

TEST(PlayCommand, WhateverIsCommandedThePictureIsTheOneAtThePlayHead) {
    constexpr std::uint32_t kSeed = 20260101;
    std::mt19937 random(kSeed);
    const std::vector<PlayCommand> choices{SetSpeed{Ratio(1, 1)},
                                           SetSpeed{Ratio(-1, 1)},
                                           SetSpeed{Ratio()},
                                           SetSpeed{Ratio(1, 2)},
                                           SetSpeed{Ratio(-1, 4)},
                                           StepBy{1},
                                           StepBy{-1},
                                           JumpTo{Ms(700)},
                                           DragTo{Ms(1'500)},
                                           Release{}};
    std::vector<std::pair<int, PlayCommand>> commands;
    for (int tick = 0; tick < 400; ++tick) {
        if (random() % 3 == 0) {
            commands.emplace_back(tick, choices[random() % choices.size()]);
        }
    }
    TickScript script(commands);
    const auto session = Open({Clips::Ntsc()});
    Playback(*session, AtSpeed(Ratio(1, 1)))
        .Run(
            [&](const ShownTick& shown, const TickReport&) {
                EXPECT_EQ(shown.pictures.at(0)->Number(), *session->Recording(0).PictureAtTime(shown.time))
                    << "tick " << shown.tick << ", seed " << kSeed;
                return true;
            },
            nullptr, &script);
}

TEST(PlayCommand, InRealTimeCommandsComeAtTheirTicksToo) {
    TickScript script({{4, JumpTo{PictureTime(40)}}, {8, StepBy{-1}}, {200, Quit{}}});
    const auto session = Open({Clips::ClosedGroups()});
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.realTime = true;
    std::int64_t beforeStep = -1;
    script.onTake = [&](int tick) {
        beforeStep = tick == 8 ? session->CurrentTime().SampleNumber(Ratio(25, 1)) : beforeStep;
    };
    Numbers pictures;
    Playback(*session, options)
        .Run(
            [&](const ShownTick& shown, const TickReport& tick) {
                pictures.push_back(static_cast<int>(shown.pictures.at(0)->Number()));
                // Ends where the step has led, when that is there.
                return session->Speed() != Ratio() || !tick.IsReady();
            },
            nullptr, &script);
    // What is late is shown later, so that fewer pictures fit between two commands.
    const auto jump = std::find(pictures.begin(), pictures.end(), 40);
    ASSERT_NE(jump, pictures.end());
    EXPECT_GE(jump - pictures.begin(), 4);
    EXPECT_LT(*(jump - 1), 4);
    EXPECT_TRUE(std::is_sorted(pictures.begin(), jump));
    EXPECT_EQ(pictures.back(), beforeStep - 1);
}

/// Keeps the reads of one track's group waiting until it is opened.
class Gate {
public:
    void Close(Session& session, std::int64_t track, std::size_t group) {
        session.Preloader().SetReadHook([this, track, group](const Player::TrackId& id, std::size_t read) {
            std::unique_lock<std::mutex> lock(mutex_);
            opened_.wait_for(lock, kDeadline, [&] { return isOpen_ || id.Id() != track || read != group; });
        });
    }
    void Open() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isOpen_ = true;
        }
        opened_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool isOpen_ = false;
};

TEST(PlayCommand, InRealTimeEachTrackIsShownAtOnceWhileDragged) {
    const auto session = Open({Clips::ClosedGroups(), Clips::ClosedGroups()});
    Gate gate;
    // Far from the start, so that only the drag asks for it.
    gate.Close(*session, 1, 4);
    PlaybackOptions options = AtSpeed(Ratio());
    options.realTime = true;
    TickScript script({{1, DragTo{PictureTime(55)}}, {100'000, Quit{}}});
    bool isFirstAhead = false;
    Playback(*session, options)
        .Run(
            [&](const ShownTick& shown, const TickReport&) {
                const auto first = shown.pictures.at(0)->Number();
                const auto second = shown.pictures.at(1)->Number();
                if (first == 55 && second != 55) {
                    isFirstAhead = true;
                    gate.Open();
                }
                return first != 55 || second != 55;
            },
            nullptr, &script);
    gate.Open();
    EXPECT_TRUE(isFirstAhead);
}

}  // namespace
}  // namespace Tavrin::Playout
