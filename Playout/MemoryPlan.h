#pragma once

#include <cstddef>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// The decoders of a track.
struct LanePlan {
    std::size_t nbLanes = 2;
    int nbThreads = 1;  ///< Of each.
};

/// Two decoders a track: one goes on in its group while the next group is begun. Their threads together keep all
/// cores busy when there are few tracks, and do not get in each other's way when there are many. Pictures that
/// need no others are decoded side by side instead, one on each core, which costs no waiting.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT LanePlan PlanLanes(const RecordingIndex& recording, std::size_t nbTracks,
                                                       std::size_t nbCores);

/// What a track's memory is for, in bytes.
struct TrackNeeds {
    std::size_t picture = 0;    ///< One decoded picture.
    std::size_t packets = 0;    ///< The compressed packets of the groups at hand.
    std::size_t working = 0;    ///< Pictures that the decoders refer to or work on.
    std::size_t beingMade = 0;  ///< See BytesBeingMade.
    std::size_t least = 0;      ///< Below this the track cannot be played.
    std::size_t usual = 0;      ///< What it gets when nobody says otherwise.
};

/// What playing a recording takes. Usual are two of its longest groups of decoded pictures, so that in reverse
/// one can be shown while the one before it is decoded, and where groups are short, the window; bounded, since a group may be as long as the recording.
/// A decoder is taken to hold as many pictures as the codec's reordering asks for and a few to refer to.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT TrackNeeds NeedsOf(const RecordingIndex& recording,
                                                       const LanePlan& lanes);

/// Shares \p total among tracks: to each the least that it needs, and of the rest a part in proportion to its
/// weight. Throws std::invalid_argument, naming the number that would do, when the least is more than that or
/// when a weight is zero.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<std::size_t> ShareMemory(
    std::size_t total, const std::vector<TrackNeeds>& needs, const std::vector<std::size_t>& weights);

/// The total when nobody says otherwise: the usual for each track, at most half of the machine's memory unless
/// the least that all need is more.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t DefaultMemory(const std::vector<TrackNeeds>& needs);

}  // namespace Tavrin::Playout
