// Words as the command line of the program, which is parsed but not carried out: it is either taken, or refused as
// wrong usage. Each word is also read as every kind of value that options take.

#include "apps/playout/Arguments.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Fuzz/Support/Require.h"
#include "apps/playout/Commands.h"
#include "apps/playout/Output.h"
#include "apps/playout/TrackOptions.h"

namespace Tavrin::Fuzz {
namespace {

using namespace Playout::Program;
using Playout::SessionTrack;
using Time::Ratio;
using Time::TimePoint;

/// A program is started with some words; so many are enough to give every option once.
constexpr std::size_t kMostWords = 64;

/// One word in each line; a word may hold anything but the end of a line.
std::vector<std::string> Words(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; words.size() < kMostWords && std::getline(in, word);) {
        words.push_back(word);
    }
    return words;
}

/// In one line, as the program prints it.
void CheckRefusal(const std::string& message) {
    Require(!message.substr(0, message.find('\n')).empty(), "a refusal says what is wrong", message);
}

/// Whether `action` takes it; what it does not take it refuses as wrong usage, saying what is wrong.
bool IsTaken(const std::function<void()>& action) {
    try {
        action();
        return true;
    } catch (const UsageError& error) {
        CheckRefusal(error.what());
        return false;
    }
}

void CheckNumbers(const std::string& word) {
    constexpr std::int64_t kHighest = 1000;
    Ratio ratio;
    if (IsTaken([&] { ratio = ParseRatio(word); })) {
        Require(ParseRatio(ratio.ToString()) == ratio, "a number is read as it was written", word);
    }
    if (IsTaken([&] { ratio = ParseSpeed(word); })) {
        Require(ratio <= Ratio(kHighest, 1) && ratio >= Ratio(-kHighest, 1), "a speed is at most 1000", word);
    }
    Player::SampleRate rate;
    if (IsTaken([&] { rate = ParseRate(word); })) {
        Require(rate.Positive() && rate <= Ratio(kHighest, 1), "a rate is above 0 and at most 1000", word);
    }
}

void CheckTime(const std::string& word) {
    TimePoint time;
    if (IsTaken([&] { time = ParseTime(word); })) {
        Require(time >= TimePoint(), "no time is before the origin", word);
        Require(ParseTime(time.ToString()) == time, "a time is read as it was written", word);
        Require(ParseTime(time.ToDurationString()) == time, "a time is read in hours as well", word);
    }
}

/// On the second of two tracks; whatever is taken is within what the options' rules say.
void CheckTrackOption(const std::string& word, void (TrackOptions::*add)(const std::string&)) {
    constexpr std::size_t kHighestWeight = 1000;
    TrackOptions options;
    std::vector<SessionTrack> tracks;
    if (!IsTaken([&] { (options.*add)(word); }) || !IsTaken([&] {
            tracks = options.Apply({nullptr, nullptr});
        })) {
        return;
    }
    for (const SessionTrack& track : tracks) {
        Require(track.weight >= 1 && track.weight <= kHighestWeight, "a weight is from 1 to 1000", word);
        const auto& longest = track.rule.LongestWait();
        Require(!longest || *longest >= TimePoint(), "no wait is shorter than none", word);
    }
    Require(!IsTaken([&] {
        (options.*add)(word);
        static_cast<void>(options.Apply({nullptr, nullptr}));
    }),
            "an option is given to a track once", word);
}

void CheckOutput(const std::string& word) {
    Output output;
    if (IsTaken([&] { output = ParseOutput(word); })) {
        Require(output.IsWritten() == !output.path.empty(), "what is written is written somewhere", word);
    }
}

/// Thrown where a command line has been parsed and would now be carried out.
struct Parsed {};

void AddCommands(CLI::App& program, int& status) {
    AddInfoCommand(program, status);
    AddPlayCommand(program, status);
    AddVerifyCommand(program, status);
    AddBenchCommand(program, status);
    AddSimulateCommand(program, status);
    program.parse_complete_callback([] { throw Parsed(); });
}

void CheckCommands(const CLI::App& program) {
    for (const CLI::App* command : program.get_subcommands()) {
        const CLI::Option* files = command->get_option_no_throw("FILE");
        Require(files == nullptr || files->count() > 0, "a command that takes files has one",
                command->get_name());
    }
}

void CheckCommandLine(const std::vector<std::string>& words) {
    CLI::App program;
    program.name("playout");
    program.set_version_flag("--version", "playout");
    program.require_subcommand(0, 1);
    int status = Success;
    AddCommands(program, status);
    std::vector<const char*> arguments{"playout"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    try {
        program.parse(static_cast<int>(arguments.size()), arguments.data());
        Require(false, "a command line that is parsed is carried out");
    } catch (const Parsed&) {
        CheckCommands(program);
    } catch (const CLI::Success&) {
        Require(!program.help().empty(), "help is there when it is asked for");
    } catch (const CLI::ParseError& error) {
        CheckRefusal(error.what());
    } catch (const UsageError& error) {
        CheckRefusal(error.what());
    }
    Require(status == Success, "nothing is carried out here");
}

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Tavrin::Fuzz;
    const std::vector<std::string> words = Words(std::string(data, data + size));
    for (const std::string& word : words) {
        CheckNumbers(word);
        CheckTime(word);
        CheckOutput(word);
        CheckTrackOption(word, &TrackOptions::AddOffset);
        CheckTrackOption(word, &TrackOptions::AddWait);
        CheckTrackOption(word, &TrackOptions::AddWeight);
    }
    CheckCommandLine(words);
    return 0;
}
