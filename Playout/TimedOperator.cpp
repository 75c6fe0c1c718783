#include "Playout/TimedOperator.h"

#include <algorithm>
#include <stdexcept>

namespace Tavrin::Playout {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr std::chrono::seconds kLongestWait{30};

/// Between two looks at the session while nothing announces itself.
constexpr std::chrono::milliseconds kSlice{10};

std::chrono::milliseconds UpToSlice(TimedOperator::Clock::duration time) {
    const auto whole = std::chrono::duration_cast<std::chrono::milliseconds>(time);
    return std::clamp(whole, std::chrono::milliseconds(0), kSlice);
}

}  // namespace

TimedOperator::TimedOperator(Session& session)
    : session_(session),
      period_(std::chrono::nanoseconds(TimePoint::StartOfSample(1, session.DisplayRate()).Nanoseconds())),
      due_(Clock::now()) {
}

TimedOperator::Milliseconds TimedOperator::Start(const TimePoint& tp, const Ratio& speed) {
    const auto begin = Clock::now();
    session_.SetSpeed(speed);
    session_.GoTo(tp);
    Look();
    AwaitReady();
    return Clock::now() - begin;
}

TimedOperator::Milliseconds TimedOperator::GoTo(const TimePoint& tp) {
    const auto begin = Clock::now();
    session_.GoTo(tp);
    Look();
    AwaitReady();
    return Clock::now() - begin;
}

TimedOperator::Milliseconds TimedOperator::Turn(const Ratio& speed) {
    const auto begin = Clock::now();
    session_.SetSpeed(speed);
    do {
        Move();
        AwaitReady();
    } while (!report_.moved);
    return Clock::now() - begin;
}

TimedOperator::Milliseconds TimedOperator::Step(const Ratio& speed) {
    const Milliseconds time = Turn(speed);
    session_.SetSpeed(Ratio());
    return time;
}

TimedOperator::Milliseconds TimedOperator::AwaitReady(const std::function<void()>& look) {
    const auto begin = Clock::now();
    const bool hadMoved = report_.moved;
    while (!report_.IsReady()) {
        if (Clock::now() - begin > kLongestWait) {
            throw std::runtime_error("the picture at " + report_.time.ToDurationString() +
                                     " has not come within 30 s");
        }
        session_.WaitForProgress(kSlice);
        Look();
        if (look) {
            look();
        }
    }
    report_.moved = hadMoved;
    const auto end = Clock::now();
    if (end > due_) {
        // What has come late is shown now, and for a whole tick.
        due_ = end + period_;
    }
    return end - begin;
}

void TimedOperator::AskFor(const TimePoint& tp) {
    session_.DragTo(tp);
    Look();
}

/// What is on show now, without moving on.
void TimedOperator::Look() {
    report_ = session_.Tick(TimePoint());
}

void TimedOperator::Move() {
    const auto& rate = session_.DisplayRate();
    report_ = session_.Tick(TimePoint::StartOfSample(nbMoves_ + 1, rate) -
                            TimePoint::StartOfSample(nbMoves_, rate));
    nbMoves_ += report_.moved ? 1 : 0;
}

void TimedOperator::WaitUntil(Clock::time_point due, const std::function<void()>& look) {
    for (auto now = Clock::now(); now < due; now = Clock::now()) {
        // Less than a millisecond left is slept through by a wait of 0, over and over.
        if (session_.WaitForProgress(UpToSlice(due - now))) {
            Look();
            if (look) {
                look();
            }
        }
    }
}

void TimedOperator::WaitForTick() {
    WaitUntil(due_);
    due_ = std::max(due_ + period_, Clock::now());
}

void TimedOperator::Play(std::size_t nbTicks, const std::function<void()>& show) {
    bool owes = !report_.IsReady();
    for (std::size_t tick = 0; tick < nbTicks; ++tick) {
        WaitForTick();
        // A picture that has come late, since the tick before, gets a tick of its own.
        if (owes) {
            Look();
        } else {
            Move();
        }
        owes = !report_.IsReady();
        show();
    }
}

void TimedOperator::Settle(Clock::duration longest) {
    const auto end = Clock::now() + longest;
    while (Clock::now() < end) {
        std::size_t nbPending = 0;
        for (std::size_t track = 0; track < session_.NbTracks(); ++track) {
            nbPending += session_.GetInformation(track).nbPending;
        }
        if (nbPending == 0) {
            return;
        }
        session_.WaitForProgress(kSlice);
        Look();
    }
}

}  // namespace Tavrin::Playout
