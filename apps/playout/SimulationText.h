#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>

#include "Playout/Simulation.h"
#include "Time/Ratio.h"

namespace Tavrin::Playout::Program {

/// What was looked for beyond the run itself.
struct SimulationFindings {
    std::optional<std::size_t> mostTracks;
    std::optional<Time::Ratio> highestSpeed;
};

/// Whether the wall holds; where it does not, by how much, what it waits for, and what would help.
[[nodiscard]] std::string DescribeVerdict(const SimulationReport& report);

/// For people: what was simulated, what came of it, and the verdict.
void PrintSimulation(std::ostream& out, const SimulationOptions& options, const SimulationReport& report,
                     const SimulationFindings& findings);

/// As one JSON object, with the counters as `playout play` writes them.
void PrintSimulationJson(std::ostream& out, const SimulationOptions& options, const SimulationReport& report,
                         const SimulationFindings& findings);

}  // namespace Tavrin::Playout::Program
