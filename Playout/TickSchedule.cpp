#include "Playout/TickSchedule.h"

#include <algorithm>
#include <stdexcept>

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace {

/// With more places than these no start is far enough from all edges for the rounding to whole nanoseconds.
constexpr std::int64_t kMostPlaces = 1'000'000;

std::int64_t NbPlaces(const SampleRate& stream, const SampleRate& display, const Ratio& speed) {
    const Ratio samplesPerTick = stream * speed / display;
    return std::min(samplesPerTick.Denominator(), kMostPlaces);
}

}  // namespace

TickSchedule::TickSchedule(const SampleRate& stream, const SampleRate& display, const Ratio& speed)
    : stream_(stream), display_(display), speed_(speed) {
    if (!stream.Positive() || !display.Positive()) {
        throw std::invalid_argument("TickSchedule: a rate of zero has no ticks (stream " + stream.ToString() +
                                    ", display " + display.ToString() + ")");
    }
    fetched_ = SampleRate::StreamPreloadRate(stream, SampleRate::TimeSamplingRate(stream, speed, display));
    nbPlaces_ = NbPlaces(stream, display, speed);
    if (speed != Ratio()) {
        ticks_ = SampleRate(display / speed);
    }
}

TimePoint TickSchedule::Start(const TimePoint& at) const {
    const TimePoint fetched = at.AlignWith(fetched_);
    const std::int64_t sample = fetched.SampleNumber(stream_);
    // Half a place from the edge that the play head moves away from: then all the others are as far from
    // theirs.
    const std::int64_t halfPlaces = 2 * nbPlaces_;
    const std::int64_t half = speed_ < Ratio() ? halfPlaces - 1 : 1;
    const Ratio grid = stream_ * Ratio(halfPlaces, 1);
    return TimePoint::StartOfSample(sample * halfPlaces + half, grid);
}

TimePoint TickSchedule::Delta(std::uint64_t tick) const {
    const auto number = static_cast<std::int64_t>(tick);
    return TimePoint::StartOfSample(number + 1, display_) - TimePoint::StartOfSample(number, display_);
}

/// From tick 0 to this one, rounded up whichever way it goes.
TimePoint TickSchedule::WayAt(std::uint64_t tick) const {
    const auto number = static_cast<std::int64_t>(tick);
    return TimePoint::StartOfSample(speed_ < Ratio() ? -number : number, ticks_);
}

TimePoint TickSchedule::Next(const TimePoint& head, std::uint64_t tick) const {
    return head + (WayAt(tick + 1) - WayAt(tick));
}

/// The picture at a place is the one fetched for it, which may begin long before it. A play head that ticks have
/// moved is some nanoseconds off its own place, which is not beyond it for that: it would be shown twice.
bool TickSchedule::IsBeyond(const TimePoint& place, const TimePoint& head) const {
    constexpr std::int64_t kPartOfPlace = 8;
    const TimePoint slack = TimePoint::StartOfSample(1, stream_ * Ratio(kPartOfPlace * nbPlaces_, 1));
    const TimePoint shown = place.AlignWith(fetched_);
    const TimePoint from = head.AlignWith(stream_);
    return speed_.Positive() ? place - slack > head && shown >= from : place + slack < head && shown <= from;
}

TickSchedule::Place TickSchedule::After(const TimePoint& head) const {
    Place place{Start(head), 0};
    while (speed_ != Ratio() && !IsBeyond(place.head, head)) {
        place.head = Next(place.head, place.tick++);
    }
    return place;
}

}  // namespace Tavrin::Playout
