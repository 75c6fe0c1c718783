#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "Playout/PlayoutExport.h"
#include "Playout/Session.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// An operator's hands on a session: commands given at the ticks of an output in real time, and how long it
/// takes until the picture asked for is on show.
///
/// *Threads:* bound to one thread, the session's. *Blocking:* as each function says. *Ownership:* borrows the
/// session. *Errors:* every wait for a picture throws std::runtime_error after 30 s.
class TAVRIN_PLAYOUT_EXPORT TimedOperator final {
public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;

    explicit TimedOperator(Session& session);

    /// The time from one tick to the next.
    [[nodiscard]] Clock::duration Period() const { return period_; }
    [[nodiscard]] const TickReport& Shown() const { return report_; }

    /// The five below give the command at once, wait until it is carried out on all tracks, and return how
    /// long that took. Step moves by one tick at that speed and then stands still.
    Milliseconds Start(const Time::TimePoint& tp, const Time::Ratio& speed);
    Milliseconds GoTo(const Time::TimePoint& tp);
    Milliseconds Turn(const Time::Ratio& speed);
    Milliseconds Step(const Time::Ratio& speed);
    Milliseconds AwaitReady(const std::function<void()>& look = {});

    /// Jumps without waiting for the picture.
    void AskFor(const Time::TimePoint& tp);

    /// Files what is delivered until then; calls \p look whenever that may have changed what is on show.
    void WaitUntil(Clock::time_point due, const std::function<void()>& look = {});

    /// Until the next tick is due.
    void WaitForTick();

    /// Plays so many ticks in real time, as an output does: a tick that is not ready keeps what is on show.
    void Play(std::size_t nbTicks, const std::function<void()>& show);

    /// Waits until nothing is on its way any more, at most so long.
    void Settle(Clock::duration longest);

private:
    void Look();
    void Move();

    Session& session_;
    Clock::duration period_;
    Clock::time_point due_;
    TickReport report_;
    std::int64_t nbMoves_ = 0;
};

}  // namespace Tavrin::Playout
