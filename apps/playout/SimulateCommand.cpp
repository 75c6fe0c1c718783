#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Playout/CrewPlan.h"
#include "Playout/Simulation.h"
#include "apps/playout/Arguments.h"
#include "apps/playout/Commands.h"
#include "apps/playout/CommonOptions.h"
#include "apps/playout/SimulationText.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr std::int64_t kMostSeconds = 3600;
constexpr std::int64_t kMostSpeed = 64;
constexpr std::int64_t kMostMegabytes = 1'000'000;
constexpr std::int64_t kMostMegabits = 100'000;
constexpr std::int64_t kPerMega = 1'000'000;
constexpr std::size_t kMostWorkers = 1024;

struct SimulateArguments {
    SimulationOptions options;
    std::string like;
    std::optional<std::size_t> nbDecodeWorkers;
    std::optional<Time::TimePoint> settling;
    bool findTracks = false;
    bool findSpeed = false;
    bool json = false;
    bool openMetrics = false;
};

SimulatedTime ParseSimulatedTime(const std::string& text) {
    try {
        return SimulatedTime::Parse(text);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

/// A number above 0 in millions.
std::int64_t ParseMega(const std::string& text, std::int64_t most, const std::string& unit) {
    const Time::Ratio mega = ParseRatio(text);
    if (!mega.Positive() || mega > Time::Ratio(most, 1)) {
        throw UsageError("'" + text + "' is no number of " + unit + ": it must be above 0 and at most " +
                         std::to_string(most));
    }
    const Time::Ratio whole = mega * Time::Ratio(kPerMega, 1);
    return whole.Numerator() / whole.Denominator();
}

std::int64_t ParseBandwidth(const std::string& text) {
    return ParseMega(text, kMostMegabytes, "MB/s");
}

std::int64_t ParseBitRate(const std::string& text) {
    return ParseMega(text, kMostMegabits, "Mb/s");
}

Time::TimePoint ParseSeconds(const std::string& text) {
    const Time::Ratio seconds = ParseRatio(text);
    if (!seconds.Positive() || seconds > Time::Ratio(kMostSeconds, 1)) {
        throw UsageError("'" + text + "' is no duration: it must be above 0 and at most " +
                         std::to_string(kMostSeconds) + " s");
    }
    return Time::TimePoint().FromSeconds(1) * seconds;
}

Time::TimePoint ParseSettling(const std::string& text) {
    return ParseRatio(text) == Time::Ratio() ? Time::TimePoint() : ParseSeconds(text);
}

double ParsePercent(const std::string& text) {
    const Time::Ratio percent = ParseRatio(text);
    constexpr std::int64_t kAll = 100;
    if (percent < Time::Ratio() || percent > Time::Ratio(kAll, 1)) {
        throw UsageError("'" + text + "' is no part in percent: it must be from 0 to 100");
    }
    return static_cast<double>(percent.Numerator()) / static_cast<double>(percent.Denominator());
}

/// Before and after the one comma.
std::pair<std::string, std::string> SplitPair(const std::string& text, char separator,
                                              const std::string& rule) {
    const std::size_t at = text.find(separator);
    if (at == std::string::npos) {
        throw UsageError("'" + text + "' " + rule);
    }
    return {text.substr(0, at), text.substr(at + 1)};
}

/// Sets the two times of the model's stalls.
StorageModel& ParseStalls(const std::string& text, StorageModel& model) {
    const auto [every, length] =
        SplitPair(text, ',', "is no description of stalls: it must be SECONDS,SECONDS, such as 30,0.5");
    model.stallEvery = ParseSeconds(every);
    model.stallFor = ParseSeconds(length);
    return model;
}

int ParseSide(const std::string& text) {
    const Time::Ratio side = ParseRatio(text);
    constexpr std::int64_t kMostPixels = 16'384;
    if (side.Denominator() != 1 || !side.Positive() || side.Numerator() > kMostPixels) {
        throw UsageError("'" + text + "' is no side of a picture: it must be from 1 to 16384 pixels");
    }
    return static_cast<int>(side.Numerator());
}

void ParseSize(const std::string& text, RecordingModel& model) {
    const auto [width, height] =
        SplitPair(text, 'x', "is no size: it must be WIDTHxHEIGHT, such as 1920x1080");
    model.width = ParseSide(width);
    model.height = ParseSide(height);
}

SimulationFindings Find(SimulateArguments& arguments) {
    SimulationFindings findings;
    SimulationOptions& options = arguments.options;
    if (arguments.findTracks) {
        findings.mostTracks = FindMostTracks(options, SimulationOptions::kMostTracks);
        options.nbTracks = std::max<std::size_t>(*findings.mostTracks, 1);
    }
    if (arguments.findSpeed) {
        findings.highestSpeed = FindHighestSpeed(options, kMostSpeed);
        const bool isFound = *findings.highestSpeed != Time::Ratio();
        options.speed = isFound ? *findings.highestSpeed : options.speed;
    }
    return findings;
}

int Run(SimulateArguments& arguments) {
    SimulationOptions& options = arguments.options;
    options.decoder.nbWorkers =
        arguments.nbDecodeWorkers.value_or(NbDecodeWorkersFor(options.nbTracks, options.decoder.nbCores));
    options.settling =
        arguments.settling.value_or(std::min(options.settling, options.duration * Time::Ratio(1, 2)));
    if (!arguments.like.empty()) {
        options.like = OpenRecording(arguments.like, RecordingIndex::kFirstVideo);
    }
    try {
        const SimulationFindings findings = Find(arguments);
        const SimulationReport report = Simulate(options);
        if (arguments.openMetrics) {
            std::cout << ToOpenMetrics(report.counters);
        } else if (arguments.json) {
            PrintSimulationJson(std::cout, options, report, findings);
        } else {
            PrintSimulation(std::cout, options, report, findings);
        }
        return report.holds ? Success : Failure;
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

void AddWallOptions(CLI::App& command, SimulateArguments& arguments) {
    SimulationOptions& options = arguments.options;
    command.add_option("--tracks", options.nbTracks, "Tracks that play in step (default: 1)")
        ->type_name("N")
        ->check(Between(std::size_t{1}, SimulationOptions::kMostTracks));
    AddParsed(command, "--speed", options.speed, &ParseSpeed, "SPEED",
              "Speed, negative: backward (default: 1)");
    AddParsed(command, "--seconds", options.duration, &ParseSeconds, "SECONDS",
              "How long it plays after the first picture\n(default: 20)");
    AddParsed(command, "--display", options.session.displayRate, &ParseRate, "RATE",
              "Pictures a second that the output shows\n(default: the recording's rate)");
    AddMemoryOption(command, options.session.memoryBytes);
    command.add_option("--seed", options.seed, "Number that the random times come from (default: 1)")
        ->type_name("N");
    AddParsed(command, "--settle", arguments.settling, &ParseSettling, "SECONDS",
              "Time after the first picture in which late ticks\ndo not count (default: 2, at most half of "
              "--seconds)");
    AddParsed(command, "--allow", options.allowedLatePercent, &ParsePercent, "PERCENT",
              "Late ticks with which the wall still holds\n(default: 0)");
    command.add_flag("--find-tracks", arguments.findTracks, "Find how many tracks the wall holds at most");
    command.add_flag("--find-speed", arguments.findSpeed,
                     "Find the highest speed that the wall holds,\nin quarters");
}

void AddRecordingOptions(CLI::App& command, SimulateArguments& arguments) {
    RecordingModel& recording = arguments.options.recording;
    command
        .add_option("--like", arguments.like,
                    "Every track plays a recording laid out as this\nfile is, instead of the following")
        ->type_name("FILE");
    AddParsed(command, "--rate", recording.rate, &ParseRate, "RATE",
              "Pictures a second of the recordings (default: 25)");
    command.add_option("--group", recording.groupLength, "Pictures in a group (default: 50)")
        ->type_name("N")
        ->check(Between(std::size_t{1}, std::size_t{1'000'000}));
    AddParsed(command, "--bits", recording.bitsPerSecond, &ParseBitRate, "MBITS",
              "Megabits a second (default: 16)");
    command
        .add_option_function<std::string>(
            "--size", [&recording](const std::string& text) { ParseSize(text, recording); },
            "Size of the pictures (default: 1920x1080)")
        ->type_name("WxH");
    command.add_option("--pixel-format", recording.pixelFormat, "Of the decoded pictures (default: yuv420p)")
        ->type_name("NAME");
    command.add_flag("--aligned", arguments.options.aligned, "Groups of all tracks begin at the same time");
}

void AddStorageOptions(CLI::App& command, SimulateArguments& arguments) {
    StorageModel& storage = arguments.options.storage;
    AddParsed(command, "--latency", storage.latency, &ParseSimulatedTime, "MS",
              "Of each read, until its first byte (default: 0)");
    AddParsed(command, "--bandwidth", storage.bytesPerSecond, &ParseBandwidth, "MB/S",
              "For all reads together (default: unbounded)");
    AddParsed(command, "--failures", storage.failedPercent, &ParsePercent, "PERCENT",
              "Reads that fail (default: 0)");
    command
        .add_option_function<std::string>(
            "--stalls", [&storage](const std::string& text) { ParseStalls(text, storage); },
            "Seconds from one stall of the storage to the next,\non average, and seconds that each "
            "lasts: 30,0.5\n(default: none)")
        ->type_name("S,S");
    command
        .add_option("--readers", arguments.options.session.nbPreloadWorkers,
                    "Preload workers, each with one read at a time\n(default: 2)")
        ->type_name("N")
        ->check(Between(std::size_t{1}, kMostWorkers));
}

void AddDecoderOptions(CLI::App& command, SimulateArguments& arguments) {
    DecoderModel& decoder = arguments.options.decoder;
    AddParsed(command, "--decode", decoder.perPicture, &ParseSimulatedTime, "MS",
              "Time of one core for one picture (default: 10)");
    command.add_option("--cores", decoder.nbCores, "Cores that decode (default: 2)")
        ->type_name("N")
        ->check(Between(std::size_t{1}, kMostWorkers));
    command
        .add_option(
            "--decoders", arguments.nbDecodeWorkers,
            "Decode workers (default: two for each track,\nat least as many as cores, at most four times)")
        ->type_name("N")
        ->check(Between(std::size_t{1}, kMostWorkers));
}

}  // namespace

void AddSimulateCommand(CLI::App& program, int& status) {
    auto arguments = std::make_shared<SimulateArguments>();
    arguments->options.decoder.perPicture = SimulatedTime::Parse("10");
    CLI::App* command =
        program.add_subcommand("simulate", "Tell whether a wall of tracks would hold on a stated machine");
    AddWallOptions(*command, *arguments);
    AddRecordingOptions(*command, *arguments);
    AddStorageOptions(*command, *arguments);
    AddDecoderOptions(*command, *arguments);
    auto* json = command->add_flag("--json", arguments->json, "Print JSON");
    command->add_flag("--openmetrics", arguments->openMetrics, "Print the counters in the OpenMetrics format")
        ->excludes(json);
    command->footer(
        "Lengths of time are milliseconds (8), uniform:LOWEST,HIGHEST, lognormal:P50,P99 or, with a\n"
        "heavy tail, heavy:P50,P99. Nothing is read or decoded, and simulated time takes no waiting.\n"
        "Exit status 0: the wall holds. 1: it does not, and the last line says why.\n"
        "\n"
        "Example: playout simulate --tracks 64 --bits 8 --latency lognormal:5,40 --bandwidth 1000 \\\n"
        "           --readers 16 --decode 4 --cores 32 --memory 16384 --speed -1 --find-tracks");
    command->callback([arguments, &status] { status = Run(*arguments); });
}

}  // namespace Tavrin::Playout::Program
