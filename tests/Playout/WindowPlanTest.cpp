#include "Playout/WindowPlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "Playout/MemoryPlan.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using namespace std::chrono_literals;
using Time::Ratio;

constexpr std::size_t kPlenty = std::size_t{1} << 40U;

class WindowOf {
public:
    /// What is known of the decoders: how long a group takes, and how many pictures they are putting out.
    struct Making {
        std::chrono::nanoseconds groupTime{};
        std::size_t nbPictures = 0;
    };

    explicit WindowOf(const std::string& file) : index_(RecordingIndex::Build(file)) {}

    /// With the usual memory.
    [[nodiscard]] StreamWindow At(const Ratio& speed) const {
        const TrackNeeds needs = NeedsOf(*index_, PlanLanes(*index_, 1, 2));
        return PlanWindow(*index_, index_->Rate(), speed,
                          {needs.usual - needs.packets - needs.working, needs.packets}, SessionOptions());
    }

    [[nodiscard]] StreamWindow WithRoom(const WindowRoom& room, const Ratio& speed) const {
        return PlanWindow(*index_, index_->Rate(), speed, room, SessionOptions());
    }

    /// Backward, with the memory of so many pictures beside that of a whole group.
    [[nodiscard]] StreamWindow BesideAGroup(std::size_t nbPictures, const Making& making) const {
        const std::size_t picture = NeedsOf(*index_, {2, 1}).picture;
        WindowRoom room{(LongestGroup(*index_) + nbPictures) * picture, kPlenty};
        room.groupTime = making.groupTime;
        room.beingMade = making.nbPictures * picture;
        return WithRoom(room, Ratio(-1, 1));
    }

    [[nodiscard]] const RecordingIndex& Index() const { return *index_; }

private:
    std::shared_ptr<const RecordingIndex> index_;
};

TEST(WindowPlan, IsALengthOfWallTimeAheadAndBehind) {
    const WindowOf window(Clips::LongGroups());
    // At 25 pictures a second, 1.5 s and 0.2 s, and the one that has begun.
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(1, 1)).nbDecodedAhead, 38U);
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(1, 1)).nbDecodedBehind, 6U);
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(-1, 1)).nbDecodedAhead, 38U);
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(1, 2)).nbDecodedAhead, 19U);
}

TEST(WindowPlan, HasAsManySamplesAtHighSpeedsAsTheDisplayShows) {
    const WindowOf window(Clips::LongGroups());
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(4, 1)).nbDecodedAhead, 38U);
    EXPECT_EQ(window.WithRoom({kPlenty, kPlenty}, Ratio(-16, 1)).nbDecodedAhead, 38U);
}

TEST(WindowPlan, ReachesEquallyFarEitherWayAroundAPlayHeadThatStands) {
    const StreamWindow window = WindowOf(Clips::LongGroups()).WithRoom({kPlenty, kPlenty}, Ratio());
    EXPECT_EQ(window.nbDecodedBehind, window.nbDecodedAhead);
    EXPECT_GE(window.nbDecodedAhead, 12U);
}

TEST(WindowPlan, PicturesThatStandAloneHaveTheSameWindow) {
    for (const std::string& file : {Clips::MotionJpeg(), Clips::IntraOnlyH264(), Clips::ProRes()}) {
        for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(4, 1)}) {
            const WindowOf window(file);
            EXPECT_GE(window.At(speed).nbDecodedAhead,
                      std::min<std::size_t>(30, window.Index().NbPictures() - 1))
                << file << " at " << speed.Numerator();
        }
    }
}

TEST(WindowPlan, ShortGroupsHaveTheSameWindow) {
    EXPECT_GE(WindowOf(Clips::ClosedGroups()).At(Ratio(1, 1)).nbDecodedAhead, 30U);
}

TEST(WindowPlan, WithoutRoomTheFewestAheadAreKept) {
    const StreamWindow window = WindowOf(Clips::LongGroups()).WithRoom({0, 0}, Ratio(1, 1));
    EXPECT_EQ(window.nbDecodedAhead, kFewestAhead);
    EXPECT_EQ(window.nbDecodedBehind, 0U);
}

TEST(WindowPlan, AroundAStillPlayHeadBothSidesFitTogether) {
    const WindowOf window(Clips::LongGroups());
    const std::size_t picture = NeedsOf(window.Index(), {2, 1}).picture;
    for (std::size_t nbFitting = kFewestAhead + 2; nbFitting < 120; ++nbFitting) {
        const StreamWindow still = window.WithRoom({nbFitting * picture, kPlenty}, Ratio());
        EXPECT_LE(2 * still.nbDecodedAhead + 1, nbFitting);
        EXPECT_GE(still.nbDecodedAhead, kFewestAhead / 2);
    }
}

TEST(WindowPlan, BackwardPartOfAGroupHasRoomBesideItWhileNothingIsKnownOfHowLongItTakes) {
    const WindowOf window(Clips::LongGroups());
    const std::size_t picture = NeedsOf(window.Index(), {2, 1}).picture;
    EXPECT_EQ(window.WithRoom({40 * picture, kPlenty}, Ratio(1, 1)).nbDecodedAhead, 33U);
    EXPECT_EQ(window.WithRoom({40 * picture, kPlenty}, Ratio(-1, 1)).nbDecodedAhead, 17U);
}

TEST(WindowPlan, BackwardAWholeGroupHasRoomWhereItIsDecodedInTime) {
    const WindowOf window(Clips::LongGroups());
    // Beside the group there is room for the picture on show, six behind it and eight ahead: 320 ms.
    EXPECT_EQ(window.BesideAGroup(15, {50ms}).nbDecodedAhead, 8U);
    EXPECT_EQ(window.BesideAGroup(15, {180ms}).nbDecodedAhead, 8U);
    EXPECT_GT(window.BesideAGroup(15, {240ms}).nbDecodedAhead, 16U);
}

TEST(WindowPlan, BackwardAGroupThatTakesLongIsBegunEarlierWhereThereIsRoom) {
    const WindowOf window(Clips::LongGroups());
    const std::size_t group = LongestGroup(window.Index());
    // 1.5 s hold 38 pictures; a group that takes 1.2 s is begun 1.8 s before it is due.
    EXPECT_EQ(window.BesideAGroup(3 * group, {0ms}).nbDecodedAhead, 38U);
    EXPECT_EQ(window.BesideAGroup(3 * group, {1200ms}).nbDecodedAhead, 46U);
    // Beyond what there is room for, it would come late anyhow.
    EXPECT_EQ(window.BesideAGroup(3 * group, {9000ms}).nbDecodedAhead, 38U);
}

TEST(WindowPlan, WhatDecodersArePuttingOutTakesRoomBesideAWholeGroup) {
    const WindowOf window(Clips::LongGroups());
    EXPECT_EQ(window.BesideAGroup(25, {50ms}).nbDecodedAhead, 18U);
    EXPECT_EQ(window.BesideAGroup(25, {50ms, 6}).nbDecodedAhead, 12U);
}

TEST(WindowPlan, ReadsBeyondWhatIsDecoded) {
    const StreamWindow window = WindowOf(Clips::LongGroups()).WithRoom({kPlenty, kPlenty}, Ratio(1, 1));
    EXPECT_EQ(window.nbCompressedAhead, window.nbDecodedAhead + 25);
}

}  // namespace
}  // namespace Tavrin::Playout
