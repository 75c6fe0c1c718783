#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/ReadinessRule.h"
#include "Playout/RecordingIndex.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// One of the recordings that a session plays in step, and its part in it.
///
///     origin of the session
///     |
///     |[ offset 0 =======]
///     |          [ offset 4 s =============]      empty before its beginning
///     ##[ offset -2 s =======]                    its first two seconds (#) are never on show
///
/// Tracks may share an index: each reads and decodes for itself.
struct SessionTrack {
    std::shared_ptr<const RecordingIndex> recording;

    /// Where the recording begins on the session's timeline.
    Time::TimePoint offset;

    ReadinessRule rule;

    /// Its share of the memory is this part of the sum of all weights. At least 1.
    std::size_t weight = 1;
};

/// Required tracks of these recordings, each of which begins at the origin.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<SessionTrack> TracksFromTheOrigin(
    std::vector<std::shared_ptr<const RecordingIndex>> recordings);

/// The tracks themselves. Throws std::invalid_argument, naming track, value and rule, when there are none, or for
/// one without a recording, without weight, or whose recording is over before the origin.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<SessionTrack> CheckedTracks(std::vector<SessionTrack> tracks);

}  // namespace Tavrin::Playout
