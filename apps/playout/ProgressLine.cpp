#include "apps/playout/ProgressLine.h"

#include <unistd.h>

#include <iostream>

namespace Tavrin::Playout::Program {

namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr std::size_t kWidth = 79;

/// Back to the first column, then erase to the end of the line.
constexpr const char* kRestart = "\r\x1b[K";

}  // namespace

ProgressLine::ProgressLine() : isTerminal_(isatty(STDERR_FILENO) == 1) {
}

ProgressLine::~ProgressLine() {
    Clear();
}

bool ProgressLine::IsDue() const {
    return isTerminal_ && std::chrono::steady_clock::now() >= due_;
}

void ProgressLine::Show(const std::string& text) {
    if (isTerminal_) {
        std::cerr << kRestart << text.substr(0, kWidth) << std::flush;
        isShown_ = true;
        due_ = std::chrono::steady_clock::now() + kInterval;
    }
}

void ProgressLine::Clear() {
    if (isShown_) {
        std::cerr << kRestart << std::flush;
        isShown_ = false;
    }
}

}  // namespace Tavrin::Playout::Program
