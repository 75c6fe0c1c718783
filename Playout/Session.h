#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Player/IStream.h"
#include "Player/SampleRate.h"
#include "Playout/CellState.h"
#include "Playout/Counters.h"
#include "Playout/DecodeLane.h"
#include "Playout/FieldOrder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Playout/SessionTrack.h"
#include "Playout/WaitCause.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What one track shows after a tick.
struct TrackView {
    /// `New` or `Same`: the picture that belongs to the play head (at speeds at which the display cannot show
    /// every picture, the last one fetched at or before it). `NotReady`: it is still on its way. `Empty`: there is none.
    Player::SampleStatus status = Player::SampleStatus::NotReady;

    /// What is on show: with `NotReady`, and with `Empty` inside the recording, the picture shown before, if
    /// any; null outside of the recording.
    std::shared_ptr<const Picture> picture;

    /// The lines of it that are on show.
    PictureField field = PictureField::Frame;

    /// The play head stands inside the recording, but the picture cannot be read or decoded.
    bool missing = false;

    /// The picture on show is not the one that belongs there but the nearest that could be had: at a speed at
    /// which not all that is shown can be decoded, and while the play head is dragged.
    bool standIn = false;
};

/// A track whose picture is still on its way, and what that means for the others.
struct TrackWait {
    std::size_t track = 0;
    Playout::WaitCause cause = WaitCause::None;  ///< What it waits for.
    std::chrono::nanoseconds waited{0};          ///< Wall time since it had its picture, or since the jump.
    bool holds = false;                          ///< The play head stands for it; else the others go on.

    /// With `holds`: the wall time after which the others go on without it; nothing where they never do.
    std::optional<std::chrono::nanoseconds> left;
};

/// What a tick came to.
struct TAVRIN_PLAYOUT_EXPORT TickReport {
    std::uint64_t tick = 0;  ///< Counted from 0 over the life of the session.
    Time::TimePoint time;    ///< The play head after the tick.
    bool moved = false;      ///< The play head was let go; false while it stands for a track.
    std::vector<TrackView> tracks;
    std::vector<TrackWait> waits;  ///< One for each track that is `NotReady`, in the order of the tracks.

    /// The speed that the play head has really made over the last second of wall time, or since the latest
    /// jump or change of speed: its way from the first of its moves in that time to the latest, divided by the
    /// wall time between them (while the next move is overdue: the wall time up to now, less a tick). The
    /// speed asked for as long as there is no such move. For people and counters, never to count with.
    double heldSpeed = 0;

    /// The play head stands for no track: those whose pictures are still on their way are not waited for.
    [[nodiscard]] bool IsReady() const;
};

/// What a track has come to since the session began; Counters tell more.
struct TrackInformation {
    std::uint64_t nbWithdrawn = 0;  ///< Orders taken back because they no longer mattered.
    std::size_t nbReady = 0;        ///< Decoded pictures in the cache now.
    std::size_t nbPending = 0;      ///< Entries, compressed and decoded, whose answer is still out.
    MediaPreloader::Information reading;
    DecodeLane::Information decoding;
    std::size_t memoryShare = 0;   ///< Bytes that the track may take.
    std::size_t pictureBytes = 0;  ///< That its pictures take now, wherever they are.
};

/// Recordings played in step: the whole road from the output tick to the picture, on the engine.
///
/// A client calls `Tick` once per output tick and shows what the report says. In real time the wall clock
/// says when; as fast as possible, `WaitForProgress` and `Tick` with a zero delta until the report is ready,
/// then the next step.
///
/// All tracks show the same moment of the session's timeline, each at its own place of its own recording. A
/// track whose recording has not begun yet or is over is empty, and holds nobody up.
///
/// *Threads:* bound to one thread. It runs its own workers.
/// *Blocking:* `Tick`, `TickTo`, `GoTo` and `SetSpeed` never wait for storage or a decoder. `WaitForProgress`
/// waits as long as it is told to. The destructor gives up the read and the decodes in progress and waits until
/// they have noticed.
/// *Ownership:* owns everything it needs and shares the indexes; the pictures in a report are shared and may
/// be kept as long as wanted (they then count against nobody's budget but the caller's). *Errors:* the
/// constructor throws `std::invalid_argument` without recordings, for a track that can never be shown and when
/// the memory is too little to play them, and `std::runtime_error` when a recording cannot be opened. A picture
/// that cannot be read or decoded is reported as missing, and asked for again
/// later.
class TAVRIN_PLAYOUT_EXPORT Session final {
public:
    /// All recordings begin at the origin and are required.
    explicit Session(std::vector<std::shared_ptr<const RecordingIndex>> recordings,
                     const SessionOptions& options = {});
    explicit Session(std::vector<SessionTrack> tracks, const SessionOptions& options = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] std::size_t NbTracks() const;
    [[nodiscard]] const SessionTrack& Track(std::size_t track) const;
    [[nodiscard]] const RecordingIndex& Recording(std::size_t track) const;
    [[nodiscard]] const Player::SampleRate& DisplayRate() const;

    /// The samples that a track is shown in: pictures or fields.
    [[nodiscard]] const FieldOrder& Samples(std::size_t track) const;

    /// Where a track's recording begins and ends on the session's timeline.
    [[nodiscard]] Time::TimePoint Begin(std::size_t track) const;
    [[nodiscard]] Time::TimePoint End(std::size_t track) const;

    /// The end of the recording that ends last: the first time point from which on there is no picture. The
    /// beginning is the origin, whether a recording begins there or not.
    [[nodiscard]] Time::TimePoint End() const;

    /// The picture of a track that belongs to a time of the session; nothing outside of its recording.
    [[nodiscard]] std::optional<std::size_t> PictureAtTime(std::size_t track,
                                                           const Time::TimePoint& tp) const;

    [[nodiscard]] const Time::TimePoint& CurrentTime() const;
    [[nodiscard]] Time::Ratio Speed() const;

    /// Takes effect at the next tick. Orders for pictures that the new speed does not show are withdrawn.
    void SetSpeed(const Time::Ratio& speed);

    /// Jumps, to the origin at the earliest. Orders that no longer matter are withdrawn and answered, and reads
    /// and decodes in progress that no longer matter are given up; what is cached is kept as long as its memory
    /// is not needed.
    void GoTo(const Time::TimePoint& tp);

    /// The same, but until its picture is there each track shows the nearest that it has, marked as standing
    /// in: for a play head that is dragged. Up to the next GoTo or SetSpeed.
    void DragTo(const Time::TimePoint& tp);

    /// Whether, at a speed at which the display cannot show every picture, pictures that cannot be decoded in time
    /// are stood in for by the nearest ones that can. Then the play head waits for none at such speeds. Not
    /// allowed until this is called: what plays in real time wants it, what needs each picture does not.
    void AllowStandIns(bool allowed);

    /// Shares that much memory among the tracks from now on; zero: as much as the options say for zero. Throws
    /// std::invalid_argument, naming the number that would do, when it is too little to play, and changes
    /// nothing then.
    void SetMemory(std::size_t nbBytes);

    /// Bytes that all tracks may take together.
    [[nodiscard]] std::size_t Memory() const;

    /// Whether no track that is waited for will have to be waited for at the next `nb` samples, however slow its
    /// decoder: see MediaStream::HasAhead.
    [[nodiscard]] bool HasAhead(std::size_t nb) const;

    /// Files what the workers have delivered, advances the play head by `delta` (wall time since the tick
    /// before) times the speed unless it stands for a track, looks up what each track shows, orders what will
    /// be needed and drops what will not.
    TickReport Tick(const Time::TimePoint& delta);

    /// The same, to exactly `head` (the origin at the earliest), which the caller has reckoned: where each
    /// step is rounded by itself, hours of them drift.
    TickReport TickTo(const Time::TimePoint& head);

    /// The same for an output tick at which the play head stays where it is, because what the last tick asked for
    /// has not been shown yet. `Tick` with a zero delta looks the same, but counts as a look between two ticks.
    TickReport TickInPlace();

    /// Waits until the workers have delivered something since the last tick, at most `timeout`; whether they
    /// have.
    bool WaitForProgress(std::chrono::milliseconds timeout);

    [[nodiscard]] TrackInformation GetInformation(std::size_t track) const;

    /// What playing has come to, as of the last tick; what the workers have done, as of now. Costs by the
    /// tracks and by what their caches hold: meant for every second rather than for every tick.
    [[nodiscard]] Counters GetCounters() const;

    /// What the session records into; null when it does not.
    [[nodiscard]] Trace* GetTrace() const;

    /// What is known of a track's pictures, for a timeline; cheap enough to be asked at every tick. The range
    /// is one of the session's time, and may reach beyond the recording.
    [[nodiscard]] std::vector<CellState> CellStates(std::size_t track, const CellRange& range) const;

    /// The preloader, for hooks that tests put into reading; not to be used for anything else.
    [[nodiscard]] MediaPreloader& Preloader();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Tavrin::Playout
