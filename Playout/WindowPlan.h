#pragma once

#include <chrono>
#include <cstddef>

#include "Player/SampleRate.h"
#include "Playout/MediaStream.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Time/Ratio.h"

namespace Tavrin::Playout {

/// Fewer pictures than this ahead of the play head cannot hide the time that one decode takes.
constexpr std::size_t kFewestAhead = 4;

/// Pictures of the longest group; at least one.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t LongestGroup(const RecordingIndex& recording);

/// What a track may hold, in bytes, and how long it waits for a group.
struct WindowRoom {
    std::size_t pictures = 0;  ///< Decoded pictures around the play head.
    std::size_t packets = 0;   ///< Compressed packets.
    std::size_t beingMade =
        0;  ///< Of the decoded pictures, those that decoders may be putting out at any moment.
    /// Wall time in which its longest group is decoded, beside what the other tracks decode; zero while unknown.
    std::chrono::duration<double> groupTime{0};
};

/// How far a track looks around the play head at a speed: the lengths of wall time of the options in samples
/// of the rate that is fetched, as far as there is room for them.
///
///     forward    [behind][n][ahead ...............]
///     backward   [behind][n][ahead .....][room for the group that is being decoded]
///
/// Backward, room is left for a group: it comes out in the order that is not wanted, and its pictures stay in the
/// store until their turn comes. A whole one, decoded once, if what then fits beside it lasts half as long again as
/// decoding the group takes, and not longer than the window; else at most two fifths of the memory, so that the group is
/// begun earlier, if need be before it is in the window, and its first pictures take a second pass. A few pictures ahead are always kept, however small the memory is: with less, no
/// decode can be hidden.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT StreamWindow PlanWindow(const RecordingIndex& recording,
                                                            const Player::SampleRate& displayRate,
                                                            const Time::Ratio& speed, const WindowRoom& room,
                                                            const SessionOptions& options);

}  // namespace Tavrin::Playout
