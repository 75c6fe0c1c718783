#include "Playout/Session.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/FailingStorage.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

/// Far beyond what any answer takes: reached only when one never comes.
constexpr auto kDeadline = 60s;

std::shared_ptr<const RecordingIndex> LongGroups() {
    static const auto index = RecordingIndex::Build(Support::Clips::LongGroups());
    return index;
}

TimePoint Half(const RecordingIndex& recording) {
    return recording.SampleStart(1) / 2;
}

/// The middle of a sample, so that no rounding of later moves can leave it.
TimePoint MiddleOf(const RecordingIndex& recording, std::int64_t sample) {
    return recording.SampleStart(sample) + Half(recording);
}

/// Looks again until every track has its picture.
TickReport Settle(Session& session, TickReport report) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!report.IsReady()) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "no picture at " << report.time << " after a minute";
            return report;
        }
        session.WaitForProgress(100ms);
        report = session.Tick(TimePoint());
    }
    return report;
}

TickReport Step(Session& session, const TimePoint& delta) {
    return Settle(session, session.Tick(delta));
}

/// Looks again until no answer is out.
void Drain(Session& session) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    for (std::size_t track = 0; track < session.NbTracks();) {
        session.Tick(TimePoint());
        if (session.GetInformation(track).nbPending == 0) {
            ++track;
            continue;
        }
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "an answer never came";
        session.WaitForProgress(20ms);
    }
}

void ExpectPicture(const TickReport& report, std::size_t track, std::size_t number) {
    const TrackView& view = report.tracks.at(track);
    ASSERT_NE(view.picture, nullptr) << "at " << report.time;
    EXPECT_EQ(view.picture->Number(), number) << "at " << report.time;
    EXPECT_FALSE(view.missing);
}

TEST(Session, WithoutRecordingsIsRefused) {
    EXPECT_THROW(Session(std::vector<SessionTrack>()), std::invalid_argument);
    EXPECT_THROW(Session(std::vector<std::shared_ptr<const RecordingIndex>>()), std::invalid_argument);
}

TEST(Session, DisplayRateIsTheHighestOfTheRecordingsUnlessItIsSet) {
    EXPECT_EQ(Session({LongGroups()}).DisplayRate(), LongGroups()->Rate());
    SessionOptions options;
    options.displayRate = Player::SampleRate(50, 1);
    EXPECT_EQ(Session({LongGroups()}, options).DisplayRate(), Player::SampleRate(50, 1));
}

TEST(Session, FirstTickIsNotReadyAndOrdersThePictureAtThePlayHead) {
    Session session({LongGroups()});
    const TickReport report = session.Tick(TimePoint());
    EXPECT_EQ(report.tracks.at(0).status, SampleStatus::NotReady);
    EXPECT_FALSE(report.IsReady());
    ExpectPicture(Settle(session, report), 0, 0);
}

/// Holds all reads from its construction until it is told to let them go.
class HeldReads {
public:
    explicit HeldReads(Session& session) {
        session.Preloader().SetReadHook(
            [released = release_.get_future().share()](const auto&, std::size_t) { released.wait(); });
    }

    void Release() { release_.set_value(); }

private:
    std::promise<void> release_;
};

TEST(Session, PlayHeadStandsStillWhileItsPictureIsOnItsWay) {
    Session session({LongGroups()});
    HeldReads reads(session);
    session.Tick(TimePoint());
    const TickReport report = session.Tick(TimePoint().FromSeconds(1));
    EXPECT_FALSE(report.moved);
    EXPECT_EQ(report.time, TimePoint());
    reads.Release();
    ExpectPicture(Settle(session, report), 0, 0);
    EXPECT_TRUE(session.Tick(TimePoint().FromSeconds(1)).moved);
    EXPECT_EQ(session.CurrentTime(), TimePoint().FromSeconds(1));
}

/// Plays from a sample to the end of the recording, or to its beginning, and expects every picture.
void ExpectEveryPicture(const Ratio& speed) {
    const auto recording = LongGroups();
    Session session({recording});
    const bool forward = speed.Positive();
    const auto last = static_cast<std::int64_t>(recording->NbPictures()) - 1;
    session.SetSpeed(speed);
    session.GoTo(MiddleOf(*recording, forward ? 0 : last));
    for (std::int64_t sample = 0; sample <= last; ++sample) {
        const TimePoint delta =
            recording->SampleStart(sample) - recording->SampleStart(std::max<std::int64_t>(sample - 1, 0));
        const TickReport report = Step(session, delta);
        ExpectPicture(report, 0, static_cast<std::size_t>(forward ? sample : last - sample));
    }
}

TEST(Session, ShowsEveryPictureForward) {
    ExpectEveryPicture(Ratio(1, 1));
}

TEST(Session, ShowsEveryPictureBackward) {
    ExpectEveryPicture(Ratio(-1, 1));
}

TEST(Session, HalfSpeedShowsEachPictureTwiceAndSaysSo) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(1, 2));
    session.GoTo(recording->SampleStart(0) + Half(*recording) / 2);
    std::vector<std::size_t> numbers;
    std::vector<SampleStatus> statuses;
    for (std::int64_t tick = 0; tick < 6; ++tick) {
        const TickReport report = Step(session, tick == 0 ? TimePoint() : recording->SampleStart(1));
        numbers.push_back(report.tracks[0].picture->Number());
        statuses.push_back(report.tracks[0].status);
    }
    EXPECT_EQ(numbers, (std::vector<std::size_t>{0, 0, 1, 1, 2, 2}));
    EXPECT_EQ(statuses[1], SampleStatus::Same);
    EXPECT_EQ(statuses[2], SampleStatus::New);
}

TEST(Session, AtFourTimesOnlyEveryFourthPictureIsDecoded) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(4, 1));
    session.GoTo(MiddleOf(*recording, 0));
    std::size_t expected = 0;
    while (expected + 4 < recording->NbPictures()) {
        const TickReport report = Step(session, expected == 0 ? TimePoint() : recording->SampleStart(1));
        ExpectPicture(report, 0, expected);
        expected += 4;
    }
}

TEST(Session, AtEightTimesAPictureLeftOverFromBeforeIsNotTakenForTheOneFetched) {
    const auto recording = LongGroups();
    SessionOptions options;
    options.ahead = TimePoint().FromMilliseconds(120);
    Session session({recording}, options);
    session.SetSpeed(Ratio(0, 1));
    session.GoTo(MiddleOf(*recording, 23));
    Step(session, TimePoint());
    Drain(session);  // Pictures 21 to 25 are ready now.
    session.SetSpeed(Ratio(8, 1));
    session.GoTo(MiddleOf(*recording, 18));
    ExpectPicture(Step(session, TimePoint()), 0, 16);
}

TEST(Session, StillPictureStaysTheSame) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(0, 1));
    session.GoTo(MiddleOf(*recording, 17));
    ExpectPicture(Step(session, recording->SampleStart(1)), 0, 17);
    const TickReport report = session.Tick(recording->SampleStart(1));
    EXPECT_EQ(report.tracks[0].status, SampleStatus::Same);
    EXPECT_EQ(report.time, MiddleOf(*recording, 17));
}

TEST(Session, TurningAroundShowsThePictureBefore) {
    const auto recording = LongGroups();
    Session session({recording});
    session.GoTo(MiddleOf(*recording, 20));
    Step(session, TimePoint());
    ExpectPicture(Step(session, recording->SampleStart(1)), 0, 21);
    session.SetSpeed(Ratio(-1, 1));
    ExpectPicture(Step(session, recording->SampleStart(1)), 0, 20);
    ExpectPicture(Step(session, recording->SampleStart(1)), 0, 19);
}

TEST(Session, BeforeTheOriginIsTheOrigin) {
    Session session({LongGroups()});
    session.GoTo(TimePoint().FromSeconds(-5));
    EXPECT_EQ(session.CurrentTime(), TimePoint());
}

TEST(Session, BeyondItsEndATrackIsEmptyAndTheOthersGoOn) {
    const auto longer = LongGroups();
    const auto shorter = RecordingIndex::Build(Support::Clips::Short());
    ASSERT_LT(shorter->End(), longer->End());
    Session session({shorter, longer});
    EXPECT_EQ(session.End(), longer->End());
    session.GoTo(shorter->End() + Half(*longer));
    const TickReport report = Step(session, TimePoint());
    EXPECT_EQ(report.tracks[0].status, SampleStatus::Empty);
    EXPECT_EQ(report.tracks[0].picture, nullptr);
    EXPECT_FALSE(report.tracks[0].missing);
    ExpectPicture(report, 1, *longer->PictureAtTime(report.time));
}

TEST(Session, SeveralTracksShowTheSameMoment) {
    const auto recording = LongGroups();
    Session session({recording, recording, recording});
    session.GoTo(MiddleOf(*recording, 5));
    for (std::size_t number = 5; number < 15; ++number) {
        const TickReport report = Step(session, number == 5 ? TimePoint() : recording->SampleStart(1));
        for (std::size_t track = 0; track < 3; ++track) {
            ExpectPicture(report, track, number);
        }
    }
}

TEST(Session, JumpWithdrawsOrdersAndLeavesNothingPending) {
    const auto recording = LongGroups();
    Session session({recording});
    HeldReads reads(session);
    session.Tick(TimePoint());
    session.GoTo(MiddleOf(*recording, static_cast<std::int64_t>(recording->NbPictures()) - 2));
    EXPECT_GT(session.GetInformation(0).nbWithdrawn, 0U);
    EXPECT_LE(session.GetInformation(0).nbPending, 1U) << "only the order in progress is still out";
    reads.Release();
    Step(session, TimePoint());
    Drain(session);
}

TEST(Session, RandomJumpsShowTheExactPicture) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(0, 1));
    std::mt19937 random(20260101);
    std::uniform_int_distribution<std::int64_t> anySample(0, recording->NbSamples() - 1);
    for (int jump = 0; jump < 40; ++jump) {
        const std::int64_t sample = anySample(random);
        session.GoTo(MiddleOf(*recording, sample));
        ExpectPicture(Step(session, TimePoint()), 0, *recording->PictureAt(sample));
    }
    Drain(session);
}

TEST(Session, JumpsFasterThanAnyAnswerEndAtTheLastOne) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(0, 1));
    for (std::int64_t sample = 0; sample < recording->NbSamples(); ++sample) {
        session.GoTo(MiddleOf(*recording, sample));
        session.Tick(TimePoint());
    }
    ExpectPicture(Step(session, TimePoint()), 0, recording->NbPictures() - 1);
    Drain(session);
}

TEST(Session, FailedReadIsMissingAndAskedForAgainLater) {
    const auto recording = LongGroups();
    SessionOptions options;
    options.retryAfter = 20ms;
    Session session({recording}, options);
    Support::FailingStorage storage(session);
    session.SetSpeed(Ratio(0, 1));
    session.GoTo(MiddleOf(*recording, 3));
    const TickReport failed = Step(session, TimePoint());
    EXPECT_TRUE(failed.tracks[0].missing);
    EXPECT_EQ(failed.tracks[0].status, SampleStatus::Empty);
    EXPECT_NE(session.GetInformation(0).reading.lastError.find(Support::kDiskIsGone), std::string::npos);

    storage.ComeBack();
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    TickReport report = failed;
    while (!report.IsReady() || report.tracks[0].missing) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the picture was never asked for again";
        session.WaitForProgress(10ms);
        report = session.Tick(TimePoint());
    }
    ExpectPicture(report, 0, 3);
}

TEST(Session, MissingPictureDoesNotHoldThePlayHead) {
    const auto recording = LongGroups();
    Session session({recording});
    const Support::FailingStorage storage(session);
    session.GoTo(MiddleOf(*recording, 0));
    Step(session, TimePoint());
    const TickReport report = session.Tick(recording->SampleStart(1));
    EXPECT_TRUE(report.moved);
    EXPECT_EQ(report.time, MiddleOf(*recording, 0) + recording->SampleStart(1));
    EXPECT_GT(session.GetCounters().tracks.at(0).pictures.nbMissing, 0U);
}

TEST(Session, WhatIsOnShowIsProtectedAndNothingElse) {
    const auto recording = LongGroups();
    Session session({recording});
    for (std::size_t picture = 0; picture < 5; ++picture) {
        ExpectPicture(Step(session, picture == 0 ? TimePoint() : recording->SampleStart(1)), 0, picture);
        Drain(session);
        const CellRange range{recording->SampleStart(0), recording->SampleStart(6), 6};
        const std::vector<CellState> cells = session.CellStates(0, range);
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            EXPECT_EQ(cells[cell] == CellState::Protected, cell == picture) << cell << " at " << picture;
        }
        EXPECT_EQ(session.GetCounters().tracks.at(0).fetches.nbProtected, 1U);
    }
}

TEST(Session, CacheHoldsNoMorePicturesThanItsWindow) {
    const auto recording = LongGroups();
    SessionOptions options;
    options.ahead = TimePoint().FromMilliseconds(200);
    options.behind = TimePoint().FromMilliseconds(80);
    Session session({recording}, options);
    session.GoTo(MiddleOf(*recording, 0));
    std::size_t mostReady = 0;
    for (std::size_t number = 0; number < recording->NbPictures(); ++number) {
        Step(session, number == 0 ? TimePoint() : recording->SampleStart(1));
        mostReady = std::max(mostReady, session.GetInformation(0).nbReady);
    }
    EXPECT_GE(mostReady, 4U);
    EXPECT_LE(mostReady, 6U + 3U + 2U) << "six ahead, three behind, the one shown and one at the edge";
}

TEST(Session, ReverseDecodesEachGroupOnceWhenItFits) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio(-1, 1));
    const auto last = static_cast<std::int64_t>(recording->NbPictures()) - 1;
    session.GoTo(MiddleOf(*recording, last));
    for (std::int64_t sample = last; sample >= 0; --sample) {
        Step(session, sample == last ? TimePoint() : recording->SampleStart(1));
    }
    const TrackInformation information = session.GetInformation(0);
    EXPECT_EQ(information.reading.nbReads, recording->NbGroups());
    EXPECT_EQ(information.decoding.nbPasses, recording->NbGroups());
}

/// A session on a recording whose third group cannot be read until it is let go.
class WithASlowGroup : public testing::Test {
protected:
    static constexpr std::size_t kSlow = 2;

    WithASlowGroup() {
        session_.Preloader().SetReadHook(
            [released = release_.get_future().share()](const auto&, std::size_t group) {
                if (group == kSlow) {
                    released.wait();
                }
            });
        ExpectPicture(Step(session_, TimePoint()), 0, 0);
    }
    ~WithASlowGroup() override { LetGo(); }

    void LetGo() {
        if (!isLetGo_) {
            release_.set_value();
        }
        isLetGo_ = true;
    }

    [[nodiscard]] TimePoint InSlowGroup() const {
        const auto picture = static_cast<std::int64_t>(LongGroups()->Group(kSlow).firstPicture);
        return MiddleOf(*LongGroups(), picture + 7);
    }

    std::promise<void> release_;
    bool isLetGo_ = false;
    Session session_{{LongGroups()}};
};

TEST_F(WithASlowGroup, DraggedThereTheNearestPictureStandsInUntilTheExactOneIsThere) {
    session_.DragTo(InSlowGroup());
    const TickReport dragged = session_.Tick(TimePoint());
    EXPECT_FALSE(dragged.IsReady());
    ASSERT_NE(dragged.tracks[0].picture, nullptr);
    EXPECT_TRUE(dragged.tracks[0].standIn);
    LetGo();
    const TickReport report = Settle(session_, dragged);
    ExpectPicture(report, 0, LongGroups()->Group(kSlow).firstPicture + 7);
    EXPECT_FALSE(report.tracks[0].standIn);
}

TEST_F(WithASlowGroup, AJumpThereKeepsWhatIsOnShowAndNothingStandsIn) {
    session_.GoTo(InSlowGroup());
    const TickReport jumped = session_.Tick(TimePoint());
    EXPECT_FALSE(jumped.IsReady());
    ASSERT_NE(jumped.tracks[0].picture, nullptr);
    EXPECT_EQ(jumped.tracks[0].picture->Number(), 0U);
    EXPECT_FALSE(jumped.tracks[0].standIn);
}

TEST_F(WithASlowGroup, TheLatestJumpIsServedAsSoonAsTheReadInItsWayIsGivenUp) {
    session_.GoTo(InSlowGroup());
    session_.Tick(TimePoint());
    session_.GoTo(MiddleOf(*LongGroups(), 30));
    LetGo();
    ExpectPicture(Step(session_, TimePoint()), 0, 30);
    Drain(session_);
    session_.GoTo(InSlowGroup());
    ExpectPicture(Step(session_, TimePoint()), 0, LongGroups()->Group(kSlow).firstPicture + 7);
}

/// A session that plays so fast that nothing like it can be decoded, on a display so fast that its ticks follow each
/// other as closely.
class FasterThanAnyDecoder : public testing::Test {
protected:
    FasterThanAnyDecoder() {
        session_.AllowStandIns(true);
        session_.SetSpeed(speed_);
        session_.GoTo(MiddleOf(*LongGroups(), 0));
        Step(session_, TimePoint());
    }

    static SessionOptions OnAFastDisplay() {
        SessionOptions options;
        options.displayRate = LongGroups()->Rate() * Ratio(2000, 1);
        return options;
    }

    const Ratio speed_{4000, 1};
    Session session_{{LongGroups()}, OnAFastDisplay()};
    const TimePoint tick_ = TimePoint::StartOfSample(1, session_.DisplayRate());
};

TEST_F(FasterThanAnyDecoder, ThePlayHeadGoesOnAndOtherPicturesStandIn) {
    for (int i = 0; i < 40; ++i) {
        const TickReport report = session_.Tick(tick_);
        EXPECT_TRUE(report.moved) << "tick " << i;
        const TrackView& view = report.tracks[0];
        ASSERT_NE(view.picture, nullptr) << "tick " << i;
        const auto due = LongGroups()->PictureAtTime(report.time);
        ASSERT_TRUE(due.has_value());
        const std::size_t fetched = *due / 2 * 2;
        EXPECT_TRUE(view.standIn || view.picture->Number() == *due || view.picture->Number() == fetched)
            << "picture " << view.picture->Number() << " at " << *due;
        EXPECT_FALSE(view.missing) << "tick " << i;
    }
}

TEST_F(FasterThanAnyDecoder, TheExactPictureIsShownWherePlayingStops) {
    for (std::size_t round = 0; round < 20; ++round) {
        session_.SetSpeed(speed_);
        session_.Tick(tick_);
        session_.SetSpeed(Ratio());
        const TickReport report = Step(session_, TimePoint());
        ExpectPicture(report, 0, LongGroups()->PictureAtTime(report.time).value());
        EXPECT_FALSE(report.tracks[0].standIn);
    }
}

TEST(Session, TooLittleMemoryIsRefusedAndNothingChanges) {
    Session session({LongGroups()});
    const std::size_t before = session.Memory();
    EXPECT_THROW(session.SetMemory(1000), std::invalid_argument);
    EXPECT_EQ(session.Memory(), before);
    SessionOptions options;
    options.memoryBytes = 1000;
    EXPECT_THROW(Session({LongGroups()}, options), std::invalid_argument);
}

TEST(Session, PicturesNeverTakeMoreThanTheirShareOfTheMemory) {
    const auto recording = LongGroups();
    Session session({recording, recording});
    const std::size_t usual = session.Memory();
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        if (round % 10 == 0) {
            // Up and down, to just above the least.
            session.SetMemory(round % 20 == 0 ? usual : usual * 2 / 3);
        }
        session.SetSpeed(Ratio(round % 3 - 1, 1));
        session.GoTo(MiddleOf(*recording, std::uniform_int_distribution<std::int64_t>(0, 99)(random)));
        Step(session, TimePoint());
        for (int tick = 0; tick < 5; ++tick) {
            Step(session, recording->SampleStart(1));
        }
        Drain(session);
        session.Tick(TimePoint());
        for (std::size_t track = 0; track < 2; ++track) {
            const TrackInformation information = session.GetInformation(track);
            EXPECT_LE(information.pictureBytes, information.memoryShare) << "round " << round;
        }
    }
}

TEST(Session, GoingBackInsideTheMemoryReadsAndDecodesNothing) {
    const auto recording = LongGroups();
    SessionOptions options;
    options.memoryBytes = std::size_t{256} << 20U;
    Session session({recording}, options);
    session.SetSpeed(Ratio());
    const auto visit = [&](std::int64_t sample) {
        session.GoTo(MiddleOf(*recording, sample));
        ExpectPicture(Step(session, TimePoint()), 0, static_cast<std::size_t>(sample));
        Drain(session);
    };
    visit(10);
    const TrackCounters atFirst = session.GetCounters().tracks.at(0);
    visit(60);
    const TrackCounters away = session.GetCounters().tracks.at(0);
    ASSERT_GT(away.reads.nbReads, atFirst.reads.nbReads) << "it went nowhere";
    ASSERT_GT(away.decodes.nbPackets, atFirst.decodes.nbPackets) << "it went nowhere";
    visit(10);
    visit(60);
    const TrackCounters back = session.GetCounters().tracks.at(0);
    EXPECT_EQ(back.reads.nbReads, away.reads.nbReads);
    EXPECT_EQ(back.bytes.read, away.bytes.read);
    EXPECT_EQ(back.decodes.nbPackets, away.decodes.nbPackets);
    EXPECT_EQ(back.decodes.nbPasses, away.decodes.nbPasses);
    EXPECT_LE(back.bytes.pictures + back.bytes.compressed, back.bytes.budget);
}

TEST(Session, AJumpLeavesOutPicturesThatNobodyNeeds) {
    const auto recording = LongGroups();
    Session session({recording});
    session.SetSpeed(Ratio());
    session.GoTo(MiddleOf(*recording, 60));
    ExpectPicture(Step(session, TimePoint()), 0, 60);
    // It lies 27 pictures after its key frame, and of three in a row one is referred to by none. The six right before it
    // are kept for who turns round.
    EXPECT_GE(session.GetInformation(0).decoding.nbPacketsLeftOut, 6U);
    session.GoTo(MiddleOf(*recording, 58));
    ExpectPicture(Step(session, TimePoint()), 0, 58);
}

TEST(Session, StepsBackTakeOnePassOverTheGroup) {
    const auto recording = LongGroups();
    Session session({recording});
    const std::size_t key = recording->Group(2).firstPicture;
    session.SetSpeed(Ratio());
    session.GoTo(MiddleOf(*recording, recording->Picture(key).sample));
    Step(session, TimePoint());
    Drain(session);
    const auto before = session.GetInformation(0).decoding.nbPasses;
    for (std::size_t back = 1; back < recording->Group(1).nbPictures; ++back) {
        session.GoTo(MiddleOf(*recording, recording->Picture(key - back).sample));
        const TickReport report = session.Tick(TimePoint());
        EXPECT_TRUE(report.IsReady()) << back << " back";
        ExpectPicture(report, 0, key - back);
        Drain(session);
    }
    // One for the group before.
    EXPECT_LE(session.GetInformation(0).decoding.nbPasses, before + 1);
}

TEST(Session, MayBeDestroyedWhileReadsAndDecodesAreInProgress) {
    for (int round = 0; round < 10; ++round) {
        Session session({LongGroups(), LongGroups()});
        for (int tick = 0; tick < round; ++tick) {
            session.Tick(LongGroups()->SampleStart(1));
        }
    }
}

TEST(Session, WaitForProgressGivesUpAtItsTimeout) {
    Session session({LongGroups()});
    EXPECT_FALSE(session.WaitForProgress(1ms)) << "nothing was ordered yet";
}

}  // namespace
}  // namespace Tavrin::Playout
