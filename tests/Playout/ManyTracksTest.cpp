// Several recordings in one session: where each begins, and who waits for whom.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

namespace Clips = Support::Clips;

/// Only there to turn a hang into a failure.
constexpr std::chrono::seconds kDeadline{60};

TimePoint Ms(std::int64_t ms) {
    return TimePoint().FromMilliseconds(ms);
}

/// 60 pictures at 25 per second.
SessionTrack Track(const TimePoint& offset = {}, const ReadinessRule& rule = {}) {
    static const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    return {index, offset, rule, 1};
}

/// What each track shows: -1 for nothing.
std::vector<int> NumbersOf(const ShownTick& shown) {
    std::vector<int> numbers;
    for (const auto& picture : shown.pictures) {
        numbers.push_back(picture == nullptr ? -1 : static_cast<int>(picture->Number()));
    }
    return numbers;
}

PlaybackOptions AtSpeed(const Ratio& speed) {
    PlaybackOptions options;
    options.speed = speed;
    options.stallTimeout = kDeadline;
    return options;
}

/// The picture that belongs there by the recording's own time; -1 for none.
int Expected(const Session& session, std::size_t track, const TimePoint& time) {
    const auto picture = session.PictureAtTime(track, time);
    return picture ? static_cast<int>(*picture) : -1;
}

/// Keeps all reads of one track waiting until it is opened.
class BlockedStorage {
public:
    BlockedStorage(Session& session, std::int64_t track) {
        session.Preloader().SetReadHook([this, track](const Player::TrackId& id, std::size_t) {
            std::unique_lock<std::mutex> lock(mutex_);
            opened_.wait_for(lock, kDeadline, [&] { return isOpen_ || id.Id() != track; });
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

/// Looks again until that holds.
TickReport LookUntil(Session& session, const std::function<bool(const TickReport&)>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    TickReport report = session.Tick(TimePoint());
    while (!holds(report)) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "it never came to that, at " << report.time;
            return report;
        }
        session.WaitForProgress(20ms);
        report = session.Tick(TimePoint());
    }
    return report;
}

TEST(ManyTracks, AnOffsetMovesARecordingOnTheTimeline) {
    Session session({Track(), Track(Ms(1000)), Track(Ms(-400))});
    EXPECT_EQ(session.Begin(1), Ms(1000));
    EXPECT_EQ(session.End(1), Ms(3400));
    EXPECT_EQ(session.End(2), Ms(2000));
    EXPECT_EQ(session.End(), Ms(3400)) << "the latest end";
    EXPECT_EQ(session.PictureAtTime(1, Ms(1090)), 2U);
    EXPECT_FALSE(session.PictureAtTime(1, Ms(999)).has_value());
    EXPECT_EQ(session.PictureAtTime(2, Ms(0)), 10U);
}

void ExpectEachAtItsOwnPlace(const Ratio& speed) {
    Session session({Track(), Track(Ms(1000)), Track(Ms(-400))});
    const PlayReport report =
        Playback(session, AtSpeed(speed)).Run([&](const ShownTick& shown, const TickReport&) {
            for (std::size_t track = 0; track < session.NbTracks(); ++track) {
                EXPECT_EQ(NumbersOf(shown)[track], Expected(session, track, shown.time))
                    << "track " << track << " at " << shown.time;
            }
            return true;
        });
    EXPECT_EQ(report.nbTicks, 85U);
    EXPECT_EQ(report.tracks[0].nbNew, 60U);
    EXPECT_EQ(report.tracks[1].nbNew, 60U);
    EXPECT_EQ(report.tracks[1].nbEmpty, 25U);
    EXPECT_EQ(report.tracks[2].nbNew, 50U) << "its first ten pictures lie before the origin";
}

TEST(ManyTracks, ForwardEachShowsItsOwnPlaceAndIsEmptyOutside) {
    ExpectEachAtItsOwnPlace(Ratio(1, 1));
}

TEST(ManyTracks, BackwardEachShowsItsOwnPlaceAndIsEmptyOutside) {
    ExpectEachAtItsOwnPlace(Ratio(-1, 1));
}

TEST(ManyTracks, AnOffsetOfAPartOfASampleIsKeptToTheNanosecond) {
    Session session({Track(), Track(TimePoint().FromNanoseconds(60'000'001))});
    session.SetSpeed(Ratio());
    const auto isReady = [](const TickReport& report) { return report.IsReady(); };
    session.GoTo(TimePoint().FromNanoseconds(100'000'000));
    TickReport report = LookUntil(session, isReady);
    EXPECT_EQ(report.tracks[0].picture->Number(), 2U);
    EXPECT_EQ(report.tracks[1].picture->Number(), 0U);
    session.GoTo(TimePoint().FromNanoseconds(100'000'001));
    report = LookUntil(session, isReady);
    EXPECT_EQ(report.tracks[1].picture->Number(), 1U);
}

TEST(ManyTracks, WhatBeginsSoonIsFetchedBefore) {
    for (const auto& [speed, place] : {std::pair(Ratio(1, 1), Ms(900)), std::pair(Ratio(-1, 1), Ms(3500))}) {
        Session session({Track(Ms(2400)), Track(Ms(1000))});
        session.SetSpeed(speed);
        session.GoTo(place);
        const TickReport report =
            LookUntil(session, [&](const TickReport&) { return session.GetInformation(1).nbReady > 0; });
        EXPECT_EQ(report.tracks[1].status, SampleStatus::Empty);
        EXPECT_EQ(report.time, place);
    }
}

TEST(ManyTracks, TheTimelineOfATrackIsThatOfTheSession) {
    Session session({Track(), Track(Ms(1000))});
    session.SetSpeed(Ratio());
    session.GoTo(Ms(1020));
    LookUntil(session, [](const TickReport& report) { return report.IsReady(); });
    const auto cells = session.CellStates(1, {TimePoint(), Ms(3400), 85});
    EXPECT_EQ(cells[24], CellState::Absent);
    EXPECT_EQ(cells[25], CellState::Protected) << "it is on show";
}

void ExpectHolesAreEmpty(const std::string& file) {
    const auto holed = RecordingIndex::Build(file);
    ASSERT_EQ(holed->NbHoles(), 1U);
    for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(3, 1), Ratio(-3, 1)}) {
        std::uint64_t nbInHole = 0;
        Session session({SessionTrack{holed, {}, {}, 1}, Track(Ms(1200))});
        const PlayReport report =
            Playback(session, AtSpeed(speed)).Run([&](const ShownTick& shown, const TickReport& tick) {
                const int expected = Expected(session, 0, shown.time);
                const bool isHole = shown.time >= Ms(37 * 40) && shown.time < Ms(86 * 40);
                nbInHole += isHole ? 1 : 0;
                EXPECT_EQ(expected == -1, isHole) << shown.time;
                EXPECT_EQ(NumbersOf(shown)[0] == -1, isHole) << shown.time;
                EXPECT_FALSE(tick.tracks[0].missing) << "nothing is lost there: there is nothing";
                EXPECT_EQ(NumbersOf(shown)[1] == -1, Expected(session, 1, shown.time) == -1);
                return true;
            });
        EXPECT_EQ(report.tracks[0].nbEmpty, nbInHole) << speed;
        EXPECT_GT(nbInHole, 10U) << speed;
    }
}

TEST(ManyTracks, InAHoleATrackIsEmptyAndTheOthersGoOn) {
    ExpectHolesAreEmpty(Clips::HoledMatroska());
}

TEST(ManyTracks, InAHoleOfATransportStreamToo) {
    ExpectHolesAreEmpty(Clips::HoledTransport());
}

TEST(ManyTracks, WhatCanNeverBeShownIsRefusedWithTheReason) {
    const auto refusal = [](std::vector<SessionTrack> tracks) -> std::string {
        try {
            const Session session(std::move(tracks));
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "not refused";
    };
    EXPECT_NE(refusal({Track(), Track(Ms(-2400))}).find("track 1"), std::string::npos);
    EXPECT_NE(refusal({Track(), Track(Ms(-2400))}).find("-00:00:02.400"), std::string::npos);
    SessionTrack weightless = Track();
    weightless.weight = 0;
    EXPECT_NE(refusal({weightless}).find("its weight is 0"), std::string::npos);
    EXPECT_NE(refusal({SessionTrack()}).find("has no recording"), std::string::npos);
    EXPECT_EQ(refusal({Track(Ms(-2399))}), "not refused");
}

TEST(ManyTracks, WhoeverWaitsIsToldForWhomAndWhy) {
    Session session({Track(), Track()});
    BlockedStorage storage(session, 1);
    session.SetSpeed(Ratio());
    session.GoTo(Ms(20));
    const TickReport report = LookUntil(session, [](const TickReport& now) {
        return now.tracks[0].status != SampleStatus::NotReady && now.waits.at(0).waited > 50ms;
    });
    ASSERT_EQ(report.waits.size(), 1U);
    EXPECT_EQ(report.waits[0].track, 1U);
    EXPECT_EQ(report.waits[0].cause, WaitCause::Storage);
    EXPECT_TRUE(report.waits[0].holds);
    EXPECT_FALSE(report.waits[0].left.has_value());
    EXPECT_FALSE(report.IsReady());
    storage.Open();
    EXPECT_TRUE(LookUntil(session, [](const TickReport& now) { return now.IsReady(); }).waits.empty());
}

/// Plays the first track to its end while the storage of the second one is silent.
PlayReport PlayBesideSilentStorage(const ReadinessRule& rule, bool realTime) {
    Session session({Track(), Track({}, rule)});
    BlockedStorage storage(session, 1);
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.realTime = realTime;
    const PlayReport report = Playback(session, options).Run([](const ShownTick& shown, const TickReport&) {
        EXPECT_EQ(NumbersOf(shown)[1], -1);
        return true;
    });
    storage.Open();
    return report;
}

TEST(ManyTracks, AnOptionalTrackStopsNobody) {
    const PlayReport report = PlayBesideSilentStorage(ReadinessRule::Optional(), false);
    EXPECT_EQ(report.tracks[0].nbNew, 60U);
    EXPECT_EQ(report.tracks[1].nbLate, 60U);
    EXPECT_EQ(report.tracks[1].nbLeftBehind, 60U);
    EXPECT_EQ(report.tracks[1].nbHeld, 0U);
    EXPECT_EQ(report.nbLateTicks, 0U) << "nobody waited";
}

TEST(ManyTracks, AHeldTrackIsWaitedForSoLongAndThenTheOthersGoOn) {
    const PlayReport report = PlayBesideSilentStorage(ReadinessRule::HoldUpTo(Ms(300)), false);
    EXPECT_GE(report.untilFirst, 300ms);
    EXPECT_EQ(report.tracks[0].nbNew, 60U);
    EXPECT_EQ(report.tracks[1].nbLeftBehind, 60U);
}

TEST(ManyTracks, InRealTimeAHeldTrackIsWaitedForOnce) {
    const PlayReport report = PlayBesideSilentStorage(ReadinessRule::HoldUpTo(Ms(200)), true);
    EXPECT_GE(report.untilFirst, 200ms);
    EXPECT_LT(report.untilFirst, 30s);
    EXPECT_EQ(report.tracks[0].nbNew, 60U);
    EXPECT_EQ(report.tracks[1].nbHeld, 0U) << "after the first picture nothing is held up any more";
}

TEST(ManyTracks, ATrackLeftBehindCatchesUpWhenItsStorageAnswers) {
    Session session({Track(), Track({}, ReadinessRule::Optional())});
    BlockedStorage storage(session, 1);
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.realTime = true;
    std::size_t nbRight = 0;
    Playback(session, options).Run([&](const ShownTick& shown, const TickReport&) {
        if (shown.tick == 10) {
            storage.Open();
        }
        const auto numbers = NumbersOf(shown);
        EXPECT_EQ(numbers[0], Expected(session, 0, shown.time));
        nbRight += shown.tick > 10 && numbers[1] == numbers[0] ? 1 : 0;
        return true;
    });
    EXPECT_GT(nbRight, 20U) << "of the 49 ticks after that";
}

TEST(ManyTracks, OrdersThatATrackLeftBehindNoLongerNeedsAreWithdrawn) {
    Session session({Track(), Track({}, ReadinessRule::Optional())});
    BlockedStorage storage(session, 1);
    std::size_t mostPending = 0;
    Playback(session, AtSpeed(Ratio(1, 1))).Run([&](const ShownTick&, const TickReport&) {
        mostPending = std::max(mostPending, session.GetInformation(1).nbPending);
        return true;
    });
    storage.Open();
    EXPECT_GT(mostPending, 0U);
    LookUntil(session, [&](const TickReport&) { return session.GetInformation(1).nbPending == 0; });
}

TEST(ManyTracks, AStallIsBlamedOnTheTrackThatIsWaitedFor) {
    Session session({Track(), Track({}, ReadinessRule::Optional()), Track()});
    BlockedStorage storage(session, 2);
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.stallTimeout = 300ms;
    try {
        Playback(session, options).Run([](const ShownTick&, const TickReport&) { return true; });
        ADD_FAILURE() << "it played what was never read";
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find(": playing stalled at 00:00:00.020: track 2 has waited "), std::string::npos)
            << text;
        EXPECT_NE(text.find(" ms for storage"), std::string::npos) << text;
    }
    storage.Open();
}

TEST(ManyTracks, StepsCountPicturesOfTheFinestRecordingWhereverItBegins) {
    const auto fine = RecordingIndex::Build(Clips::Ntsc());
    Session session({Track(), SessionTrack{fine, Ms(500), {}, 1}});
    class Steps final : public ICommandSource {
    public:
        std::vector<PlayCommand> Take(const TimePoint&) override {
            switch (tick_++) {
                case 0:
                    return {JumpTo{Ms(500)}};
                case 1:
                    return {StepBy{3}};
                case 2:
                    return {StepBy{-4}};
                default:
                    return {};
            }
        }
        bool IsOpen() const override { return tick_ < 3; }

    private:
        int tick_ = 0;
    } steps;
    std::vector<std::vector<int>> shown;
    Playback(session, AtSpeed(Ratio()))
        .Run(
            [&](const ShownTick& tick, const TickReport&) {
                shown.push_back(NumbersOf(tick));
                return true;
            },
            nullptr, &steps);
    // 500 ms is picture 12 of 25 a second; a picture before the beginning of the other one, still picture 12.
    EXPECT_EQ(shown.at(0), (std::vector<int>{12, 0}));
    EXPECT_EQ(shown.at(1), (std::vector<int>{15, 3}));
    EXPECT_EQ(shown.at(2), (std::vector<int>{12, -1}));
}

TEST(ManyTracks, TheSpeedThatIsHeldIsToldAtEveryTick) {
    Session session({Track(), Track()});
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.realTime = true;
    // A slow storage: each group of twelve pictures, 480 ms of play, takes 1.2 s to read.
    session.Preloader().SetReadHook([](const Player::TrackId& id, std::size_t) {
        if (id.Id() == 1) {
            std::this_thread::sleep_for(1200ms);
        }
    });
    double lowest = 1;
    const PlayReport report =
        Playback(session, options).Run([&](const ShownTick& shown, const TickReport& tick) {
            EXPECT_EQ(shown.heldSpeed, tick.heldSpeed);
            EXPECT_EQ(NumbersOf(shown)[0], NumbersOf(shown)[1]) << "every track shows the same time";
            lowest = std::min(lowest, shown.heldSpeed);
            return true;
        });
    EXPECT_LT(lowest, 0.8);
    EXPECT_LT(report.heldSpeed, 0.8);
    EXPECT_GT(report.heldSpeed, 0.1);
    EXPECT_EQ(report.tracks[0].nbNew, 60U) << "slower, but no picture is left out";
    EXPECT_EQ(report.tracks[1].nbHeld, report.nbLateTicks);
    EXPECT_EQ(report.tracks[0].nbHeld, 0U);
}

}  // namespace
}  // namespace Tavrin::Playout
