#include "Playout/Support/ProgramRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace Tavrin::Playout::Support {

namespace {

constexpr std::chrono::seconds kDeadline{250};
constexpr int kSignalStatus = 128;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Channel {
    int here = -1;
    int there = -1;
};

Channel MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        Fail("pipe2");
    }
    return {ends[0], ends[1]};
}

Channel MakeTerminal() {
    Channel channel;
    channel.here = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (channel.here < 0 || grantpt(channel.here) != 0 || unlockpt(channel.here) != 0) {
        Fail("posix_openpt");
    }
    channel.there = open(ptsname(channel.here), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (channel.there < 0) {
        Fail("ptsname");
    }
    return channel;
}

Channel MakeOutput(const std::string& file) {
    if (file.empty()) {
        return MakePipe();
    }
    const int there = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (there < 0) {
        Fail(file.c_str());
    }
    return {-1, there};
}

void Close(int& file) {
    if (file >= 0) {
        close(file);
        file = -1;
    }
}

bool NamesDisplay(const std::string& variable) {
    return variable.rfind("DISPLAY=", 0) == 0 || variable.rfind("WAYLAND_DISPLAY=", 0) == 0 ||
           variable.rfind("SDL_VIDEODRIVER=", 0) == 0;
}

/// This process's environment without a display, and what is added to it.
std::vector<std::string> EnvironmentWith(const std::vector<std::string>& added) {
    std::vector<std::string> variables;
    for (char* const* variable = environ; *variable != nullptr; ++variable) {
        if (!NamesDisplay(*variable)) {
            variables.emplace_back(*variable);
        }
    }
    variables.insert(variables.end(), added.begin(), added.end());
    return variables;
}

/// As the system takes them; valid as long as the texts.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                   [](std::string& text) { return text.data(); });
    pointers.push_back(nullptr);
    return pointers;
}

/// In the child: becomes the program, or ends. Calls nothing that takes locks.
[[noreturn]] void Become(char* const* arguments, char* const* environment, int output, int errors) {
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    execve(arguments[0], arguments, environment);
    _exit(kSignalStatus - 1);
}

}  // namespace

ProgramRun::ProgramRun(const std::vector<std::string>& arguments, const Options& options)
    : deadline_(std::chrono::steady_clock::now() + kDeadline) {
    std::vector<std::string> copies = arguments;
    std::vector<std::string> variables = EnvironmentWith(options.environment);
    const std::vector<char*> argumentPointers = Pointers(copies);
    const std::vector<char*> variablePointers = Pointers(variables);
    Channel output = MakeOutput(options.outputFile);
    Channel errors = options.errorsToTerminal ? MakeTerminal() : MakePipe();
    process_ = fork();
    if (process_ < 0) {
        Fail("fork");
    }
    if (process_ == 0) {
        Become(argumentPointers.data(), variablePointers.data(), output.there, errors.there);
    }
    Close(output.there);
    Close(errors.there);
    outputFile_ = output.here;
    errorsFile_ = errors.here;
}

ProgramRun::~ProgramRun() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Close(outputFile_);
    Close(errorsFile_);
}

bool ProgramRun::ReadUntil(const std::string& text) {
    while (result_.output.find(text) == std::string::npos) {
        if (!ReadSome() || outputFile_ < 0) {
            return result_.output.find(text) != std::string::npos;
        }
    }
    return true;
}

void ProgramRun::Signal(int number) const {
    kill(process_, number);
}

void ProgramRun::CloseOutput() {
    Close(outputFile_);
}

ProgramResult ProgramRun::Finish() {
    while (ReadSome()) {
    }
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalStatus + WTERMSIG(status);
    return result_;
}

/// Waits for output of either kind; false once both have ended. Kills the program at the deadline.
bool ProgramRun::ReadSome() {
    if (outputFile_ < 0 && errorsFile_ < 0) {
        return false;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - std::chrono::steady_clock::now());
    std::array<pollfd, 2> files{{{outputFile_, POLLIN, 0}, {errorsFile_, POLLIN, 0}}};
    const int wait = std::max(0, static_cast<int>(left.count()));
    if (poll(files.data(), files.size(), wait) == 0) {
        Signal(SIGKILL);
        deadline_ += kDeadline;
    }
    if (files[0].revents != 0) {
        ReadFrom(outputFile_, result_.output);
    }
    if (files[1].revents != 0) {
        ReadFrom(errorsFile_, result_.errors);
    }
    return true;
}

void ProgramRun::ReadFrom(int& file, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t nb = read(file, buffer.data(), buffer.size());
    if (nb > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(nb));
    } else {
        // A terminal whose other side has closed gives an error instead of an end.
        Close(file);
    }
}

}  // namespace Tavrin::Playout::Support
