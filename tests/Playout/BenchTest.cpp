#include "Playout/Bench.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/CrewPlan.h"
#include "Playout/MemoryPlan.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

/// Far beyond what anything takes here.
constexpr double kDeadlineMs = 30'000;

std::vector<std::string> NamesOf(const std::vector<BenchCase>& cases) {
    std::vector<std::string> names;
    for (const BenchCase& what : cases) {
        names.push_back(what.name);
    }
    return names;
}

double FigureOf(const BenchFigures& figures, const std::string& name) {
    const auto figure = std::find_if(figures.begin(), figures.end(),
                                     [&name](const auto& entry) { return entry.first == name; });
    if (figure == figures.end()) {
        throw std::runtime_error("there is no figure " + name);
    }
    return figure->second;
}

BenchFigures RunCase(const std::string& name, const std::string& file = Support::Clips::Numbered(),
                     std::chrono::milliseconds duration = std::chrono::milliseconds(300)) {
    BenchOptions options;
    options.duration = duration;
    options.nbTries = 6;
    return RunBenchCase(SelectBenchCases(name).at(0), file, options);
}

TEST(Bench, CasesHaveNamesOfTheirOwn) {
    const auto names = NamesOf(BenchCases());
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
}

TEST(Bench, NameOfACaseSelectsItAlone) {
    EXPECT_EQ(NamesOf(SelectBenchCases("play:-1")), std::vector<std::string>{"play:-1"});
}

TEST(Bench, NameOfAKindSelectsAllOfItInTheBenchsOrder) {
    EXPECT_EQ(NamesOf(SelectBenchCases("jump,step")),
              (std::vector<std::string>{"step:back", "step:forward", "jump"}));
}

TEST(Bench, CaseNamedTwiceIsSelectedOnce) {
    EXPECT_EQ(SelectBenchCases("step,step:back,step").size(), 2U);
}

TEST(Bench, UnknownNameIsRefused) {
    EXPECT_THROW((void)SelectBenchCases("jump,hop"), std::invalid_argument);
    EXPECT_THROW((void)SelectBenchCases("play:"), std::invalid_argument);
    EXPECT_THROW((void)RunBenchCase({"hop"}, Support::Clips::Numbered(), {}), std::invalid_argument);
}

TEST(Bench, AsFastAsPossibleEveryTickIsRight) {
    for (const char* name : {"fast:forward", "fast:backward-2-groups", "fast:backward-quarter-group"}) {
        const auto figures = RunCase(name);
        EXPECT_EQ(FigureOf(figures, "rightPercent"), 100) << name;
        EXPECT_GT(FigureOf(figures, "picturesPerSecond"), 0) << name;
    }
}

TEST(Bench, BudgetIsThatOfTheCase) {
    const auto index = RecordingIndex::Build(Support::Clips::Numbered());
    const TrackNeeds needs = NeedsOf(*index, PlanLanes(*index, 1, NbCoresHere()));
    const double least = static_cast<double>(needs.least) / (1 << 20);
    const double twoGroups = FigureOf(RunCase("fast:backward-2-groups"), "budgetMiB");
    const double quarter = FigureOf(RunCase("fast:backward-quarter-group"), "budgetMiB");
    EXPECT_NEAR((twoGroups - least) / (quarter - least), 8, 0.01);
}

TEST(Bench, EveryCommandLeadsToThePictureAskedFor) {
    for (const char* name : {"step:back", "step:forward", "turn", "near", "jump"}) {
        const auto figures = RunCase(name);
        EXPECT_GE(FigureOf(figures, "tries"), 6) << name;
        EXPECT_EQ(FigureOf(figures, "wrong"), 0) << name;
        EXPECT_LE(FigureOf(figures, "p50Ms"), FigureOf(figures, "maxMs")) << name;
    }
}

TEST(Bench, DraggingEndsAtTheExactPictureEachTime) {
    const auto figures = RunCase("drag");
    EXPECT_EQ(FigureOf(figures, "wrong"), 0);
    // One drag fills the time, but for less than a step of the mouse, in which another one may begin.
    EXPECT_GE(FigureOf(figures, "tries"), 1);
    EXPECT_LE(FigureOf(figures, "tries"), 2);
    EXPECT_EQ(FigureOf(figures, "ticksAfter"), 0) << "nothing is played after a drag";
}

TEST(Bench, FiguresOfADragAreInOrder) {
    const auto figures = RunCase("drag");
    EXPECT_EQ(FigureOf(figures, "tickMs"), 40);
    double shorter = 0;
    for (const char* name : {"p50Ms", "p95Ms", "p99Ms", "maxMs"}) {
        EXPECT_GE(FigureOf(figures, name), shorter) << name;
        shorter = FigureOf(figures, name);
    }
    EXPECT_LT(shorter, kDeadlineMs);
    // The mouse moves on by a picture or more at nearly all of its steps, and stands at none for longer than a drag.
    EXPECT_GT(FigureOf(figures, "newPerSecond"), 1);
    EXPECT_LE(FigureOf(figures, "newPerSecond"), 1000);
    EXPECT_GT(FigureOf(figures, "gapMs"), 1000 / FigureOf(figures, "newPerSecond") / 2);
    EXPECT_LT(FigureOf(figures, "gapMs"), kDeadlineMs);
    EXPECT_GT(FigureOf(figures, "peakMiB"), 0);
}

TEST(Bench, InRealTimeARunLastsAsLongAsAsked) {
    const auto figures = RunCase("play:1");
    EXPECT_GE(FigureOf(figures, "ticks"), 2);
    EXPECT_LE(FigureOf(figures, "ticks"), 12);
}

TEST(Bench, SaysWhetherPicturesWereReadOrTheirNumbersBelieved) {
    EXPECT_EQ(FigureOf(RunCase("play:1"), "hasBarCode"), 1);
    EXPECT_EQ(FigureOf(RunCase("play:1"), "unreadPictures"), 0);
    EXPECT_EQ(FigureOf(RunCase("play:1", Support::Clips::ClosedGroups()), "hasBarCode"), 0);
}

TEST(Bench, SpeedThatPlayingReportsIsThatAtWhichPicturesComeOnShow) {
    const auto figures = RunCase("tracks:8-backward", Support::Clips::Numbered(), std::chrono::seconds(2));
    const double passed = FigureOf(figures, "newPerSecond") / 8 * FigureOf(figures, "tickMs") / 1000;
    EXPECT_NEAR(FigureOf(figures, "saidSpeed"), passed, 0.05);
}

TEST(Bench, RecordingShorterThanTheRunIsPlayedAgain) {
    EXPECT_GT(FigureOf(RunCase("play:16"), "ticks"), 5);
}

}  // namespace
}  // namespace Tavrin::Playout
