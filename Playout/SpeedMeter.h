#pragma once

#include <chrono>
#include <deque>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The speed that a play head really makes, from where it stood when.
///
///     held speed = (head at the latest move - head at the first one)
///                  / max(wall time between these moves, wall time since the first one less a tick)
///
/// over the moves of the last second of wall time, and one before. The second term lets the speed fall while a move
/// is overdue; until then a play head that stands between two ticks makes what it is meant to. Signed as the
/// speed is: backward it is negative.
///
/// It reads no clock: what time it is is told to it.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none; the rate must be above zero.
class TAVRIN_PLAYOUT_EXPORT SpeedMeter final {
public:
    using Clock = std::chrono::steady_clock;

    /// That of the display: a tick is one of its samples.
    explicit SpeedMeter(const Player::SampleRate& display);

    /// What was noted no longer counts: the play head was put elsewhere, or is to go at another speed.
    void Restart() { moves_.clear(); }

    [[nodiscard]] bool HasBegun() const { return !moves_.empty(); }

    /// At `now`, later than whatever was noted before, the play head has come to `head`.
    void Note(Clock::time_point now, const Time::TimePoint& head);

    /// At `now`; `asked` as long as there is nothing to tell it from.
    [[nodiscard]] double Held(Clock::time_point now, double asked) const;

private:
    struct Move {
        Clock::time_point when;
        Time::TimePoint head;
    };

    std::chrono::nanoseconds tick_;
    std::deque<Move> moves_;
};

}  // namespace Tavrin::Playout
