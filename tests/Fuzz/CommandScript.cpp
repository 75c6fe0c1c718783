// Texts as scripts of commands: each is either refused in one line that names it, or written again and read as the
// same commands.

#include "apps/playout/CommandScript.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "Fuzz/Support/Require.h"
#include "apps/playout/Arguments.h"

namespace Tavrin::Fuzz {
namespace {

using Playout::TimedCommand;
using Playout::Program::FormatCommand;
using Playout::Program::ParseScript;
using Playout::Program::UsageError;
using Time::Ratio;
using Time::TimePoint;

constexpr const char* kName = "script.txt";

std::vector<TimedCommand> Parse(const std::string& text) {
    std::istringstream in(text);
    return ParseScript(in, kName);
}

/// What the header promises of times, speeds and numbers of pictures.
void CheckCommands(const std::vector<TimedCommand>& commands) {
    constexpr std::int64_t kHighestSpeed = 1000;
    TimePoint before;
    for (const TimedCommand& command : commands) {
        Require(command.at >= before, "times do not decrease");
        before = command.at;
        if (const auto* set = std::get_if<Playout::SetSpeed>(&command.command)) {
            Require(set->speed <= Ratio(kHighestSpeed, 1) && set->speed >= Ratio(-kHighestSpeed, 1),
                    "a speed is at most 1000 either way");
        } else if (const auto* jump = std::get_if<Playout::JumpTo>(&command.command)) {
            Require(jump->position >= TimePoint(), "no jump leads before the origin");
        } else if (const auto* drag = std::get_if<Playout::DragTo>(&command.command)) {
            Require(drag->position >= TimePoint(), "no drag leads before the origin");
        }
    }
}

void CheckScript(const std::string& text) {
    std::vector<TimedCommand> commands;
    try {
        commands = Parse(text);
    } catch (const UsageError& error) {
        const std::string refusal = error.what();
        Require(refusal.starts_with("\"" + std::string(kName) + "\" line "), "a refusal names the line",
                refusal);
        Require(refusal.find('\n') == std::string::npos, "a refusal is one line", refusal);
        return;
    }
    CheckCommands(commands);
    std::string written;
    for (const TimedCommand& command : commands) {
        written += FormatCommand(command) + "\n";
    }
    Require(Parse(written) == commands, "commands are read as they were written", written);
}

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Tavrin::Fuzz::CheckScript(std::string(data, data + size));
    return 0;
}
