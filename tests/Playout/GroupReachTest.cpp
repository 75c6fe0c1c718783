#include "Playout/GroupReach.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <set>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

std::shared_ptr<const RecordingIndex> Groups() {
    static const auto index = RecordingIndex::Build(Support::Clips::ClosedGroups());
    return index;
}

std::size_t PlaceInGroup(std::size_t picture) {
    const auto& indexed = Groups()->Picture(picture);
    return indexed.packet - Groups()->Group(indexed.group).firstPacket;
}

TEST(GroupReach, TheWholeLeavesEveryPictureAsItIs) {
    for (std::size_t picture = 0; picture < Groups()->NbPictures(); ++picture) {
        EXPECT_EQ(PictureWithin(*Groups(), {}, picture), picture);
    }
}

TEST(GroupReach, PicturesWithinReachStandForThemselves) {
    const GroupReach reach{5, 1};
    for (std::size_t picture = 0; picture < Groups()->NbPictures(); ++picture) {
        const std::size_t within = PictureWithin(*Groups(), reach, picture);
        EXPECT_LT(PlaceInGroup(within), 5U);
        if (PlaceInGroup(picture) < 5) {
            EXPECT_EQ(within, picture);
        }
    }
}

TEST(GroupReach, BeyondItTheNearestOfTheGroupOrTheNextKeyFrameStandsIn) {
    const GroupReach reach{1, 1};
    const std::size_t size = Support::Clips::kGroupSize;
    EXPECT_EQ(PictureWithin(*Groups(), reach, size + 2), size);
    EXPECT_EQ(PictureWithin(*Groups(), reach, size + size - 2), 2 * size);
}

TEST(GroupReach, AfterTheLastGroupNothingIsTaken) {
    const std::size_t last = Groups()->NbPictures() - 1;
    EXPECT_EQ(PictureWithin(*Groups(), {1, 1}, last), Groups()->Group(Groups()->NbGroups() - 1).firstPicture);
}

TEST(GroupReach, OnlyEverySoManyGroupsAreDecoded) {
    std::set<std::size_t> groups;
    for (std::size_t picture = 0; picture < Groups()->NbPictures(); ++picture) {
        groups.insert(Groups()->Picture(PictureWithin(*Groups(), {1, 3}, picture)).group);
    }
    EXPECT_EQ(groups, (std::set<std::size_t>{0, 3}));
}

TEST(GroupReach, IsWholeWhereThereIsTheTime) {
    EXPECT_TRUE(ReachFor(*Groups(), 1).IsWhole());
    EXPECT_TRUE(ReachFor(*Groups(), 7).IsWhole());
    EXPECT_FALSE(ReachFor(*Groups(), 0.9).IsWhole());
}

TEST(GroupReach, ShrinksWithTheShareAndNeverToNothing) {
    std::size_t before = GroupReach::kWhole;
    for (const double share : {0.9, 0.7, 0.5, 0.3}) {
        const GroupReach reach = ReachFor(*Groups(), share);
        EXPECT_LT(reach.nbPackets, before) << share;
        EXPECT_GE(reach.nbPackets, 1U) << share;
        before = reach.nbPackets;
    }
    const GroupReach least = ReachFor(*Groups(), 0);
    EXPECT_EQ(least.nbPackets, 1U);
    EXPECT_EQ(least.everyGroups, Groups()->NbGroups());
}

}  // namespace
}  // namespace Tavrin::Playout
