#pragma once

#include <chrono>
#include <cstdint>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The ticks of an output on the steady clock: one at each sample start of the display rate, counted from a
/// moment of its own, so that sleeping too long once does not move the ticks after it. A tick that is held
/// up for its pictures does move them: then all are late by as much, and none is cut short.
///
/// It reads no clock: what time it is is told to it.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none; the rate must be above zero.
class TAVRIN_PLAYOUT_EXPORT Pacer final {
public:
    using Clock = std::chrono::steady_clock;

    /// Tick 0 is on show from `start` on.
    Pacer(const Player::SampleRate& display, Clock::time_point start)
        : display_(display), start_(start), anchor_(start) {}

    /// When the next tick is due.
    [[nodiscard]] Clock::time_point Due() const;

    /// Begins the next tick at `now`, at or after Due(), and returns how many ticks were slept through
    /// before it: those whose time was over at `now`.
    std::uint64_t Begin(Clock::time_point now);

    /// Begins the next tick at `now`, before Due(): what was held up is there. The ticks after it are counted
    /// from here.
    void Resume(Clock::time_point now);

    /// When the running tick was due, counted from the start of tick 0.
    [[nodiscard]] Time::TimePoint Elapsed() const;

private:
    [[nodiscard]] Clock::time_point StartOf(std::int64_t tick) const;

    Player::SampleRate display_;
    Clock::time_point start_;
    Clock::time_point anchor_;  ///< When tick 0 would have begun, had all begun as the running one.
    std::int64_t tick_ = 0;     ///< The running one.
};

}  // namespace Tavrin::Playout
