#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Playout/Support/ProgramRun.h"

// `playout simulate` as people run it.

namespace Tavrin::Playout {
namespace {

using Support::ProgramResult;
using Support::ProgramRun;

ProgramResult RunSimulate(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {PLAYOUT_PROGRAM, "simulate"});
    return ProgramRun(arguments).Finish();
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(ProgramSimulate, SaysThatTheWallHoldsAndEndsWithZero) {
    const auto result = RunSimulate({"--tracks", "4", "--cores", "8", "--seconds", "4", "--latency", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(Contains(result.output, "verdict    the wall holds: no tick is late\n")) << result.output;
}

TEST(ProgramSimulate, SaysWhatAWallThatDoesNotHoldWaitsForAndEndsWithOne) {
    const auto cores = RunSimulate({"--tracks", "16", "--cores", "2", "--decoders", "32", "--seconds", "4"});
    EXPECT_EQ(cores.status, 1);
    EXPECT_TRUE(Contains(cores.output, "it waits for decoders: the cores are used up\n")) << cores.output;
    const auto bandwidth =
        RunSimulate({"--tracks", "16", "--cores", "64", "--seconds", "4", "--bandwidth", "10"});
    EXPECT_EQ(bandwidth.status, 1);
    EXPECT_TRUE(Contains(bandwidth.output, "it waits for storage: its bandwidth is used up\n"))
        << bandwidth.output;
}

TEST(ProgramSimulate, FindsHowManyTracksTheWallHolds) {
    const auto result = RunSimulate({"--find-tracks", "--cores", "2", "--decode", "10", "--group", "10",
                                     "--size", "320x180", "--seconds", "4"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "\nmost       ")) << result.output;
}

TEST(ProgramSimulate, PrintsJsonWithTheCountersOfPlaying) {
    const auto result = RunSimulate({"--tracks", "2", "--cores", "8", "--seconds", "2", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.front(), '{');
    for (const std::string member :
         {R"("holds": true)", R"("verdict": )", R"("counters": {)", R"("pictures": {)", R"("exact": )"}) {
        EXPECT_TRUE(Contains(result.output, member)) << member << " is not in " << result.output;
    }
}

TEST(ProgramSimulate, PrintsTheCountersInTheOpenMetricsFormat) {
    const auto result = RunSimulate({"--tracks", "2", "--cores", "8", "--seconds", "2", "--openmetrics"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.substr(result.output.size() - 6), "# EOF\n");
}

TEST(ProgramSimulate, IsTheSameForTheSameSeed) {
    const std::vector<std::string> arguments{"--tracks",   "3",      "--seconds", "3",     "--latency",
                                             "heavy:5,90", "--seed", "4",         "--json"};
    EXPECT_EQ(RunSimulate(arguments).output, RunSimulate(arguments).output);
}

TEST(ProgramSimulate, RefusesBadValuesWithStatusTwoNamingThemAndTheRule) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> refusals{
        {{"--tracks", "0"}, "--tracks: Value 0 not in range"},
        {{"--latency", "fast"}, "'fast' is no length of time: it must be"},
        {{"--bandwidth", "0"}, "'0' is no number of MB/s: it must be above 0"},
        {{"--stalls", "30"}, "'30' is no description of stalls: it must be SECONDS,SECONDS"},
        {{"--size", "1920"}, "'1920' is no size: it must be WIDTHxHEIGHT"},
        {{"--failures", "101"}, "'101' is no part in percent: it must be from 0 to 100"},
        {{"--speed", "0"}, "a speed of 0: it must be another one"},
        {{"--pixel-format", "plaid"}, "a pixel format of 'plaid': it must be"},
        {{"--seconds", "5", "--settle", "5"}, "settling for 5.000000000 s: it must be"},
    };
    for (const auto& [arguments, message] : refusals) {
        const auto result = RunSimulate(arguments);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_TRUE(Contains(result.errors, message)) << result.errors;
    }
}

}  // namespace
}  // namespace Tavrin::Playout
