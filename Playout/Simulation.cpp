#include "Playout/Simulation.h"

#include <stdexcept>
#include <string>

#include "Playout/SimulatedWall.h"

namespace Tavrin::Playout {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr double kAllPercent = 100;
constexpr std::int64_t kStepsPerSpeed = 4;
constexpr std::size_t kMostWorkers = 1024;

[[noreturn]] void Refuse(const std::string& what, const std::string& rule) {
    throw std::invalid_argument(what + ": it must be " + rule);
}

void CheckCount(const std::string& name, std::size_t value, std::size_t most) {
    if (value < 1 || value > most) {
        Refuse(name + " of " + std::to_string(value), "from 1 to " + std::to_string(most));
    }
}

/// The highest number from 0 to \p most for which something holds, as if none above one that fails did.
template <typename Holds>
std::int64_t Highest(std::int64_t most, Holds holds) {
    std::int64_t good = 0;
    std::int64_t bad = 1;
    while (bad <= most && holds(bad)) {
        good = bad;
        bad *= 2;
    }
    bad = bad > most ? most + 1 : bad;
    while (bad - good > 1) {
        const std::int64_t middle = good + (bad - good) / 2;
        (holds(middle) ? good : bad) = middle;
    }
    return good;
}

}  // namespace

void SimulationOptions::Check() const {
    CheckCount("a number of tracks", nbTracks, kMostTracks);
    CheckCount("a number of preload workers", session.nbPreloadWorkers, kMostWorkers);
    CheckCount("a number of decode workers", decoder.nbWorkers, kMostWorkers);
    CheckCount("a number of cores", decoder.nbCores, kMostWorkers);
    if (speed == Ratio()) {
        Refuse("a speed of 0", "another one: what stands asks for nothing");
    }
    if (duration <= TimePoint()) {
        Refuse("a duration of " + duration.ToString() + " s", "above 0");
    }
    if (settling < TimePoint() || settling >= duration) {
        Refuse("settling for " + settling.ToString() + " s",
               "from 0 to less than the " + duration.ToString() + " s that are played");
    }
    if (!(allowedLatePercent >= 0 && allowedLatePercent <= kAllPercent)) {
        Refuse(std::to_string(allowedLatePercent) + " % of late ticks", "from 0 to 100");
    }
    storage.Check();
    if (like == nullptr) {
        recording.Check();
    }
}

double SimulationReport::LatePercent() const {
    const std::uint64_t nb = nbTicks - nbSettlingTicks;
    const std::uint64_t nbLate = nbLateTicks - nbLateSettling;
    return nb == 0 ? 0 : kAllPercent * static_cast<double>(nbLate) / static_cast<double>(nb);
}

double SimulationReport::HeldSpeed() const {
    return elapsed == TimePoint()
               ? 0
               : static_cast<double>(played.Nanoseconds()) / static_cast<double>(elapsed.Nanoseconds());
}

SimulationReport Simulate(const SimulationOptions& options) {
    options.Check();
    return SimulatedWall(options).Run();
}

std::size_t FindMostTracks(SimulationOptions options, std::size_t most) {
    const auto holds = [&options](std::int64_t nb) {
        options.nbTracks = static_cast<std::size_t>(nb);
        return Simulate(options).holds;
    };
    return static_cast<std::size_t>(Highest(static_cast<std::int64_t>(most), holds));
}

Ratio FindHighestSpeed(SimulationOptions options, std::int64_t most) {
    const std::int64_t direction = options.speed < Ratio() ? -1 : 1;
    const auto holds = [&options, direction](std::int64_t steps) {
        options.speed = Ratio(direction * steps, kStepsPerSpeed);
        return Simulate(options).holds;
    };
    return {direction * Highest(most * kStepsPerSpeed, holds), kStepsPerSpeed};
}

}  // namespace Tavrin::Playout
