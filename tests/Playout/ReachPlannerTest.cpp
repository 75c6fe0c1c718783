#include "Playout/ReachPlanner.h"

#include <gtest/gtest.h>

namespace Tavrin::Playout {
namespace {

/// Asked once, from the beginning.
ReachPlanner Planned(double wanted, double measured) {
    ReachPlanner planner;
    planner.Plan(wanted, measured);
    return planner;
}

void ExpectNothingLeftOut(const ReachPlanner& planner) {
    EXPECT_FALSE(planner.LeavesOut());
    EXPECT_EQ(planner.Share(), 1);
}

TEST(ReachPlanner, LeavesNothingOutBeforeItIsAsked) {
    ExpectNothingLeftOut(ReachPlanner());
}

TEST(ReachPlanner, LeavesNothingOutWhereAllMustBeShown) {
    ExpectNothingLeftOut(Planned(0, 1));
}

TEST(ReachPlanner, LeavesNothingOutWhereThereIsTheTime) {
    ExpectNothingLeftOut(Planned(100, 100));
}

TEST(ReachPlanner, TakesOnLessThanIsPossible) {
    const ReachPlanner planner = Planned(400, 100);
    EXPECT_TRUE(planner.LeavesOut());
    EXPECT_GT(planner.Share(), 0.15);
    EXPECT_LT(planner.Share(), 0.25);
}

TEST(ReachPlanner, GoesBackOnlyWithTimeToSpare) {
    ReachPlanner planner = Planned(101, 100);
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
    ReachPlanner planner = Planned(1, 0);
    ExpectNothingLeftOut(planner);
    planner.Plan(1e12, 0);
    EXPECT_TRUE(planner.LeavesOut());
    EXPECT_GT(planner.Share(), 0);
}

}  // namespace
}  // namespace Tavrin::Playout
