#include "apps/playout/IsolatedRun.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <system_error>

namespace Tavrin::Playout::Program {

namespace {

// The first byte of what comes through the pipe.
constexpr char kDone = '=';
constexpr char kFailed = '!';

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void WriteAll(int pipe, const std::string& text) {
    for (std::size_t nbWritten = 0; nbWritten < text.size();) {
        const ssize_t nb = write(pipe, text.data() + nbWritten, text.size() - nbWritten);
        if (nb <= 0) {
            return;
        }
        nbWritten += static_cast<std::size_t>(nb);
    }
}

std::string ReadAll(int pipe) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t nb = read(pipe, buffer.data(), buffer.size());
        if (nb > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(nb));
        } else if (nb == 0 || errno != EINTR) {
            return text;
        }
    }
}

/// In the process of the work. It ends at once: what the first process has begun, it alone may finish.
[[noreturn]] void Work(const std::function<std::string()>& work, int pipe) {
    std::string text;
    try {
        text = kDone + work();
    } catch (const std::exception& error) {
        text = kFailed + std::string(error.what());
    }
    WriteAll(pipe, text);
    _exit(0);
}

std::string Conclude(const std::string& text, int status) {
    if (WIFSIGNALED(status)) {
        throw std::runtime_error("ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (text.empty() || text.front() != kDone) {
        throw std::runtime_error(text.empty() ? "ended without a result" : text.substr(1));
    }
    return text.substr(1);
}

}  // namespace

std::string RunIsolated(const std::function<std::string()>& work) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        Fail("pipe");
    }
    const pid_t process = fork();
    if (process < 0) {
        Fail("fork");
    }
    if (process == 0) {
        close(ends[0]);
        Work(work, ends[1]);
    }
    close(ends[1]);
    const std::string text = ReadAll(ends[0]);
    close(ends[0]);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return Conclude(text, status);
}

}  // namespace Tavrin::Playout::Program
