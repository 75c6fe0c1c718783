#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "Playout/IPictureSink.h"
#include "Playout/PlayCommand.h"
#include "Playout/PlayReport.h"
#include "Playout/PlayoutExport.h"
#include "Playout/Session.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What to play of a session, and how.
struct PlaybackOptions {
    Time::Ratio speed{1, 1};  ///< Negative: backward. Zero: the picture at `from` stands.

    /// The first picture is the one on display here; not given: the first, backward the last of the longest
    /// recording. Backward, a time at or after the end stands for the last picture.
    std::optional<Time::TimePoint> from;

    /// Playing ends before a tick whose play head would lie at or after this time point, backward before it;
    /// not given: at the end of the longest recording, backward at the origin. Not allowed at speed zero.
    std::optional<Time::TimePoint> to;

    /// Ticks at most; not given: no limit, at speed zero one unless there are commands.
    std::optional<std::uint64_t> nbTicks;

    /// Paced by the wall clock, where a tick whose pictures are not ready repeats those on show; otherwise as
    /// fast as the pictures come, waiting for every one.
    bool realTime = false;

    /// Playing fails when storage and decoders answer nothing for this long while a picture is waited for, or
    /// when a picture has not come after ten times as long, whatever they answer.
    std::chrono::milliseconds stallTimeout{30'000};
};

/// Plays a session from one time point to another: the output's clock, and the waiting for pictures.
///
/// In real time the tracks stay in step and no picture is left out: while a track is not ready, all of them
/// keep showing the tick before, and what should have been shown comes at the next tick. The play head falls
/// behind the wall clock by that, and the report says by how many ticks.
///
/// Commands change the course between ticks. While one may still come, playing does not end where there is
/// nothing more to play: the play head stands there, at speed zero, and ticks go on. Once none can come, it ends
/// there, or when the play head stands. A picture that a command asks for is late like any other until it is
/// there; only while the play head is dragged, each track shows what it has at once.
///
/// *Threads:* bound to one thread, the session's; the stop flag may be set from any thread or a signal
/// handler. *Blocking:* Run until playing ends. It looks at the stop flag at least every 50 ms. *Ownership:*
/// borrows the session, which must outlive it. *Errors:* the constructor throws std::invalid_argument, naming
/// the values, when there is nothing to play from there to there at that speed. Run throws std::runtime_error
/// when playing stalls, and lets through what the callback and the command source throw.
class TAVRIN_PLAYOUT_EXPORT Playback final {
public:
    /// Called for each tick: what is on show from now on, and what the session said about it. False ends
    /// playing.
    using TickCallback = std::function<bool(const ShownTick& shown, const TickReport& report)>;

    Playback(Session& session, const PlaybackOptions& options);

    /// The play head at the first tick.
    [[nodiscard]] const Time::TimePoint& Start() const { return start_; }

    /// Jumps to the start, plays to the end and calls `show` for each tick. Ends early once `*stop` is true.
    /// The times of commands are those of the ticks: in real time wall time since the first tick; as fast as
    /// possible, what that would be if every tick had come in time. The session keeps its place and speed;
    /// each run begins anew.
    PlayReport Run(const TickCallback& show, const std::atomic<bool>* stop = nullptr,
                   ICommandSource* commands = nullptr);

private:
    class Runner;

    Session& session_;
    PlaybackOptions options_;
    Time::TimePoint start_;
};

}  // namespace Tavrin::Playout
