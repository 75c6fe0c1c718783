#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Playout/Session.h"
#include "Playout/WaitCause.h"
#include "Time/Ratio.h"

namespace Tavrin::Playout::Program {

/// Whether a speed falls short of the one asked for by more than the unevenness of ticks.
[[nodiscard]] bool IsShort(double held, const Time::Ratio& asked);

/// Says once when a speed cannot be held, and for which track the play head waits.
///
/// A speed is not held when the measured one is below 0.98 of the one asked for for more than a second. It
/// reads no clock: what time it is is told to it.
///
/// *Threads:* bound to one thread. *Errors:* none.
class SpeedNotice final {
public:
    using Clock = std::chrono::steady_clock;

    /// Notes what a tick in real time came to. The first time that it shows that the speed cannot be held, the
    /// line that says so; nothing otherwise.
    [[nodiscard]] std::optional<std::string> Note(Clock::time_point now, const Time::Ratio& asked,
                                                  const TickReport& tick);

    /// For a summary: the lowest speed that was measured while it could not be held, and who was waited for;
    /// empty when it could.
    [[nodiscard]] std::string Summary() const;

private:
    struct Shortfall {
        double held = 0;
        Time::Ratio asked;
    };
    using Culprit = std::pair<std::size_t, WaitCause>;

    [[nodiscard]] std::string Describe(const Shortfall& shortfall) const;
    [[nodiscard]] static double PartOf(const Shortfall& shortfall);

    std::optional<Clock::time_point> since_;  ///< It is short.
    std::optional<Shortfall> worst_;
    std::map<Culprit, std::uint64_t> nbHeld_;  ///< Ticks that each track held up, and why.
};

}  // namespace Tavrin::Playout::Program
