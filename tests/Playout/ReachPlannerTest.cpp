#include "Playout/ReachPlanner.h"

#include <gtest/gtest.h>

namespace Tavrin::Playout {
namespace {

TEST(ReachPlanner, LeavesNothingOutBeforeItIsAsked) {
    const ReachPlanner planner;
    EXPECT_FALSE(planner.LeavesOut());
    EXPECT_EQ(planner.Share(), 1);
}

TEST(ReachPlanner, LeavesNothingOutWhereAllMustBeShown) {
    ReachPlanner planner;
    planner.Plan(0, 1);
    EXPECT_FALSE(planner.LeavesOut());
    EXPECT_EQ(planner.Share(), 1);
}

TEST(ReachPlanner, LeavesNothingOutWhereThereIsTheTime) {
    ReachPlanner planner;
    planner.Plan(100, 100);
    EXPECT_FALSE(planner.LeavesOut());
    EXPECT_EQ(planner.Share(), 1);
}

TEST(ReachPlanner, TakesOnLessThanIsPossible) {
    ReachPlanner planner;
    planner.Plan(400, 100);
    EXPECT_TRUE(planner.LeavesOut());
    EXPECT_GT(planner.Share(), 0.15);
    EXPECT_LT(planner.Share(), 0.25);
}

TEST(ReachPlanner, GoesBackOnlyWithTimeToSpare) {
    ReachPlanner planner;
    planner.Plan(101, 100);
    ASSERT_TRUE(planner.LeavesOut());
    planner.Plan(90, 100);
    EXPECT_TRUE(planner.LeavesOut()) << "little more than what is needed";
    EXPECT_LT(planner.Share(), 1);
    planner.Plan(70, 100);
    EXPECT_FALSE(planner.LeavesOut());
    planner.Plan(90, 100);
    EXPECT_FALSE(planner.LeavesOut());
}

TEST(ReachPlanner, AssumesSomethingUntilItIsMeasured) {
    ReachPlanner planner;
    planner.Plan(1, 0);
    EXPECT_FALSE(planner.LeavesOut());
    planner.Plan(1e12, 0);
    EXPECT_TRUE(planner.LeavesOut());
    EXPECT_GT(planner.Share(), 0);
}

}  // namespace
}  // namespace Tavrin::Playout
