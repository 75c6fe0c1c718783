#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/Bench.h"
#include "apps/playout/Arguments.h"
#include "apps/playout/BenchReport.h"
#include "apps/playout/Commands.h"
#include "apps/playout/CommonOptions.h"
#include "apps/playout/IsolatedRun.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr std::int64_t kMostSeconds = 3600;
constexpr std::size_t kMostTries = 100'000;

struct BenchArguments {
    std::vector<std::string> files;
    std::vector<BenchCase> cases = BenchCases();
    bool json = false;
    BenchOptions options;
};

/// The kinds of cases, each named once.
std::string ListCases() {
    std::string list;
    std::string before;
    for (const BenchCase& what : BenchCases()) {
        const std::string kind = what.name.substr(0, what.name.find(':'));
        list += kind == before ? "" : (list.empty() ? "" : ", ") + kind;
        before = kind;
    }
    return list;
}

std::vector<BenchCase> ParseCases(const std::string& text) {
    try {
        return SelectBenchCases(text);
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string(error.what()) + "; there are " + ListCases());
    }
}

std::chrono::milliseconds ParseDuration(const std::string& text) {
    constexpr std::int64_t kMillisecondsPerSecond = 1000;
    const Time::Ratio seconds = ParseRatio(text);
    if (!seconds.Positive() || seconds > Time::Ratio(kMostSeconds, 1)) {
        throw UsageError("'" + text + "' is no duration: it must be above 0 and at most " +
                         std::to_string(kMostSeconds) + " s");
    }
    return std::chrono::milliseconds(seconds.Numerator() * kMillisecondsPerSecond / seconds.Denominator());
}

/// What cannot be done here is told by the case itself, if it needs it.
void WarmUp(const BenchCase& what, const std::string& file, const BenchOptions& options) {
    try {
        static_cast<void>(RunIsolated([&] {
            WarmMemory(what, file, options);
            return std::string();
        }));
    } catch (const std::runtime_error&) {
    }
}

/// A case that cannot be measured is reported in its place, and the others are measured all the same.
BenchResult Measure(const BenchCase& what, const std::string& file, const BenchOptions& options) {
    BenchResult result{file, what, {}, {}};
    WarmUp(what, file, options);
    try {
        result.figures = FiguresOf(RunIsolated([&] { return ToText(RunBenchCase(what, file, options)); }));
    } catch (const std::runtime_error& error) {
        result.error = error.what();
    }
    return result;
}

int Bench(const BenchArguments& arguments) {
    std::vector<BenchResult> results;
    std::ostream& table = arguments.json ? std::cerr : std::cout;
    bool failed = false;
    for (const std::string& file : arguments.files) {
        table << file << '\n';
        PrintTableHead(table);
        for (const BenchCase& what : arguments.cases) {
            results.push_back(Measure(what, file, arguments.options));
            PrintTableRow(table, results.back());
            failed =
                failed || (!results.back().error.empty() && results.back().error.rfind("left out", 0) != 0);
        }
    }
    if (arguments.json) {
        PrintJson(std::cout, results, arguments.options);
    }
    return failed ? Failure : Success;
}

}  // namespace

void AddBenchCommand(CLI::App& program, int& status) {
    auto arguments = std::make_shared<BenchArguments>();
    CLI::App* command = program.add_subcommand("bench", "Measure how well recordings are played here");
    command->add_option("FILE", arguments->files, "The recordings, measured one by one")
        ->required()
        ->type_name("");
    AddParsed(*command, "--cases", arguments->cases, &ParseCases, "NAMES",
              "What to measure, separated by commas (default: all):\n" + ListCases() +
                  ";\nor one of a kind, such as play:-1");
    AddParsed(*command, "--seconds", arguments->options.duration, &ParseDuration, "SECONDS",
              "How long each case plays or drags (default: 10)");
    command
        ->add_option("--tries", arguments->options.nbTries,
                     "How often each case jumps, turns or steps (default: " +
                         std::to_string(arguments->options.nbTries) + ")")
        ->type_name("N")
        ->check(Between(std::size_t{1}, kMostTries));
    command
        ->add_option("--seed", arguments->options.seed,
                     "Number that chooses the random pictures (default: 1)")
        ->type_name("N");
    command->add_flag("--json", arguments->json, "Print JSON; the table then goes to standard error");
    AddMemoryOption(*command, arguments->options.session.memoryBytes);
    command->footer(
        "What is shown is judged by the number that a clip made by scripts/make-clips carries in its\n"
        "pixels. Each case runs in a process of its own. right: ticks at which every track showed what\n"
        "belongs to the play head. clock: what belongs there, had it never waited. stand: the longest\n"
        "that a picture stood, one tick when all is well. gap: the longest time without a new one.\n"
        "p50, p95, max: until the picture asked for was on show. CPU, B: processor time and bytes\n"
        "read for each picture shown. MiB: memory of the process at its peak.");
    command->callback([arguments, &status] { status = Bench(*arguments); });
}

}  // namespace Tavrin::Playout::Program
