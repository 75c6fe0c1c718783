#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Playout/PlayCommand.h"

namespace Tavrin::Playout::Program {

/// Scripts: commands with their times, as text, one in a line.
///
///     # Half a second forward, back at twice the speed, then picture by picture.
///     0      speed 1
///     0.5    speed -2
///     1      jump 1:02.250
///     1.5    step -1
///     2      drag 12.5
///     2.04   drag 13
///     2.08   release
///     3      quit
///
/// The first word is the time since the first tick, the second one the command, the third what it takes:
/// a speed (2, -1, 1/2, 0.5), a time (12.5, 1:02.250), a whole number of pictures. Times do not decrease.
/// Empty lines, and what follows a #, are left out.

/// Throws UsageError that names the script, the line and the rule that it breaks.
[[nodiscard]] std::vector<TimedCommand> ParseScript(std::istream& in, const std::string& name);

/// As ParseScript; throws std::runtime_error when the file cannot be read.
[[nodiscard]] std::vector<TimedCommand> ReadScript(const std::string& file);

/// One line of a script, without its end. What it says is exact.
[[nodiscard]] std::string FormatCommand(const TimedCommand& command);

}  // namespace Tavrin::Playout::Program
