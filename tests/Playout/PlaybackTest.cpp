#include "Playout/Playback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace Clips = Support::Clips;

/// Only there to turn a hang into a failure.
constexpr std::chrono::seconds kDeadline{60};

std::unique_ptr<Session> Open(const std::vector<std::string>& files, const SessionOptions& options = {}) {
    std::vector<std::shared_ptr<const RecordingIndex>> recordings;
    for (const std::string& file : files) {
        recordings.push_back(RecordingIndex::Build(file));
    }
    return std::make_unique<Session>(recordings, options);
}

PlaybackOptions AtSpeed(const Ratio& speed) {
    PlaybackOptions options;
    options.speed = speed;
    options.stallTimeout = kDeadline;
    return options;
}

PlaybackOptions Between(const Ratio& speed, std::int64_t fromMs, std::int64_t toMs) {
    PlaybackOptions options = AtSpeed(speed);
    options.from = TimePoint().FromMilliseconds(fromMs);
    options.to = TimePoint().FromMilliseconds(toMs);
    return options;
}

PlaybackOptions InRealTime(PlaybackOptions options = AtSpeed(Ratio(1, 1))) {
    options.realTime = true;
    return options;
}

/// From now on each read of a group takes that long.
void SlowDownReads(Session& session, std::chrono::milliseconds time) {
    session.Preloader().SetReadHook(
        [time](const Player::TrackId&, std::size_t) { std::this_thread::sleep_for(time); });
}

/// -1 where nothing is on show.
std::vector<int> NumbersOf(const ShownTick& shown) {
    std::vector<int> numbers;
    for (const auto& picture : shown.pictures) {
        numbers.push_back(picture == nullptr ? -1 : static_cast<int>(picture->Number()));
    }
    return numbers;
}

/// The pictures of the first track that a run shows.
std::vector<int> Play(Session& session, const PlaybackOptions& options, PlayReport* report = nullptr) {
    std::vector<int> numbers;
    const PlayReport result = Playback(session, options).Run([&](const ShownTick& shown, const TickReport&) {
        EXPECT_EQ(shown.tick, numbers.size());
        numbers.push_back(NumbersOf(shown).front());
        return true;
    });
    EXPECT_EQ(result.nbTicks, numbers.size());
    if (report != nullptr) {
        *report = result;
    }
    return numbers;
}

/// From `first` to `last`, both included, in steps of `step`, each `times` times.
std::vector<int> Sequence(int first, int last, int step, int times = 1) {
    std::vector<int> numbers;
    for (int number = first; step > 0 ? number <= last : number >= last; number += step) {
        numbers.insert(numbers.end(), static_cast<std::size_t>(times), number);
    }
    return numbers;
}

/// Keeps the reads of one group waiting until it is opened.
class Gate {
public:
    void Close(Session& session, std::size_t group) {
        session.Preloader().SetReadHook([this, group](const Player::TrackId&, std::size_t read) {
            std::unique_lock<std::mutex> lock(mutex_);
            opened_.wait_for(lock, kDeadline, [&] { return isOpen_ || read != group; });
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

TEST(Playback, ForwardShowsEveryPictureInOrder) {
    const auto session = Open({Clips::ClosedGroups()});
    PlayReport report;
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(1, 1)), &report), Sequence(0, 59, 1));
    EXPECT_EQ(report.end, PlayEnd::Reached);
    EXPECT_EQ(report.tracks.at(0).nbNew, 60U);
    EXPECT_EQ(report.nbLateTicks, 0U);
}

TEST(Playback, BackwardShowsEveryPictureFromTheLastToTheFirst) {
    const auto session = Open({Clips::OpenGroups()});
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(-1, 1))), Sequence(59, 0, -1));
}

TEST(Playback, AtFourTimesTheSpeedItShowsEveryFourthPicture) {
    const auto session = Open({Clips::Ntsc()});
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(4, 1))), Sequence(0, 56, 4));
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(-4, 1))), Sequence(56, 0, -4));
}

TEST(Playback, AtHalfTheSpeedItShowsEveryPictureTwice) {
    const auto session = Open({Clips::Ntsc()});
    PlayReport report;
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(1, 2)), &report), Sequence(0, 59, 1, 2));
    EXPECT_EQ(report.tracks.at(0).nbNew, 60U);
    EXPECT_EQ(report.tracks.at(0).nbRepeated, 60U);
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(-1, 2))), Sequence(59, 0, -1, 2));
}

TEST(Playback, ADisplayOfTwiceTheRateShowsEveryPictureTwice) {
    SessionOptions options;
    options.displayRate = SampleRate(60000, 1001);
    const auto session = Open({Clips::Ntsc()}, options);
    EXPECT_EQ(Play(*session, AtSpeed(Ratio(1, 1))), Sequence(0, 59, 1, 2));
}

TEST(Playback, ForwardItEndsBeforeThePictureThatBeginsAtTheEnd) {
    const auto session = Open({Clips::ClosedGroups()});
    EXPECT_EQ(Play(*session, Between(Ratio(1, 1), 1000, 2000)), Sequence(25, 49, 1));
}

TEST(Playback, BackwardItEndsWithThePictureThatBeginsAtTheEnd) {
    const auto session = Open({Clips::ClosedGroups()});
    EXPECT_EQ(Play(*session, Between(Ratio(-1, 1), 2000, 1000)), Sequence(50, 25, -1));
}

TEST(Playback, BackwardFromBeyondTheEndItStartsWithTheLastPicture) {
    const auto session = Open({Clips::ClosedGroups()});
    EXPECT_EQ(Play(*session, Between(Ratio(-1, 1), 99'000, 2'200)), Sequence(59, 55, -1));
}

TEST(Playback, AtSpeedZeroItShowsOnePicture) {
    const auto session = Open({Clips::ClosedGroups()});
    PlaybackOptions options = AtSpeed(Ratio());
    options.from = TimePoint().FromMilliseconds(1'010);
    EXPECT_EQ(Play(*session, options), Sequence(25, 25, 1));
}

TEST(Playback, AtSpeedZeroThePictureStandsForAsManyTicksAsAskedFor) {
    const auto session = Open({Clips::ClosedGroups()});
    PlaybackOptions options = AtSpeed(Ratio());
    options.nbTicks = 3;
    PlayReport report;
    EXPECT_EQ(Play(*session, options, &report), Sequence(0, 0, 1, 3));
    EXPECT_EQ(report.tracks.at(0).nbRepeated, 2U);
}

TEST(Playback, ItEndsAfterAsManyTicksAsAskedFor) {
    const auto session = Open({Clips::ClosedGroups()});
    PlaybackOptions options = AtSpeed(Ratio(-1, 1));
    options.nbTicks = 3;
    PlayReport report;
    EXPECT_EQ(Play(*session, options, &report), Sequence(59, 57, -1));
    EXPECT_EQ(report.end, PlayEnd::Counted);
}

TEST(Playback, ItBeginsAnewWithEachRun) {
    const auto session = Open({Clips::Short()});
    Playback playback(*session, AtSpeed(Ratio(1, 1)));
    for (int run = 0; run < 2; ++run) {
        int next = 0;
        const auto show = [&next](const ShownTick& shown, const TickReport&) {
            EXPECT_EQ(NumbersOf(shown).front(), next++);
            return true;
        };
        EXPECT_EQ(playback.Run(show).nbTicks, 12U);
    }
}

TEST(Playback, TracksOfDifferentRatesAndLengthsStayInStep) {
    const auto session = Open({Clips::Ntsc(), Clips::LongGroups(), Clips::Short()});
    for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1)}) {
        PlayReport report =
            Playback(*session, AtSpeed(speed)).Run([&](const ShownTick& shown, const TickReport&) {
                for (std::size_t track = 0; track < session->NbTracks(); ++track) {
                    const auto expected = session->Recording(track).PictureAtTime(shown.time);
                    EXPECT_EQ(NumbersOf(shown)[track], expected ? static_cast<int>(*expected) : -1)
                        << "track " << track << " at " << shown.time;
                }
                return true;
            });
        // 100 pictures of 1/25 s take 119.9 ticks of 1001/30000 s.
        EXPECT_EQ(report.nbTicks, 120U);
        EXPECT_EQ(report.tracks.at(0).nbNew, 60U);
        EXPECT_EQ(report.tracks.at(1).nbNew, 100U);
        EXPECT_EQ(report.tracks.at(2).nbNew, 12U);
        EXPECT_EQ(report.tracks.at(0).nbEmpty, 60U);
    }
}

TEST(Playback, MissingPicturesAreCountedAndTheOneBeforeStays) {
    const auto session = Open({Clips::Truncated()});
    PlayReport report;
    const std::vector<int> numbers = Play(*session, AtSpeed(Ratio(1, 1)), &report);
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(session->Recording(0).NbSamples()));
    EXPECT_GT(report.tracks.at(0).nbMissing, 0U);
    EXPECT_EQ(report.tracks.at(0).nbNew + report.tracks.at(0).nbMissing, numbers.size());
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST(Playback, TheCallbackCanEndIt) {
    const auto session = Open({Clips::ClosedGroups()});
    const PlayReport report =
        Playback(*session, AtSpeed(Ratio(1, 1))).Run([](const ShownTick& shown, const TickReport&) {
            return shown.tick < 4;
        });
    EXPECT_EQ(report.nbTicks, 5U);
    EXPECT_EQ(report.end, PlayEnd::Stopped);
}

TEST(Playback, TheStopFlagEndsTheWaitForAPictureThatNeverComes) {
    const auto session = Open({Clips::ClosedGroups()});
    Gate gate;
    gate.Close(*session, 0);
    const std::atomic<bool> stop = true;
    const PlayReport report = Playback(*session, AtSpeed(Ratio(1, 1)))
                                  .Run([](const ShownTick&, const TickReport&) { return true; }, &stop);
    gate.Open();
    EXPECT_EQ(report.nbTicks, 0U);
    EXPECT_EQ(report.end, PlayEnd::Stopped);
}

TEST(Playback, WhatTheCallbackThrowsComesThrough) {
    const auto session = Open({Clips::Short()});
    Playback playback(*session, AtSpeed(Ratio(1, 1)));
    const auto fail = [](const ShownTick&, const TickReport&) -> bool {
        throw std::runtime_error("disk full");
    };
    EXPECT_THROW(playback.Run(fail), std::runtime_error);
}

TEST(Playback, AStallEndsWithAnErrorThatNamesTheFile) {
    const auto session = Open({Clips::ClosedGroups()});
    Gate gate;
    gate.Close(*session, 2);
    // From the first picture of the group that is held back: how fast the machine is makes no difference.
    PlaybackOptions options = AtSpeed(Ratio(1, 1));
    options.from = TimePoint().FromMilliseconds(24 * 40);
    options.stallTimeout = 300ms;
    try {
        Play(*session, options);
        ADD_FAILURE() << "it played what was never read";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(
            std::string(error.what()).find(Clips::ClosedGroups() + ": playing stalled at 00:00:00.980: "),
            std::string::npos)
            << error.what();
    }
    gate.Open();
}

/// Ticks alone would not do: after the process itself was held up, they come in a bunch.
constexpr std::chrono::milliseconds kHeldBackFor{90};

/// In real time, with the second group held back until three ticks were late and that much time has gone by: what is
/// on show meanwhile.
struct HeldBack {
    std::vector<std::vector<int>> shown;
    PlayReport report;
    Counters counters;
};

HeldBack PlayHeldBack(const std::vector<std::string>& files) {
    const auto session = Open(files);
    Gate gate;
    gate.Close(*session, 1);
    const PlaybackOptions options = InRealTime(Between(Ratio(1, 1), 400, 600));
    HeldBack result;
    std::vector<std::chrono::steady_clock::time_point> late;
    result.report = Playback(*session, options).Run([&](const ShownTick& shown, const TickReport& tick) {
        result.shown.push_back(NumbersOf(shown));
        if (!tick.IsReady()) {
            late.push_back(std::chrono::steady_clock::now());
        }
        if (late.size() >= 3 && late.back() - late.front() >= kHeldBackFor) {
            gate.Open();
        }
        return true;
    });
    result.counters = session->GetCounters();
    return result;
}

TEST(Playback, InRealTimeALateTickRepeatsThePictureAndNoneIsLeftOut) {
    const HeldBack played = PlayHeldBack({Clips::ClosedGroups()});
    std::vector<int> numbers;
    for (const std::vector<int>& tick : played.shown) {
        numbers.push_back(tick.front());
    }
    EXPECT_GE(played.report.nbLateTicks, 3U);
    EXPECT_EQ(numbers.size(), 5U + played.report.nbLateTicks);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    EXPECT_EQ(numbers, Sequence(10, 14, 1));
    const TrackReport& track = played.report.tracks.at(0);
    EXPECT_EQ(track.nbNew, 5U);
    EXPECT_EQ(track.nbLate, played.report.nbLateTicks);
}

TEST(Playback, InRealTimeTheSessionCountsEachLateTickToo) {
    const HeldBack played = PlayHeldBack({Clips::ClosedGroups()});
    const TrackCounters counters = played.counters.tracks.at(0);
    EXPECT_EQ(counters.pictures.nbExact, 5U);
    EXPECT_EQ(counters.pictures.nbLate, played.report.nbLateTicks);
    EXPECT_EQ(counters.pictures.nbRepeated, 0U);
    EXPECT_GE(counters.waits.storage, kHeldBackFor);
}

TEST(Playback, WhileOneTrackIsLateTheOthersWaitWithIt) {
    const HeldBack played = PlayHeldBack({Clips::SingleGroup(), Clips::ClosedGroups()});
    EXPECT_GE(played.report.nbLateTicks, 3U);
    for (const std::vector<int>& tick : played.shown) {
        EXPECT_EQ(tick.at(0), tick.at(1));
    }
}

TEST(Playback, InRealTimeATickLastsAsLongAsTheDisplayShowsIt) {
    const auto session = Open({Clips::Short()});
    const PlaybackOptions options = InRealTime();
    PlayReport report;
    // What is late is repeated: a slow machine shows more ticks, never fewer.
    EXPECT_GE(Play(*session, options, &report).size(), 12U);
    EXPECT_GE(report.elapsed, 11 * 40ms);
}

TEST(Playback, InRealTimeAStorageThatIsALittleTooSlowIsPlayedEvenly) {
    // Each picture is a group, and takes 55 ms to read where a tick lasts 40 ms.
    const auto session = Open({Clips::MotionJpeg()});
    SlowDownReads(*session, 55ms);
    const PlaybackOptions options = InRealTime();
    std::vector<std::chrono::nanoseconds> stands;
    std::chrono::steady_clock::time_point since;
    int before = -1;
    const PlayReport report = Playback(*session, options).Run([&](const ShownTick& shown, const TickReport&) {
        const auto now = std::chrono::steady_clock::now();
        if (NumbersOf(shown).front() != before) {
            stands.push_back(now - since);
            since = now;
            before = NumbersOf(shown).front();
        }
        return true;
    });
    EXPECT_EQ(report.tracks.at(0).nbNew, 60U);
    // Kept to the ticks of the clock, pictures would stand for one of them or for two: 40 ms or 80 ms.
    std::nth_element(stands.begin(), stands.begin() + 30, stands.end());
    EXPECT_GT(stands[30], 50ms);
    EXPECT_LT(stands[30], 75ms);
}

TEST(Playback, InRealTimeSeveralTracksGatherSomePicturesBeforeTheyBegin) {
    const auto session = Open({Clips::MotionJpeg(), Clips::MotionJpeg()});
    SlowDownReads(*session, 25ms);
    const PlaybackOptions options = InRealTime();
    bool hadThem = false;
    Playback(*session, options).Run([&](const ShownTick&, const TickReport&) {
        hadThem = session->HasAhead(4);
        return false;
    });
    EXPECT_TRUE(hadThem);
}

TEST(Playback, InRealTimeGatheringEndsWhateverTheStorageDoes) {
    const auto session = Open({Clips::MotionJpeg(), Clips::MotionJpeg()});
    SlowDownReads(*session, 200ms);
    PlaybackOptions options = InRealTime();
    options.nbTicks = 30;
    const PlayReport report =
        Playback(*session, options).Run([](const ShownTick&, const TickReport&) { return true; });
    EXPECT_GE(report.tracks.at(1).nbNew, 3U);
}

TEST(Playback, InRealTimeTicksThatTheCallbackSleepsThroughAreCounted) {
    const auto session = Open({Clips::Short()});
    const PlaybackOptions options = InRealTime();
    const PlayReport report = Playback(*session, options).Run([](const ShownTick& shown, const TickReport&) {
        const auto end = std::chrono::steady_clock::now() + (shown.tick == 5 ? 130ms : 0ms);
        while (std::chrono::steady_clock::now() < end) {
        }
        return true;
    });
    EXPECT_GE(report.nbSleptThrough, 2U);
    EXPECT_EQ(report.tracks.at(0).nbNew, 12U);
}

TEST(Playback, FastNeverWaitsForTheClock) {
    // A tick every ten minutes: the twelve pictures would take two hours.
    SessionOptions display;
    display.displayRate = SampleRate(1, 600);
    const auto session = Open({Clips::Short()}, display);
    PlaybackOptions options = AtSpeed(Ratio(1, 15'000));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Play(*session, options), Sequence(0, 11, 1));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kDeadline);
}

/// What the refusal of these options says.
std::string Refusal(const PlaybackOptions& options) {
    const auto session = Open({Clips::ClosedGroups()});
    try {
        const Playback playback(*session, options);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "not refused";
}

TEST(Playback, WhatCannotBePlayedIsRefusedWithTheReason) {
    EXPECT_EQ(Refusal(Between(Ratio(1, 1), 2400, 3000)),
              "nothing to play from 00:00:02.400: the recording ends at 00:00:02.400");
    EXPECT_EQ(Refusal(Between(Ratio(1, 1), 2000, 1000)),
              "playing from 00:00:02.000 at speed 1/1 never comes to 00:00:01.000");
    EXPECT_EQ(Refusal(Between(Ratio(-1, 1), 1000, 2000)),
              "playing from 00:00:01.000 at speed -1/1 never comes to 00:00:02.000");
    EXPECT_EQ(Refusal(Between(Ratio(), 0, 2000)),
              "at speed 0 the play head stands still and never comes to 00:00:02.000");
    EXPECT_EQ(Refusal(Between(Ratio(1, 1), -40, 1000)), "times to play from and to must not be negative");
    EXPECT_EQ(Refusal(Between(Ratio(1, 1), 0, 10)),
              "no picture lies between 00:00:00.020 and 00:00:00.010 at speed 1/1");
}

}  // namespace
}  // namespace Tavrin::Playout
