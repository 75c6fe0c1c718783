#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/ReadinessRule.h"

namespace Tavrin::Playout {

/// Whether the play head may move: for which tracks it waits, since when and for how much longer.
///
///     ready --picture not there--> waited for --longest wait is over--> left behind
///       ^                              |                                     |
///       +---------picture there--------+--------------picture there----------+
///
/// A required track is never left behind, an optional one at once. A jump begins all waits anew.
///
/// It reads no clock: what time it is is told to it.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* std::out_of_range for a track that there
/// is none of.
class TAVRIN_PLAYOUT_EXPORT TickGate final {
public:
    using Clock = std::chrono::steady_clock;

    /// One rule for each track.
    explicit TickGate(const std::vector<ReadinessRule>& rules);

    /// At `now`, later than whatever was noted before, the track has the picture that belongs to the play
    /// head, or is without it.
    void Note(std::size_t track, bool isReady, Clock::time_point now);

    /// The play head was put elsewhere: what was waited for no longer matters.
    void Restart();

    /// No track holds the play head.
    [[nodiscard]] bool IsOpen() const;

    /// The play head stands for this track.
    [[nodiscard]] bool Holds(std::size_t track) const;

    /// The track is without its picture, and the others go on.
    [[nodiscard]] bool IsLeftBehind(std::size_t track) const;

    /// For how long the track had been without its picture when it was noted last; zero when it has it. While
    /// the others go on, since it last had one.
    [[nodiscard]] Clock::duration Waited(std::size_t track) const;

    /// For how much longer the play head stands for this track at most; nothing where there is no limit.
    /// Meant for a track that holds it.
    [[nodiscard]] std::optional<Clock::duration> Left(std::size_t track) const;

private:
    struct Track {
        std::optional<Clock::duration> longestWait;
        std::optional<Clock::time_point> since;  ///< It is without its picture.
        Clock::time_point noted;
    };

    std::vector<Track> tracks_;
};

}  // namespace Tavrin::Playout
