#pragma once

#include <cstddef>

#include "Player/SampleRate.h"
#include "Playout/MediaStream.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Time/Ratio.h"

namespace Tavrin::Playout {

/// The bytes of decoded pictures for one track when nobody says otherwise: two of its longest groups, so that
/// in reverse one can be shown while the one before it is decoded; bounded, since a group may be as long as
/// the recording.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t DefaultTrackBytes(const RecordingIndex& recording);

/// How far a track looks around the play head at a speed: the lengths of wall time of the options in samples
/// of the rate that is fetched, as far as `bytes` of decoded pictures hold them.
///
///     forward    [behind][n][ahead ...............]
///     backward   [behind][n][ahead .....][room for the group that is being decoded]
///
/// Backward, room is left for a whole group, at most half of the memory: it comes out in the order that is not
/// wanted, and its pictures stay in the store until their turn comes. A few pictures ahead are always kept, however small
/// the memory is: with less, no decode can be hidden.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT StreamWindow PlanWindow(const RecordingIndex& recording,
                                                            const Player::SampleRate& displayRate,
                                                            const Time::Ratio& speed, std::size_t bytes,
                                                            const SessionOptions& options);

}  // namespace Tavrin::Playout
