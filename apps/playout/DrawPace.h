#pragma once

#include <algorithm>
#include <chrono>

namespace Tavrin::Playout::Program {

/// When a window may be drawn, so that drawing takes no ticks away: no more often than an interval, and for
/// no more than three quarters of the time when it is slow. Playing goes on beside what is not drawn.
///
/// It reads no clock. *Threads:* externally synchronised. *Errors:* none.
class DrawPace final {
public:
    using Clock = std::chrono::steady_clock;

    /// An interval of zero: at every tick.
    explicit DrawPace(Clock::duration interval) : interval_(interval) {}

    [[nodiscard]] bool IsDue(Clock::time_point now) const { return now >= due_; }

    /// Something was drawn from `begin` to `end`.
    void Drew(Clock::time_point begin, Clock::time_point end) {
        const Clock::duration took = end - begin;
        due_ = begin + std::max(interval_, took + took / 3);
    }

private:
    Clock::duration interval_;
    Clock::time_point due_;
};

}  // namespace Tavrin::Playout::Program
