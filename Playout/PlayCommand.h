#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// From now on at this speed; the play head stays where it is. Zero: the picture stands.
struct SetSpeed {
    Time::Ratio speed;
    friend bool operator==(const SetSpeed&, const SetSpeed&) = default;
};

/// To the picture that is on display at that time; the speed stays. Beyond an end the picture at that end.
struct JumpTo {
    Time::TimePoint position;
    friend bool operator==(const JumpTo&, const JumpTo&) = default;
};

/// By so many pictures, backward when negative; the play head then stands there.
struct StepBy {
    std::int64_t nbPictures = 0;
    friend bool operator==(const StepBy&, const StepBy&) = default;
};

/// To that time, as JumpTo, and stays there until it is dragged on or released.
struct DragTo {
    Time::TimePoint position;
    friend bool operator==(const DragTo&, const DragTo&) = default;
};

/// Ends dragging: playing goes on from there, at the speed from before. Nothing when nothing is dragged.
struct Release {
    friend bool operator==(const Release&, const Release&) = default;
};

/// Ends playing.
struct Quit {
    friend bool operator==(const Quit&, const Quit&) = default;
};

/// What an operator can ask of a session that plays, as a value.
using PlayCommand = std::variant<SetSpeed, JumpTo, StepBy, DragTo, Release, Quit>;

/// A command and when it is given: wall time since the first tick.
struct TimedCommand {
    Time::TimePoint at;
    PlayCommand command;
    friend bool operator==(const TimedCommand&, const TimedCommand&) = default;
};

/// Where commands come from: a script, an operator.
///
/// The implementer guarantees:
/// 1. Both functions return at once.
/// 2. Once IsOpen has returned false, there is never a command again.
///
/// It may assume:
/// 1. Take is called once before the first tick, with the origin, and once before each further one, with
///    times that increase.
/// 2. Both are called on the thread that plays.
///
/// *Threads:* bound to one thread. *Errors:* what it throws ends playing and comes through.
class TAVRIN_PLAYOUT_EXPORT ICommandSource {
public:
    ICommandSource() = default;
    ICommandSource(const ICommandSource&) = delete;
    ICommandSource& operator=(const ICommandSource&) = delete;
    virtual ~ICommandSource();

    /// The commands for the tick that begins `at` this time after the first one, in their order.
    [[nodiscard]] virtual std::vector<PlayCommand> Take(const Time::TimePoint& at) = 0;

    /// Whether a command may still come.
    [[nodiscard]] virtual bool IsOpen() const = 0;
};

}  // namespace Tavrin::Playout
