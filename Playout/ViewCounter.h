#pragma once

#include <chrono>
#include <cstdint>

#include "Playout/Counters.h"
#include "Playout/PlayoutExport.h"
#include "Playout/Session.h"
#include "Playout/WaitCause.h"

namespace Tavrin::Playout {

/// Why a session looked what its tracks show.
enum class LookKind {
    Between,  ///< To find out whether something has come, between two ticks of the output.
    InPlace,  ///< An output tick at which the play head stays where the last one asked for it to be.
    Tick      ///< Any other output tick.
};

/// Counts what a track's looks come to, and the time that it waits.
///
/// *Threads:* externally synchronised. *Blocking:* never, and never allocates.
class TAVRIN_PLAYOUT_EXPORT ViewCounter final {
public:
    using Clock = std::chrono::steady_clock;

    explicit ViewCounter(Clock::time_point now) : lastLook_(now) {}

    /// What a look at \p now found. Until the next one, the track waits for \p waitsFor.
    void Note(const TrackView& view, WaitCause waitsFor, LookKind kind, Clock::time_point now);

    [[nodiscard]] const PictureCounters& Pictures() const { return pictures_; }
    [[nodiscard]] const WaitCounters& Waits() const { return waits_; }

private:
    using Member = std::uint64_t PictureCounters::*;

    [[nodiscard]] static Member MemberFor(const TrackView& view);
    [[nodiscard]] bool Counts(Member found, LookKind kind) const;

    PictureCounters pictures_;
    WaitCounters waits_;
    WaitCause waitsFor_ = WaitCause::None;
    Clock::time_point lastLook_;
    Member last_ = &PictureCounters::nbLate;  ///< What the last look found; at first nothing has come.
    bool hasCountedBetween_ = false;          ///< Since the last output tick.
};

}  // namespace Tavrin::Playout
