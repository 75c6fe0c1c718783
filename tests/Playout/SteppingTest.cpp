#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/FailingStorage.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Time::Ratio;
using Time::TimePoint;

/// Far beyond what any answer takes: reached only when one never comes.
constexpr auto kDeadline = 60s;

/// A play head that stands in one group, while the group before it is being read and does not come.
class StepsBesideASlowGroup : public testing::Test {
protected:
    static constexpr std::size_t kSlow = 1;

    StepsBesideASlowGroup() {
        session_.Preloader().SetReadHook(
            [this, released = release_.get_future().share()](const auto&, std::size_t group) {
                if (group == kSlow) {
                    ++nbSlowReads_;
                    released.wait();
                }
            });
        session_.SetSpeed(Ratio());
        GoTo(stand_);
        LookUntil([this] { return ShownNumber() == stand_ && nbSlowReads_ > 0 && NbBefore() >= 3; });
    }
    ~StepsBesideASlowGroup() override { LetGo(); }

    void GoTo(std::size_t picture) {
        session_.GoTo(recording_->SampleStart(static_cast<std::int64_t>(picture)) +
                      recording_->SampleStart(1) / 2);
        report_ = session_.Tick(TimePoint());
    }

    template <typename Condition>
    void LookUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            session_.WaitForProgress(20ms);
            report_ = session_.Tick(TimePoint());
        }
    }

    void LetGo() {
        if (!isLetGo_) {
            release_.set_value();
        }
        isLetGo_ = true;
    }

    [[nodiscard]] std::optional<std::size_t> ShownNumber() const {
        const TrackView& view = report_.tracks.at(0);
        return report_.IsReady() && view.picture != nullptr ? std::optional(view.picture->Number())
                                                            : std::nullopt;
    }

    /// Pictures that are ready right before the one the play head stands on.
    [[nodiscard]] std::size_t NbBefore() const {
        const TimePoint end = recording_->SampleStart(static_cast<std::int64_t>(stand_));
        std::size_t nb = 0;
        for (const CellState& cell : session_.CellStates(0, {end - recording_->SampleStart(3), end, 3})) {
            nb += cell == CellState::Ready || cell == CellState::Protected ? 1 : 0;
        }
        return nb;
    }

    std::shared_ptr<const RecordingIndex> recording_ = RecordingIndex::Build(Support::Clips::LongGroups());
    std::size_t stand_ = recording_->Group(kSlow + 1).firstPicture + 6;
    std::promise<void> release_;
    bool isLetGo_ = false;
    std::atomic<int> nbSlowReads_{0};
    TickReport report_;
    Session session_{{recording_}};
};

TEST_F(StepsBesideASlowGroup, WhatIsUnderWayNearbyGoesOn) {
    const std::uint64_t nbWithdrawn = session_.GetInformation(0).nbWithdrawn;
    for (const std::size_t picture : {stand_ - 1, stand_ - 2, stand_ - 3}) {
        GoTo(picture);
        EXPECT_EQ(ShownNumber(), picture);
    }
    EXPECT_EQ(session_.GetInformation(0).nbWithdrawn, nbWithdrawn);
    LetGo();
    LookUntil([this] { return session_.GetInformation(0).nbPending == 0; });
    EXPECT_EQ(nbSlowReads_, 1);
    EXPECT_EQ(session_.GetInformation(0).reading.nbAbandonedReads, 0U);
    EXPECT_EQ(session_.GetInformation(0).decoding.nbAbandoned, 0U);
}

TEST_F(StepsBesideASlowGroup, FarAwayNothingOfItMattersAnyMore) {
    const std::uint64_t nbWithdrawn = session_.GetInformation(0).nbWithdrawn;
    GoTo(0);
    EXPECT_GT(session_.GetInformation(0).nbWithdrawn, nbWithdrawn);
    LetGo();
    LookUntil([this] { return ShownNumber() == 0U && session_.GetInformation(0).nbPending == 0; });
    EXPECT_GT(session_.GetInformation(0).reading.nbAbandonedReads, 0U);
}

TEST_F(StepsBesideASlowGroup, ToStopWithdrawsNothing) {
    session_.SetSpeed(Ratio(-1, 1));
    report_ = session_.Tick(TimePoint());
    const TrackInformation before = session_.GetInformation(0);
    ASSERT_GT(before.nbPending, 0U);
    session_.SetSpeed(Ratio());
    EXPECT_EQ(session_.GetInformation(0).nbWithdrawn, before.nbWithdrawn);
    EXPECT_EQ(session_.GetInformation(0).nbPending, before.nbPending);
}

TEST(Stepping, AStillPlayHeadHasHalfASecondReadyOnEitherSide) {
    const auto recording = RecordingIndex::Build(Support::Clips::LongGroups());
    Session session({recording});
    session.SetSpeed(Ratio());
    const std::int64_t stand = 50;
    session.GoTo(recording->SampleStart(stand) + recording->SampleStart(1) / 2);
    constexpr std::int64_t kEach = 12;
    const CellRange around{recording->SampleStart(stand - kEach), recording->SampleStart(stand + kEach + 1),
                           2 * kEach + 1};
    const auto nbReady = [&] {
        const std::vector<CellState> cells = session.CellStates(0, around);
        return std::count(cells.begin(), cells.end(), CellState::Ready) +
               std::count(cells.begin(), cells.end(), CellState::Protected);
    };
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    session.Tick(TimePoint());
    while (nbReady() < 2 * kEach + 1 && session.GetInformation(0).nbPending > 0) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        session.WaitForProgress(20ms);
        session.Tick(TimePoint());
    }
    EXPECT_EQ(nbReady(), 2 * kEach + 1);
}

TEST(Stepping, OntoAPictureThatCouldNotBeHadAsksForItAgain) {
    const auto recording = RecordingIndex::Build(Support::Clips::LongGroups());
    const TimePoint half = recording->SampleStart(1) / 2;
    SessionOptions options;
    options.retryAfter = 1h;
    Session session({recording}, options);
    Support::FailingStorage storage(session);
    session.SetSpeed(Ratio());
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    const auto goTo = [&](std::int64_t picture) {
        session.GoTo(recording->SampleStart(picture) + half);
        TickReport report = session.Tick(TimePoint());
        while (!report.IsReady() && std::chrono::steady_clock::now() < deadline) {
            session.WaitForProgress(20ms);
            report = session.Tick(TimePoint());
        }
        return report;
    };
    EXPECT_TRUE(goTo(4).tracks.at(0).missing);
    storage.ComeBack();
    const TickReport report = goTo(3);
    EXPECT_FALSE(report.tracks.at(0).missing);
    ASSERT_NE(report.tracks.at(0).picture, nullptr);
    EXPECT_EQ(report.tracks.at(0).picture->Number(), 3U);
}

TEST(Stepping, ToStopOnAPictureThatCouldNotBeHadAsksForItAgain) {
    const auto recording = RecordingIndex::Build(Support::Clips::LongGroups());
    SessionOptions options;
    options.retryAfter = 1h;
    Session session({recording}, options);
    Support::FailingStorage storage(session);
    session.GoTo(recording->SampleStart(4) + recording->SampleStart(1) / 2);
    TickReport report = session.Tick(TimePoint());
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    const auto lookUntil = [&](bool missing) {
        while (!report.IsReady() || report.tracks.at(0).missing != missing) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            session.WaitForProgress(20ms);
            report = session.Tick(TimePoint());
        }
    };
    lookUntil(true);
    storage.ComeBack();
    session.SetSpeed(Ratio());
    lookUntil(false);
    ASSERT_NE(report.tracks.at(0).picture, nullptr);
    EXPECT_EQ(report.tracks.at(0).picture->Number(), 4U);
}

TEST(Turning, SoonAfterAJumpWhatLiesBehindIsThere) {
    const auto recording = RecordingIndex::Build(Support::Clips::LongGroups());
    const TimePoint half = recording->SampleStart(1) / 2;
    for (const std::int64_t speed : {1, -1}) {
        // In the middle of a group, and where the group before, or after, is needed.
        for (const std::int64_t picture : {50, 67, 64}) {
            Session session({recording});
            session.SetSpeed(Ratio(speed, 1));
            session.GoTo(recording->SampleStart(picture) + half);
            TickReport report = session.Tick(TimePoint());
            const auto deadline = std::chrono::steady_clock::now() + kDeadline;
            while (!report.IsReady() || session.GetInformation(0).nbPending > 0) {
                ASSERT_LT(std::chrono::steady_clock::now(), deadline);
                session.WaitForProgress(20ms);
                report = session.Tick(TimePoint());
            }
            session.SetSpeed(Ratio(-speed, 1));
            for (std::int64_t step = 1; step <= 5; ++step) {
                report = session.Tick(recording->SampleStart(1));
                ASSERT_TRUE(report.IsReady()) << picture << " at " << speed << ", step " << step;
                EXPECT_EQ(report.tracks.at(0).picture->Number(),
                          static_cast<std::size_t>(picture - speed * step));
            }
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
