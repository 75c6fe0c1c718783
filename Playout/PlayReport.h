#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What the ticks of one track came to. The five counts add up to the ticks handed out.
struct TrackReport {
    std::uint64_t nbNew = 0;       ///< A picture other than at the tick before.
    std::uint64_t nbRepeated = 0;  ///< The picture of the tick before, as it should be.
    std::uint64_t nbLate = 0;  ///< The picture of the tick before, as the tick's own ones were not all ready.
    std::uint64_t nbMissing = 0;  ///< The picture cannot be read or decoded.
    std::uint64_t nbEmpty = 0;    ///< The play head stood outside of the recording.

    /// Of the late ones: those at which the play head stood for this track. Its other late ones are those at
    /// which it stood for another track, or went on without this one.
    std::uint64_t nbHeld = 0;
    std::uint64_t nbLeftBehind =
        0;  ///< Of the late ones: those at which the others went on without this one.
};

/// Why playing ended.
enum class PlayEnd {
    Reached,  ///< The end, or the origin, or the time point to play to.
    Counted,  ///< As many ticks as were asked for.
    Stopped,  ///< The caller, by the stop flag or from the callback.
    Quit      ///< A command.
};

/// What playing a session came to.
struct PlayReport {
    PlayEnd end = PlayEnd::Reached;
    std::uint64_t nbTicks = 0;      ///< Handed out.
    std::uint64_t nbLateTicks = 0;  ///< Of these, those at which the play head stood for a track.
    std::uint64_t nbSleptThrough =
        0;                         ///< Ticks due in real time that the caller or the machine slept through.
    std::uint64_t nbCommands = 0;  ///< Obeyed.
    Time::TimePoint first;         ///< The play head at the first tick.
    Time::TimePoint last;          ///< The play head at the last one.
    std::chrono::nanoseconds untilFirst{0};  ///< Wall time from the start of playing to the first tick.
    std::chrono::nanoseconds elapsed{0};     ///< Wall time from the first tick to the last one.

    /// The speed that was held: the way of the play head from tick to tick, jumps apart, divided by `elapsed`.
    /// Zero with a single tick. Below the speed that was asked for when the machine cannot hold that.
    double heldSpeed = 0;

    std::vector<TrackReport> tracks;
};

}  // namespace Tavrin::Playout
