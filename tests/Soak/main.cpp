#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <random>
#include <ratio>
#include <string>

#include "Player/Support/WorkerStorm.h"
#include "Soak/ProcessState.h"
#include "Soak/Run.h"

namespace Tavrin::Soak {

namespace {

constexpr int kHeld = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

/// Nobody reads these lines, and warnings are part of the plan.
struct Silence {
    Player::Testing::StormSilence workers_;
    Player::Testing::ScopedSilence player_{"Player"};
};

std::map<std::string, Breakage> Breakages() {
    std::map<std::string, Breakage> breakages;
    for (const NamedBreakage& named : kBreakages) {
        breakages.emplace(named.name_, named.breakage_);
    }
    return breakages;
}

int Main(int argc, char** argv) {
    CLI::App program(
        "Plays many tracks at random, on doubles and on real clips, in short phases, and checks after each "
        "that "
        "everything was answered once and given back.\nExit status: 0 everything held; 1 something did not; "
        "2 wrong usage.",
        "soak");
    RunOptions options;
    options.seed_ = std::random_device()();
    double minutes = 10;
    const std::map<std::string, Halves> halves{
        {"both", Halves::Both}, {"engine", Halves::Engine}, {"playout", Halves::Playout}};
    program.add_option("minutes", minutes, "How long (10)")->check(CLI::PositiveNumber);
    program.add_option("--seed", options.seed_, "The same seed makes the same choices (a random one)");
    program.add_option("--half", options.halves_, "both, engine (on doubles) or playout (on clips)")
        ->transform(CLI::CheckedTransformer(halves));
    program.add_option("--first", options.first_, "The number of the first phase (0)");
    program.add_option("--phases", options.nbPhases_, "So many phases, however long they take");
    program.add_option("--warm-up", options.nbWarmUp_, "Phases at least before memory is judged (8)");
    program.add_option("--break", options.breakage_, "Breaks something, to show that the run then fails")
        ->transform(CLI::CheckedTransformer(Breakages()));
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return program.exit(e) == 0 ? kHeld : kUsage;
    }
    options.span_ = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double, std::ratio<60>>(minutes));
    std::cout << "soak: seed " << options.seed_ << std::endl;
    UseOneArena();
    const Silence silence;
    return Run(options).Execute() ? kHeld : kFailed;
}

}  // namespace

}  // namespace Tavrin::Soak

int main(int argc, char** argv) {
    try {
        return Tavrin::Soak::Main(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "soak: " << e.what() << '\n';
        return Tavrin::Soak::kFailed;
    }
}
