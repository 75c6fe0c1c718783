#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "apps/playout/Arguments.h"
#include "apps/playout/Commands.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr std::size_t kHelpColumn = 26;

void Describe(CLI::App& program) {
    program.name("playout");
    program.description(
        "Plays video recordings forward and backward at any speed, picture by exact picture.\n"
        "They are shown in a window where there is a display, or written as files, and counted.\n");
    program.footer(
        "Examples:\n"
        "  playout info clip.mp4                                  what is in the file\n"
        "  playout play clip.mp4 --speed -1                       backward, in real time\n"
        "  playout play clip.mp4 --speed 4 --output y4m:fast.y4m  four times as fast, written as video\n"
        "  playout play clip.mp4 --from 12.5 --speed 0 --output png:still\n"
        "                                                         one picture, as still/*.png\n"
        "  playout play left.mp4 right.mp4 --output png:both      two files in step, side by side\n"
        "  playout verify clip.mp4                                compares with a straight decode\n"
        "  playout bench clip.mp4 --cases play,jump               how well it is played here\n"
        "  playout simulate --tracks 64 --cores 16 --find-tracks  how many would play on other machines\n"
        "\n"
        "`playout COMMAND --help` tells about a command. Exit status: 0 done; 1 error, or a\n"
        "difference found; 2 wrong usage; 128 plus the signal's number when interrupted.");
    program.set_version_flag("--version", "playout " PLAYOUT_VERSION, "Print the version and exit");
    program.require_subcommand(0, 1);
    program.get_formatter()->column_width(kHelpColumn);
    program.set_help_flag("-h,--help", "Print this help and exit");
}

/// In one line, whatever the parser's own messages hold.
int ReportUsage(const std::string& message) {
    std::cerr << "playout: " << message.substr(0, message.find('\n'))
              << " (playout --help tells how it is used)\n";
    return Usage;
}

int ReportFailure(const std::string& message) {
    std::cerr << "playout: " << message << '\n';
    return Failure;
}

/// Parses the command line, which runs the command.
int Run(CLI::App& program, int argc, char** argv) {
    int status = Success;
    AddInfoCommand(program, status);
    AddPlayCommand(program, status);
    AddVerifyCommand(program, status);
    AddBenchCommand(program, status);
    AddSimulateCommand(program, status);
    try {
        program.parse(argc, argv);
        if (program.get_subcommands().empty()) {
            std::cerr << program.help();
            return Usage;
        }
    } catch (const CLI::Success& help) {
        return program.exit(help);
    } catch (const CLI::ParseError& error) {
        return ReportUsage(error.what());
    } catch (const UsageError& error) {
        return ReportUsage(error.what());
    }
    return status;
}

int Main(int argc, char** argv) {
    CLI::App program;
    Describe(program);
    const int status = Run(program, argc, argv);
    // Output that could not be written is no success, whatever the command made of it.
    std::cout.flush();
    return std::cout || status != Success ? status : ReportFailure("standard output cannot be written");
}

}  // namespace

}  // namespace Tavrin::Playout::Program

int main(int argc, char** argv) {
    using namespace Tavrin::Playout::Program;
    try {
        return Main(argc, argv);
    } catch (const std::bad_alloc&) {
        return ReportFailure("out of memory; --memory may be set lower");
    } catch (const std::exception& error) {
        return ReportFailure(error.what());
    }
}
