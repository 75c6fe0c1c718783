#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>

namespace Tavrin::Playout {

/// From when on what is in progress is to be given up; never, until it is set.
///
/// *Threads:* thread-safe. Nothing else is published with the time, and whoever looks may see it a moment late.
class StopTime final {
public:
    using Clock = std::chrono::steady_clock;

    void Set(Clock::time_point time) {
        time_.store(time.time_since_epoch().count(), std::memory_order_relaxed);
    }
    void Clear() { time_.store(kNever, std::memory_order_relaxed); }

    [[nodiscard]] bool IsOver() const {
        const auto time = time_.load(std::memory_order_relaxed);
        return time != kNever && Clock::now().time_since_epoch().count() >= time;
    }

private:
    static constexpr Clock::rep kNever = std::numeric_limits<Clock::rep>::max();

    std::atomic<Clock::rep> time_{kNever};
};

}  // namespace Tavrin::Playout
