#include "apps/playout/CommandScript.h"

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "apps/playout/Arguments.h"

namespace Tavrin::Playout::Program {

using Time::TimePoint;

namespace {

/// More than any recording has; less than what would leave 64 bits when it is added.
constexpr std::int64_t kMostPictures = 1'000'000'000;

std::vector<std::string> Words(const std::string& line) {
    std::istringstream in(line.substr(0, line.find('#')));
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

std::int64_t ParsePictures(const std::string& text) {
    std::int64_t nb = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, nb);
    if (result.ec != std::errc() || result.ptr != end || nb < -kMostPictures || nb > kMostPictures) {
        throw UsageError("'" + text + "' is no number of pictures such as 1 or -1");
    }
    return nb;
}

/// What a command takes; refuses a line that has more or less than that.
std::string Argument(const std::vector<std::string>& words, const std::string& what) {
    if (words.size() != 3) {
        throw UsageError(words[1] + " takes " + what + " and nothing else");
    }
    return words[2];
}

PlayCommand WithoutArgument(const std::vector<std::string>& words, const PlayCommand& command) {
    if (words.size() != 2) {
        throw UsageError("'" + words[2] + "' is too much: " + words[1] + " takes nothing");
    }
    return command;
}

PlayCommand ParseCommand(const std::vector<std::string>& words) {
    const std::string& name = words[1];
    if (name == "speed") {
        return SetSpeed{ParseSpeed(Argument(words, "a speed"))};
    }
    if (name == "jump") {
        return JumpTo{ParseTime(Argument(words, "a time"))};
    }
    if (name == "step") {
        return StepBy{ParsePictures(Argument(words, "a number of pictures"))};
    }
    if (name == "drag") {
        return DragTo{ParseTime(Argument(words, "a time"))};
    }
    if (name == "release") {
        return WithoutArgument(words, Release{});
    }
    if (name == "quit") {
        return WithoutArgument(words, Quit{});
    }
    throw UsageError("'" + name + "' is none of speed, jump, step, drag, release and quit");
}

TimedCommand ParseLine(const std::vector<std::string>& words, const TimePoint& before) {
    const TimePoint at = ParseTime(words[0]);
    if (words.size() < 2) {
        throw UsageError("a command is to follow the time");
    }
    if (at < before) {
        throw UsageError("'" + words[0] + "' is before the line above it: times must not decrease");
    }
    return {at, ParseCommand(words)};
}

struct Formatter {
    std::string operator()(const SetSpeed& command) const { return "speed " + command.speed.ToString(); }
    std::string operator()(const JumpTo& command) const { return "jump " + command.position.ToString(); }
    std::string operator()(const StepBy& command) const {
        return "step " + std::to_string(command.nbPictures);
    }
    std::string operator()(const DragTo& command) const { return "drag " + command.position.ToString(); }
    std::string operator()(const Release& /*command*/) const { return "release"; }
    std::string operator()(const Quit& /*command*/) const { return "quit"; }
};

}  // namespace

std::vector<TimedCommand> ParseScript(std::istream& in, const std::string& name) {
    std::vector<TimedCommand> commands;
    std::size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        const auto words = Words(line);
        if (words.empty()) {
            continue;
        }
        try {
            commands.push_back(ParseLine(words, commands.empty() ? TimePoint() : commands.back().at));
        } catch (const UsageError& error) {
            throw UsageError("\"" + name + "\" line " + std::to_string(number) + ": " + error.what());
        }
    }
    return commands;
}

std::vector<TimedCommand> ReadScript(const std::string& file) {
    std::error_code ignored;
    std::ifstream in(file);
    if (!in || std::filesystem::is_directory(file, ignored)) {
        throw std::runtime_error("\"" + file + "\": the script cannot be read");
    }
    auto commands = ParseScript(in, file);
    if (in.bad()) {
        throw std::runtime_error("\"" + file + "\": the script cannot be read to its end");
    }
    return commands;
}

std::string FormatCommand(const TimedCommand& command) {
    return command.at.ToString() + " " + std::visit(Formatter(), command.command);
}

}  // namespace Tavrin::Playout::Program
