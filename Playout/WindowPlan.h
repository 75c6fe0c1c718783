#pragma once

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

/// What a track may hold, in bytes.
struct WindowRoom {
    std::size_t pictures = 0;  ///< Decoded pictures around the play head.
    std::size_t packets = 0;   ///< Compressed packets.
};

/// How far a track looks around the play head at a speed: the lengths of wall time of the options in samples
/// of the rate that is fetched, as far as there is room for them.
///
///     forward    [behind][n][ahead ...............]
///     backward   [behind][n][ahead .....][room for the group that is being decoded]
///
/// Backward, room is left for a whole group, at most half of the memory: it comes out in the order that is not
/// wanted, and its pictures stay in the store until their turn comes. A few pictures ahead are always kept, however small
/// the memory is: with less, no decode can be hidden.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT StreamWindow PlanWindow(const RecordingIndex& recording,
                                                            const Player::SampleRate& displayRate,
                                                            const Time::Ratio& speed, const WindowRoom& room,
                                                            const SessionOptions& options);

}  // namespace Tavrin::Playout
