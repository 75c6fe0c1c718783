#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Playout/Support/Clips.h"
#include "Playout/Support/ProgramRun.h"

// `playout bench` as people run it.

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Support::ProgramResult;
using Support::ProgramRun;

ProgramResult RunBench(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {PLAYOUT_PROGRAM, "bench"});
    return ProgramRun(arguments).Finish();
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(ProgramBench, PrintsATableWithALineForEachCase) {
    const auto result = RunBench({Clips::Numbered(), "--cases", "fast:forward,jump", "--tries", "3"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(Contains(result.output, "\nfast:forward ")) << result.output;
    EXPECT_TRUE(Contains(result.output, "\njump ")) << result.output;
    // The file's name, the columns, the cases.
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 4);
}

TEST(ProgramBench, PrintsJsonAloneOnStandardOutput) {
    const auto result = RunBench(
        {Clips::Numbered(), "--json", "--cases", "fast:backward-2-groups,play:1", "--seconds", "0.2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.front(), '{');
    EXPECT_EQ(result.output.substr(result.output.size() - 3), "\n}\n");
    EXPECT_TRUE(Contains(result.output, R"("case": "fast:backward-2-groups", "tracks": 1, "figures": {)"));
    EXPECT_TRUE(Contains(result.output, R"("rightPercent": 100)")) << result.output;
    EXPECT_TRUE(Contains(result.errors, "play:1 "));
}

TEST(ProgramBench, MeasuresEveryCaseOfAShortClip) {
    const auto result = RunBench({Clips::Numbered(), "--json", "--seconds", "0.1", "--tries", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(Contains(result.output, "\"error\"")) << result.output;
    EXPECT_TRUE(Contains(result.output, R"("case": "tracks:8-backward", "tracks": 8)"));
}

TEST(ProgramBench, MeasuresRecordingsWithoutBarCodeToo) {
    const auto result = RunBench({Clips::ClosedGroups(), "--json", "--cases", "fast:forward"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(Contains(result.output, R"("rightPercent": 100)")) << result.output;
}

TEST(ProgramBench, CaseThatFailsIsReportedAndTheOthersAreMeasured) {
    const auto result = RunBench({Clips::Garbage(), Clips::Numbered(), "--json", "--cases", "fast:forward"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.output, "\"error\": ")) << result.output;
    EXPECT_TRUE(Contains(result.output, R"("rightPercent": 100)")) << result.output;
}

TEST(ProgramBench, RefusesWhatCannotBeMeant) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--cases", "hop"},
                                                      {"--seconds", "0"},
                                                      {"--seconds", "-1"},
                                                      {"--tries", "0"}}) {
        auto all = arguments;
        all.push_back(Clips::Numbered());
        const auto result = RunBench(all);
        EXPECT_EQ(result.status, 2) << arguments[0];
        EXPECT_EQ(result.output, "") << arguments[0];
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
}

}  // namespace
}  // namespace Tavrin::Playout
