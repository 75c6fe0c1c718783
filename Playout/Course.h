#pragma once

#include <cstdint>
#include <optional>

#include "Playout/PlayCommand.h"
#include "Playout/Playback.h"
#include "Playout/PlayoutExport.h"
#include "Playout/Session.h"
#include "Playout/TickSchedule.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The way of a session's play head: where it starts, where the next tick takes it and where it ends, under
/// commands that change it between ticks.
///
/// Commands are gathered and take effect together at the next tick, so that any number of them between two
/// ticks costs one jump. A change of speed leads to the first place beyond the present one, in the direction
/// of play: no picture is shown twice for it, and none on the side that was left.
///
/// *Threads:* bound to one thread, the session's. *Blocking:* never. *Ownership:* borrows the session, and
/// copies the options. *Errors:* the constructor as that of Playback.
class TAVRIN_PLAYOUT_EXPORT Course final {
public:
    Course(Session& session, const PlaybackOptions& options);

    /// The play head at the first tick. Commands applied before Begin have moved it.
    [[nodiscard]] Time::TimePoint Start() const;

    /// Takes the session to the start.
    void Begin();

    /// Notes a command; Quit is the caller's to see to. The first one lifts PlaybackOptions::to.
    void Apply(const PlayCommand& command);

    /// The next tick begins elsewhere than playing on would take it.
    [[nodiscard]] bool JumpsNext() const { return next_.has_value(); }

    /// Between DragTo and Release.
    [[nodiscard]] bool IsDragged() const { return released_.has_value(); }

    /// No tick changes anything until the next command.
    [[nodiscard]] bool Stands() const { return speed_ == Time::Ratio() && !JumpsNext(); }

    /// The next tick would lead out of what is to be played.
    [[nodiscard]] bool EndsNext() const;

    /// The play head stands where it is.
    void Halt();

    /// Ticks the session once: asks it to move by one tick, or takes it to where the commands say.
    TickReport Tick();

private:
    void Do(const SetSpeed& command);
    void Do(const JumpTo& command);
    void Do(const StepBy& command);
    void Do(const DragTo& command);
    void Do(const Release& command);
    void Do(const Quit& command);

    void CheckTimes() const;
    [[nodiscard]] Time::TimePoint LastMoment() const;
    [[nodiscard]] Time::TimePoint DefaultStart() const;
    [[nodiscard]] Time::TimePoint Here() const;
    [[nodiscard]] Time::TimePoint Inside(const Time::TimePoint& position) const;
    [[nodiscard]] TickSchedule::Place After(const Time::TimePoint& head) const;
    [[nodiscard]] Time::TimePoint Stepped(std::int64_t nbPictures) const;
    void Plan();

    Session& session_;
    PlaybackOptions options_;
    Time::Ratio speed_;
    TickSchedule schedule_;
    bool hasBegun_ = false;
    std::uint64_t nbMoves_ = 0;                ///< Since the schedule's start.
    std::optional<Time::TimePoint> position_;  ///< Where commands want the next tick.
    std::optional<TickSchedule::Place> next_;  ///< The place of the next tick, when playing on is not it.
    std::optional<Time::Ratio> released_;      ///< While dragging, the speed to go on with.
};

}  // namespace Tavrin::Playout
