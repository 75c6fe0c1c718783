#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// A clock that nobody waits for, and what is to happen on it: the time jumps from one event to the next.
/// Events of the same time happen in the order in which they were put in, so that a run can be repeated.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* lets through what an event throws; the
/// event is then over.
class EventQueue final {
public:
    using Event = std::function<void()>;

    [[nodiscard]] const Time::TimePoint& Now() const { return now_; }

    /// A time before the present one counts as the present one.
    void At(const Time::TimePoint& when, Event event) {
        events_.emplace(std::pair(when < now_ ? now_ : when, nbEvents_++), std::move(event));
    }

    void After(const Time::TimePoint& delay, Event event) { At(now_ + delay, std::move(event)); }

    /// Has the next event happen if it is due by then; whether there was one. The time is then that of the
    /// event, or \p limit.
    bool RunNext(const Time::TimePoint& limit) {
        const auto next = events_.begin();
        if (next == events_.end() || next->first.first > limit) {
            now_ = limit > now_ ? limit : now_;
            return false;
        }
        now_ = next->first.first;
        const Event event = std::move(next->second);
        events_.erase(next);
        event();
        return true;
    }

    [[nodiscard]] bool IsEmpty() const { return events_.empty(); }

private:
    Time::TimePoint now_;
    std::uint64_t nbEvents_ = 0;
    std::map<std::pair<Time::TimePoint, std::uint64_t>, Event> events_;
};

}  // namespace Tavrin::Playout
