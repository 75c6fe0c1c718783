#include "Playout/Course.h"

#include <algorithm>
#include <stdexcept>

namespace Tavrin::Playout {

using Time::Ratio;
using Time::TimePoint;

namespace {

bool IsBackward(const Ratio& speed) {
    return speed < Ratio();
}

/// The finest rate has the narrowest samples: a play head kept off their edges is in each of them.
std::size_t Finest(const Session& session) {
    std::size_t finest = 0;
    for (std::size_t track = 1; track < session.NbTracks(); ++track) {
        if (session.Samples(track).Rate() > session.Samples(finest).Rate()) {
            finest = track;
        }
    }
    return finest;
}

std::size_t LastToEnd(const Session& session) {
    std::size_t last = 0;
    for (std::size_t track = 1; track < session.NbTracks(); ++track) {
        if (session.End(track) > session.End(last)) {
            last = track;
        }
    }
    return last;
}

TickSchedule ScheduleFor(const Session& session, const Ratio& speed) {
    return {session.Samples(Finest(session)).Rate(), session.DisplayRate(), speed};
}

/// The place of a schedule for a track's recording, in the session's time.
TimePoint StartIn(const Session& session, std::size_t track, const TickSchedule& schedule,
                  const TimePoint& at) {
    const TimePoint begin = session.Begin(track);
    return begin + schedule.Start(at - begin);
}

}  // namespace

Course::Course(Session& session, const PlaybackOptions& options)
    : session_(session),
      options_(options),
      speed_(options.speed),
      schedule_(ScheduleFor(session, options.speed)) {
    CheckTimes();
    next_ = TickSchedule::Place{Start(), 0};
    if (EndsNext()) {
        throw std::invalid_argument("no picture lies between " + Start().ToDurationString() + " and " +
                                    options_.to.value_or(session_.End()).ToDurationString() + " at speed " +
                                    options_.speed.ToString());
    }
    next_.reset();
}

void Course::CheckTimes() const {
    const TimePoint from = options_.from.value_or(TimePoint());
    if (from < TimePoint() || options_.to.value_or(TimePoint()) < TimePoint()) {
        throw std::invalid_argument("times to play from and to must not be negative");
    }
    if (options_.speed == Ratio() && options_.to) {
        throw std::invalid_argument("at speed 0 the play head stands still and never comes to " +
                                    options_.to->ToDurationString());
    }
    if (!IsBackward(options_.speed) && from >= session_.End()) {
        throw std::invalid_argument("nothing to play from " + from.ToDurationString() +
                                    ": the recording ends at " + session_.End().ToDurationString());
    }
    if (options_.from && options_.to &&
        (IsBackward(options_.speed) ? *options_.to > from : *options_.to <= from)) {
        throw std::invalid_argument("playing from " + from.ToDurationString() + " at speed " +
                                    options_.speed.ToString() + " never comes to " +
                                    options_.to->ToDurationString());
    }
}

TimePoint Course::LastMoment() const {
    return session_.End() - TimePoint().FromNanoseconds(1);
}

TimePoint Course::DefaultStart() const {
    return options_.from.value_or(IsBackward(speed_) ? LastMoment() : TimePoint());
}

TimePoint Course::Start() const {
    return Inside(position_.value_or(DefaultStart()));
}

/// The schedule's place for a position, which may lie outside of the recordings.
TimePoint Course::Inside(const TimePoint& position) const {
    const TimePoint at = std::clamp(position, TimePoint(), LastMoment());
    TimePoint place = StartIn(session_, Finest(session_), schedule_, at);
    if (place >= session_.End()) {
        // The finest recording's sample there reaches beyond the end of all recordings.
        const std::size_t last = LastToEnd(session_);
        const TickSchedule schedule(session_.Samples(last).Rate(), session_.DisplayRate(), speed_);
        place = StartIn(session_, last, schedule, at);
    }
    // The sample may begin before the origin, where no play head gets.
    return std::max(place, TimePoint());
}

/// Where the play head is, or where commands have put it for the next tick.
TimePoint Course::Here() const {
    return position_.value_or(hasBegun_ ? session_.CurrentTime() : Start());
}

void Course::Begin() {
    session_.SetSpeed(speed_);
    session_.GoTo(Start());
    hasBegun_ = true;
    nbMoves_ = 0;
    position_.reset();
    next_.reset();
}

void Course::Apply(const PlayCommand& command) {
    options_.to.reset();
    std::visit([this](const auto& which) { Do(which); }, command);
}

void Course::Do(const SetSpeed& command) {
    if (IsDragged()) {
        released_ = command.speed;
    } else if (command.speed != speed_) {
        speed_ = command.speed;
        Plan();
    }
}

void Course::Do(const JumpTo& command) {
    position_ = command.position;
    Plan();
}

void Course::Do(const StepBy& command) {
    position_ = Stepped(command.nbPictures);
    released_ = IsDragged() ? std::optional(Ratio()) : std::nullopt;
    speed_ = Ratio();
    Plan();
}

void Course::Do(const DragTo& command) {
    released_ = released_.value_or(speed_);
    speed_ = Ratio();
    position_ = command.position;
    Plan();
}

void Course::Do(const Release& /*command*/) {
    if (IsDragged()) {
        speed_ = *released_;
        released_.reset();
        Plan();
    }
}

void Course::Do(const Quit& /*command*/) {
}

/// From what is on display of the finest recording; outside of that by its samples.
TimePoint Course::Stepped(std::int64_t nbPictures) const {
    const std::size_t track = Finest(session_);
    const FieldOrder& samples = session_.Samples(track);
    const TimePoint here = std::clamp(Here(), TimePoint(), LastMoment()) - session_.Begin(track);
    const std::int64_t sample = samples.SampleFurther(here, nbPictures);
    return session_.Begin(track) + TimePoint::StartOfSample(sample, samples.Rate());
}

/// Finds the place of the next tick, from what all commands since the last one want.
void Course::Plan() {
    schedule_ = ScheduleFor(session_, speed_);
    if (!hasBegun_) {
        return;
    }
    next_ = position_ ? TickSchedule::Place{Inside(*position_), 0} : After(session_.CurrentTime());
    // What stands there already is not asked for again.
    if (speed_ == session_.Speed() && next_->head == session_.CurrentTime() && speed_ == Ratio()) {
        position_.reset();
        next_.reset();
    }
}

TickSchedule::Place Course::After(const TimePoint& head) const {
    const TimePoint begin = session_.Begin(Finest(session_));
    TickSchedule::Place place = schedule_.After(head - begin);
    place.head += begin;
    return place;
}

bool Course::EndsNext() const {
    const TimePoint head = next_ ? next_->head : schedule_.Next(session_.CurrentTime(), nbMoves_);
    if (IsBackward(speed_)) {
        return head < options_.to.value_or(TimePoint());
    }
    return head >= std::min(options_.to.value_or(session_.End()), session_.End());
}

void Course::Halt() {
    speed_ = Ratio();
    position_ = session_.CurrentTime();
    Plan();
}

TickReport Course::Tick() {
    if (!next_) {
        TickReport report = session_.TickTo(schedule_.Next(session_.CurrentTime(), nbMoves_));
        nbMoves_ += report.moved ? 1 : 0;
        return report;
    }
    session_.SetSpeed(speed_);
    if (IsDragged()) {
        session_.DragTo(next_->head);
    } else {
        session_.GoTo(next_->head);
    }
    nbMoves_ = next_->tick;
    position_.reset();
    next_.reset();
    TickReport report = session_.Tick(TimePoint());
    report.moved = true;
    return report;
}

}  // namespace Tavrin::Playout
