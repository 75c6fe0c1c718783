#pragma once

#include <cstddef>

#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// How long something with room for several users was used, each of them counted.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none.
class UsageMeter final {
public:
    explicit UsageMeter(const Time::TimePoint& now) : since_(now), until_(now) {}

    /// What was used before \p now does not count.
    void Restart(const Time::TimePoint& now) {
        since_ = now;
        until_ = now;
        used_ = Time::TimePoint();
    }

    /// That many users from \p now on.
    void SetUsers(std::size_t nb, const Time::TimePoint& now) {
        Advance(now);
        nb_ = nb;
    }

    [[nodiscard]] std::size_t Users() const { return nb_; }

    /// Percent of what \p room users could have used up to \p now.
    [[nodiscard]] double Percent(std::size_t room, const Time::TimePoint& now) {
        Advance(now);
        constexpr double kAll = 100;
        const auto whole = static_cast<double>((until_ - since_).Nanoseconds()) * static_cast<double>(room);
        return whole > 0 ? kAll * static_cast<double>(used_.Nanoseconds()) / whole : 0;
    }

private:
    void Advance(const Time::TimePoint& now) {
        used_ = used_ + (now - until_) * Time::Ratio(static_cast<std::int64_t>(nb_), 1);
        until_ = now;
    }

    Time::TimePoint since_;
    Time::TimePoint until_;
    Time::TimePoint used_;
    std::size_t nb_ = 0;
};

}  // namespace Tavrin::Playout
