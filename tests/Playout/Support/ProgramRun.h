#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Tavrin::Playout::Support {

/// What a program that has ended left behind.
struct ProgramResult {
    int status = -1;  ///< Its exit status, or 128 plus the number of the signal that ended it.
    std::string output;
    std::string errors;
};

/// One run of a program, its standard output and errors caught. The program is killed when it takes longer
/// than the deadline, which ProgramResult::status then shows, and when the run is destroyed.
///
/// *Threads:* bound to one thread. *Blocking:* ReadUntil and Finish on the program, to the deadline.
/// *Errors:* the constructor throws std::system_error when the program cannot be started.
class ProgramRun final {
public:
    struct Options {
        bool errorsToTerminal = false;  ///< Standard error is a terminal, a pseudo one.
        /// A file that takes standard output, instead of it being caught.
        std::string outputFile;
        /// Variables of its environment, "NAME=value". It has no display but by these, so that no test opens
        /// a window where somebody works.
        std::vector<std::string> environment;
    };

    explicit ProgramRun(const std::vector<std::string>& arguments) : ProgramRun(arguments, Options{}) {}
    ProgramRun(const std::vector<std::string>& arguments, const Options& options);
    ~ProgramRun();
    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;

    /// Reads standard output until it holds the text; false when it ends before that.
    bool ReadUntil(const std::string& text);
    /// Standard output as far as it was read.
    [[nodiscard]] const std::string& Output() const { return result_.output; }
    void Signal(int number) const;
    /// Nobody reads standard output from now on.
    void CloseOutput();
    /// Reads what is left and waits for the end.
    ProgramResult Finish();

private:
    bool ReadSome();
    void ReadFrom(int& file, std::string& text);

    int process_ = -1;
    int outputFile_ = -1;
    int errorsFile_ = -1;
    std::chrono::steady_clock::time_point deadline_;
    ProgramResult result_;
};

}  // namespace Tavrin::Playout::Support
