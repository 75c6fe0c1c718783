#pragma once

#include <chrono>
#include <cstdint>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The ticks of an output on the steady clock: one at each sample start of the display rate, counted from a
/// moment of its own, so that sleeping too long once does not move the ticks after it.
///
/// It reads no clock: what time it is is told to it.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none; the rate must be above zero.
class TAVRIN_PLAYOUT_EXPORT Pacer final {
public:
    using Clock = std::chrono::steady_clock;

    /// Tick 0 is on show from `start` on.
    Pacer(const Player::SampleRate& display, Clock::time_point start) : display_(display), start_(start) {}

    /// When the next tick is due.
    [[nodiscard]] Clock::time_point Due() const;

    /// Begins the next tick at `now`, at or after Due(), and returns how many ticks were slept through
    /// before it: those whose time was over at `now`.
    std::uint64_t Begin(Clock::time_point now);

    /// When the running tick began, counted from the start of tick 0.
    [[nodiscard]] Time::TimePoint Elapsed() const;

private:
    Player::SampleRate display_;
    Clock::time_point start_;
    std::int64_t tick_ = 0;
};

}  // namespace Tavrin::Playout
