// A wall of a hundred tracks, with rules, offsets, speeds and jumps at random and the storage of one of them silent.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Playout/Counters.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

namespace Clips = Support::Clips;

constexpr std::size_t kNbTracks = 100;
constexpr std::size_t kSilent = 37;

/// Only there to turn a hang into a failure.
constexpr std::chrono::seconds kDeadline{120};

std::uint64_t Seed() {
    const char* const chosen = std::getenv("TAVRIN_TEST_SEED");
    const std::uint64_t seed = chosen != nullptr ? std::stoull(chosen) : 20'240'229;
    std::cout << "TAVRIN_TEST_SEED=" << seed << std::endl;
    return seed;
}

class Wall : public testing::Test {
protected:
    Wall() : random_(Seed()) {
        std::vector<std::shared_ptr<const RecordingIndex>> indexes;
        for (const std::string& file :
             {Clips::Short(), Clips::Ntsc(), Clips::OpenGroups(), Clips::VariableRate(),
              Clips::HoledMatroska(), Clips::NumberedMotionJpeg(), Clips::SingleGroup()}) {
            indexes.push_back(RecordingIndex::Build(file));
        }
        std::vector<SessionTrack> tracks;
        for (std::size_t track = 0; track < kNbTracks; ++track) {
            tracks.push_back({indexes[Below(indexes.size())], AnyOffset(), AnyRule(track), 1});
        }
        SessionOptions options;
        session_ = std::make_unique<Session>(std::move(tracks), options);
        session_->Preloader().SetReadHook([this](const Player::TrackId& id, std::size_t) {
            std::unique_lock<std::mutex> lock(mutex_);
            ++nbReads_;
            opened_.wait_for(lock, kDeadline, [&] { return isOpen_ || id.Id() != std::int64_t{kSilent}; });
        });
    }

    ~Wall() override { Open(); }

    void Open() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isOpen_ = true;
        }
        opened_.notify_all();
    }

    std::size_t Below(std::size_t end) { return random_() % end; }

    TimePoint AnyOffset() {
        // The origin is before the end of the shortest recording.
        return TimePoint().FromNanoseconds(static_cast<std::int64_t>(Below(2'400'000'000)) - 400'000'000);
    }

    /// The silent track is one that may be left behind.
    ReadinessRule AnyRule(std::size_t track) {
        const std::size_t kind = track == kSilent ? 1 + Below(2) : Below(3);
        return kind == 0   ? ReadinessRule::Required()
               : kind == 1 ? ReadinessRule::Optional()
                           : ReadinessRule::HoldUpTo(
                                 TimePoint().FromMilliseconds(5 + static_cast<std::int64_t>(Below(50))));
    }

    Ratio AnySpeed() {
        const std::vector<Ratio> speeds{Ratio(1, 1), Ratio(-1, 1), Ratio(4, 1), Ratio(-16, 1),
                                        Ratio(1, 2), Ratio(-3, 7), Ratio(),     Ratio(2, 1)};
        return speeds[Below(speeds.size())];
    }

    /// What each track shows belongs where the play head is, or the track says that it does not.
    void ExpectTruth(const TickReport& report) const {
        std::size_t nbWaits = 0;
        for (std::size_t track = 0; track < kNbTracks; ++track) {
            const TrackView& view = report.tracks[track];
            const auto exact = session_->PictureAtTime(track, report.time);
            if (view.status == SampleStatus::NotReady) {
                ASSERT_EQ(report.waits.at(nbWaits++).track, track);
                continue;
            }
            if (!exact) {
                EXPECT_EQ(view.status, SampleStatus::Empty) << "track " << track << " at " << report.time;
                EXPECT_EQ(view.picture, nullptr) << "track " << track << " at " << report.time;
            }
            if (session_->Speed().Abs() <= Ratio(1, 1) && exact && !view.missing && !view.standIn) {
                ASSERT_NE(view.picture, nullptr);
                EXPECT_EQ(view.picture->Number(), *exact) << "track " << track << " at " << report.time;
            }
        }
        EXPECT_EQ(nbWaits, report.waits.size());
        for (const TrackWait& wait : report.waits) {
            const bool isRequired = session_->Track(wait.track).rule == ReadinessRule::Required();
            EXPECT_NE(wait.cause, WaitCause::None);
            EXPECT_TRUE(wait.holds || !isRequired);
            EXPECT_EQ(wait.holds && !isRequired, wait.left.has_value());
        }
    }

    static std::string Holder(const TickReport& report) {
        const auto holder = std::find_if(report.waits.begin(), report.waits.end(),
                                         [](const TrackWait& wait) { return wait.holds; });
        return holder == report.waits.end() ? "nobody" : "track " + std::to_string(holder->track);
    }

    /// Looks again until nothing holds the play head.
    void AwaitReady() {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        TickReport report = session_->Tick(TimePoint());
        while (!report.IsReady()) {
            ExpectTruth(report);
            ASSERT_LT(std::chrono::steady_clock::now(), deadline)
                << Holder(report) << " holds all at " << report.time;
            session_->WaitForProgress(5ms);
            report = session_->Tick(TimePoint());
        }
        ExpectTruth(report);
    }

    std::mt19937_64 random_;
    std::mutex mutex_;
    std::condition_variable opened_;
    bool isOpen_ = false;
    std::uint64_t nbReads_ = 0;
    std::unique_ptr<Session> session_;
};

TEST_F(Wall, OfAHundredTracksASilentStorageStopsNobody) {
    const TimePoint period = TimePoint::StartOfSample(1, session_->DisplayRate());
    std::size_t nbMoves = 0;
    for (int run = 0; run < 25 && !HasFatalFailure(); ++run) {
        session_->SetSpeed(AnySpeed());
        session_->GoTo(TimePoint().FromNanoseconds(
            static_cast<std::int64_t>(Below(static_cast<std::size_t>(session_->End().Nanoseconds())))));
        for (int tick = 0; tick < 8 && !HasFatalFailure(); ++tick) {
            AwaitReady();
            const TimePoint before = session_->CurrentTime();
            const TickReport report = session_->Tick(period);
            ExpectTruth(report);
            nbMoves += report.moved ? 1 : 0;
            EXPECT_EQ(report.time,
                      report.moved ? std::max(before + period * session_->Speed(), TimePoint()) : before);
        }
    }
    EXPECT_GT(nbMoves, 100U);
    EXPECT_EQ(session_->GetCounters().tracks[kSilent].pictures.nbExact, 0U);
    Open();
}

TEST_F(Wall, OfAHundredTracksMayBeTakenDownAtAnyTime) {
    for (int tick = 0; tick < 5; ++tick) {
        session_->Tick(TimePoint::StartOfSample(1, session_->DisplayRate()));
    }
    Open();
}

TEST_F(Wall, OfAHundredTracksJumpsFasterThanAnyAnswerEndAtTheLastOne) {
    session_->SetSpeed(Ratio());
    for (int jump = 0; jump < 40; ++jump) {
        session_->GoTo(TimePoint().FromNanoseconds(
            static_cast<std::int64_t>(Below(static_cast<std::size_t>(session_->End().Nanoseconds())))));
        ExpectTruth(session_->Tick(TimePoint()));
    }
    AwaitReady();
}

}  // namespace
}  // namespace Tavrin::Playout
