#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace Tavrin::Playout::Program {

/// One line on standard error that is written over and over while something takes long: only on a terminal, a
/// few times a second, no wider than a usual one.
///
/// *Threads:* bound to one thread. *Blocking:* on the terminal. *Errors:* none.
class ProgressLine final {
public:
    ProgressLine();
    /// Leaves a clean line behind.
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Whether a text would be shown now: composing one for every picture would be a waste.
    [[nodiscard]] bool IsDue() const;

    void Show(const std::string& text);

    /// Removes the line, so that something else can be written.
    void Clear();

private:
    bool isTerminal_;
    bool isShown_ = false;
    std::chrono::steady_clock::time_point due_;
};

}  // namespace Tavrin::Playout::Program
