#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>

#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

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

}  // namespace
}  // namespace Tavrin::Playout
