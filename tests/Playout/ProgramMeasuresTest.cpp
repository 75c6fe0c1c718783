#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Playout/Support/Clips.h"
#include "Playout/Support/MetricsText.h"
#include "Playout/Support/ProgramRun.h"
#include "Playout/Support/TraceFile.h"

// The files in which the program tells how playing went.

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using nlohmann::json;
using Support::ProgramResult;
using Support::ProgramRun;

std::vector<std::string> CommandLine(const std::vector<std::string>& arguments) {
    std::vector<std::string> line{PLAYOUT_PROGRAM, "play"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ProgramResult RunPlay(const std::vector<std::string>& arguments) {
    return ProgramRun(CommandLine(arguments)).Finish();
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

void ExpectRefusal(const ProgramResult& result, int status, const std::string& trouble) {
    EXPECT_EQ(result.status, status) << result.errors;
    EXPECT_TRUE(Contains(result.errors, trouble)) << result.errors;
}

TEST(ProgramMeasures, CountersOfARunAreWrittenAsJson) {
    const std::string file = Clips::Scratch("counters.json");
    const ProgramResult result = RunPlay({Clips::ClosedGroups(), "--fast", "--counters", file});
    EXPECT_EQ(result.status, 0) << result.errors;
    const json counters = json::parse(Clips::ReadFile(file));
    EXPECT_EQ(counters.at("all").at("pictures").at("exact"), Clips::kNbPictures);
    EXPECT_EQ(counters.at("tracks").at(0).at("file"), Clips::ClosedGroups());
}

TEST(ProgramMeasures, CountersAgreeWithTheSummaryInRealTime) {
    const std::string file = Clips::Scratch("counters.json");
    const ProgramResult result =
        RunPlay({Clips::Short(), "--realtime", "--speed", "1/2", "--counters", file});
    EXPECT_EQ(result.status, 0) << result.errors;
    const json pictures = json::parse(Clips::ReadFile(file)).at("all").at("pictures");
    std::ostringstream summary;
    summary << "pictures   " << pictures.at("exact") << " shown, " << pictures.at("repeated") << " repeated, "
            << pictures.at("late") << " late, " << pictures.at("missing") << " missing";
    EXPECT_TRUE(Contains(result.output, summary.str())) << summary.str() << '\n' << result.output;
}

TEST(ProgramMeasures, MetricsOfARunAreWholeWhenItEnds) {
    const std::string file = Clips::Scratch("metrics.txt");
    const ProgramResult result =
        RunPlay({Clips::ClosedGroups(), Clips::Short(), "--fast", "--metrics", file});
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto metrics = Support::ParseMetrics(Clips::ReadFile(file));
    EXPECT_EQ(metrics.At(R"(tavrin_pictures_total{track="0",shown="exact"})"), Clips::kNbPictures);
    EXPECT_EQ(metrics.At(R"(tavrin_pictures_total{track="1",shown="exact"})"), 12);
    EXPECT_FALSE(std::filesystem::exists(file + ".part"));
}

TEST(ProgramMeasures, MetricsAreThereWhileItPlays) {
    const std::string file = Clips::Scratch("metrics.txt");
    // Each tick writes a picture to standard output, which is read here: no picture, no further tick.
    ProgramRun run(CommandLine({Clips::ClosedGroups(), "--realtime", "--speed", "0", "--count", "100000",
                                "--output", "md5:-", "--metrics", file}));
    const std::string exact = R"(tavrin_pictures_total{track="0",shown="exact"})";
    double nbExact = 0;
    for (int line = 0; nbExact < 1; ++line) {
        ASSERT_TRUE(run.ReadUntil('\n' + std::to_string(line + 1) + ' ')) << "it ended without metrics";
        const auto metrics = Support::ParseMetrics(Clips::ReadFile(file));
        nbExact = metrics.samples.contains(exact) ? metrics.At(exact) : 0;
    }
    run.Signal(SIGINT);
    EXPECT_EQ(run.Finish().status, 128 + SIGINT);
}

TEST(ProgramMeasures, MetricsPassTheParserOfACollector) {
    const ProgramResult hasParser =
        ProgramRun({"/usr/bin/env", "/usr/bin/python3", "-c", "import prometheus_client"}).Finish();
    if (hasParser.status != 0) {
        GTEST_SKIP() << "python3-prometheus-client is not installed";
    }
    const std::string file = Clips::Scratch("metrics.txt");
    ASSERT_EQ(RunPlay({Clips::ClosedGroups(), "--fast", "--metrics", file}).status, 0);
    const std::string script = R"(
import sys
from prometheus_client.openmetrics import parser
for family in parser.text_string_to_metric_families(open(sys.argv[1]).read()):
    print(family.name, family.type, family.unit, len(family.samples))
)";
    const ProgramResult parsed =
        ProgramRun({"/usr/bin/env", "/usr/bin/python3", "-c", script, file}).Finish();
    EXPECT_EQ(parsed.status, 0) << parsed.errors;
    EXPECT_TRUE(Contains(parsed.output, "tavrin_pictures counter  6\n")) << parsed.output;
    EXPECT_TRUE(Contains(parsed.output, "tavrin_held_bytes gauge bytes 4\n")) << parsed.output;
}

TEST(ProgramMeasures, TheTraceOfARunIsOneThatViewersOpen) {
    const std::string file = Clips::Scratch("trace.json");
    const ProgramResult result = RunPlay({Clips::ClosedGroups(), "--fast", "--trace", file});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    const auto events = Support::ReadTrace(file);
    EXPECT_EQ(Support::EventsNamed(events, "tick").size(), Clips::kNbPictures - 1);
    EXPECT_FALSE(Support::EventsNamed(events, "decode").empty());
}

TEST(ProgramMeasures, AnInterruptedRunIsMeasuredUpToThere) {
    const std::string counters = Clips::Scratch("counters.json");
    const std::string trace = Clips::Scratch("trace.json");
    ProgramRun run(CommandLine({Clips::ClosedGroups(), "--realtime", "--display-rate", "1/10", "--speed",
                                "1/250", "--output", "y4m:-", "--counters", counters, "--trace", trace}));
    EXPECT_TRUE(run.ReadUntil("FRAME\n"));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Finish().status, 128 + SIGINT);
    EXPECT_EQ(json::parse(Clips::ReadFile(counters)).at("all").at("pictures").at("exact"), 1);
    EXPECT_FALSE(Support::ReadTrace(trace).empty());
}

TEST(ProgramMeasures, ARunThatFailsIsMeasuredUpToThere) {
    const std::string counters = Clips::Scratch("counters.json");
    const ProgramResult result =
        RunPlay({Clips::ClosedGroups(), "--fast", "--output", "y4m:/dev/full", "--counters", counters});
    EXPECT_EQ(result.status, 1);
    EXPECT_GE(json::parse(Clips::ReadFile(counters)).at("all").at("pictures").at("exact"), 1);
}

TEST(ProgramMeasures, FilesThatCannotBeMadeAreNamedWithTheReason) {
    for (const std::string option : {"--counters", "--metrics", "--trace"}) {
        const std::string file = Clips::Scratch("no/such/folder/x");
        const ProgramResult result = RunPlay({Clips::Short(), "--fast", option, file});
        ExpectRefusal(result, 1, file);
        EXPECT_TRUE(Contains(result.errors, "cannot be made: No such file or directory")) << result.errors;
        EXPECT_EQ(result.output, "") << "nothing is played first";
    }
}

TEST(ProgramMeasures, FilesThatCannotBeWrittenAreNamedWithTheReason) {
    for (const std::string option : {"--counters", "--metrics", "--trace"}) {
        ExpectRefusal(RunPlay({Clips::Short(), "--fast", option, "/dev/full"}), 1,
                      "\"/dev/full\": cannot be written: No space left on device");
    }
}

TEST(ProgramMeasures, AFolderIsNotReplacedByMetrics) {
    const std::string folder = Clips::Scratch("folder");
    std::filesystem::create_directories(folder + "/within");
    ExpectRefusal(RunPlay({Clips::Short(), "--fast", "--metrics", folder}), 1, folder);
    EXPECT_TRUE(std::filesystem::is_directory(folder));
}

TEST(ProgramMeasures, ARecordingIsNeverOverwritten) {
    const std::string clip = Clips::Short();
    const std::string before = Clips::ReadFile(clip);
    for (const std::string option : {"--counters", "--metrics", "--trace"}) {
        ExpectRefusal(RunPlay({clip, "--fast", option, clip}), 2,
                      option + ": \"" + clip + "\" is being played");
    }
    EXPECT_EQ(Clips::ReadFile(clip), before);
}

TEST(ProgramMeasures, OneFileForTwoOptionsIsRefused) {
    const std::string file = Clips::Scratch("both.json");
    ExpectRefusal(RunPlay({Clips::Short(), "--fast", "--counters", file, "--trace", file}), 2,
                  "--trace: \"" + file + "\" is written by another option already");
}

}  // namespace
}  // namespace Tavrin::Playout
