#pragma once

// Its header is large, and few who use what is declared here need it.
namespace CLI {
class App;
}

namespace Tavrin::Playout::Program {

/// The exit statuses: what was asked for was done; it failed, or a difference was found; it cannot be meant.
enum ExitStatus { Success = 0, Failure = 1, Usage = 2 };

/// Each adds one command to the program; when it is given, parsing runs it and leaves its exit status in
/// `status`, which must outlive the parsing. Errors leave parsing as exceptions: UsageError, std::exception.
void AddBenchCommand(CLI::App& program, int& status);
void AddInfoCommand(CLI::App& program, int& status);
void AddPlayCommand(CLI::App& program, int& status);
void AddSimulateCommand(CLI::App& program, int& status);
void AddVerifyCommand(CLI::App& program, int& status);

}  // namespace Tavrin::Playout::Program
