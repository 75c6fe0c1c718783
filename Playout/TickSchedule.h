#pragma once

#include <cstdint>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// Where the play head stands at each tick of an output, so that rounding never moves it into a neighbouring
/// sample.
///
/// Tick k of the output begins at the start of sample k of the display rate. The play head then has gone
/// k/display * speed seconds from where it started, rounded up to a whole nanosecond once and not step by step:
/// it never drifts, at whatever speed and however long it plays. As sample starts are rounded up too, a
/// place that lies exactly on the edge between two samples of some other recording stays on its side of it:
/// recordings of any rates stay in exact step.
///
/// Times such as n*1001/30000 s are no whole nanoseconds, so a play head that is put on the start of a
/// sample and moved by rounded steps sooner or later falls just before it. It therefore starts inside of one: the ticks fall on q
/// places of a stream's sample, q being the denominator of the samples that pass in one tick, and the start
/// is half of such a place away from the edge.
///
///     speed 1, -1   [    ^    ]      q = 1
///     speed 1/2     [  ^    ^ ]      q = 2: both ticks lie a quarter away from the nearest edge
///
/// *Threads:* immutable. *Blocking:* never. *Errors:* the constructor throws std::invalid_argument when a
/// rate is zero, and std::overflow_error when the terms of the rates and the speed do not fit 64 bits
/// together.
class TAVRIN_PLAYOUT_EXPORT TickSchedule final {
public:
    TickSchedule(const Player::SampleRate& stream, const Player::SampleRate& display,
                 const Time::Ratio& speed);

    /// The place of the play head for the first tick, in the sample that is on display at `at`. Where the
    /// display cannot show every sample at this speed, that is the sample fetched for `at`, at or before it.
    [[nodiscard]] Time::TimePoint Start(const Time::TimePoint& at) const;

    /// Wall time from tick `tick` to the one after it.
    [[nodiscard]] Time::TimePoint Delta(std::uint64_t tick) const;

    /// Where the play head that is at `head` at tick `tick` comes to at the one after it: before the origin
    /// too, where a player would stop. Ticks follow one another from that of a place: the roundings of
    /// several steps then cancel.
    [[nodiscard]] Time::TimePoint Next(const Time::TimePoint& head, std::uint64_t tick) const;

    /// A place of the play head and the tick at which it stands there.
    struct Place {
        Time::TimePoint head;
        std::uint64_t tick = 0;
    };

    /// Where playing at this speed takes a play head that comes from elsewhere, as when the speed has just been
    /// changed: the first place of this schedule that lies beyond `head`, and at which no picture is shown
    /// that lies on the side it comes from. At speed zero the sample of `head` itself. Before the origin too.
    [[nodiscard]] Place After(const Time::TimePoint& head) const;

private:
    [[nodiscard]] bool IsBeyond(const Time::TimePoint& place, const Time::TimePoint& head) const;
    [[nodiscard]] Time::TimePoint WayAt(std::uint64_t tick) const;

    Player::SampleRate stream_;
    Player::SampleRate display_;
    Time::Ratio speed_;
    Player::SampleRate ticks_;    ///< Ticks in a second of the stream's time; zero at speed zero.
    Player::SampleRate fetched_;  ///< The stream's rate, halved until the display can show it.
    std::int64_t nbPlaces_ = 1;   ///< Of the ticks within a sample of the stream.
};

}  // namespace Tavrin::Playout
