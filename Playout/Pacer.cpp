#include "Playout/Pacer.h"

#include <algorithm>

namespace Tavrin::Playout {

using Time::TimePoint;

Pacer::Clock::time_point Pacer::Due() const {
    return start_ + std::chrono::nanoseconds(TimePoint::StartOfSample(tick_ + 1, display_).Nanoseconds());
}

TimePoint Pacer::Elapsed() const {
    return TimePoint::StartOfSample(tick_, display_);
}

std::uint64_t Pacer::Begin(Clock::time_point now) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - start_);
    const std::int64_t running = TimePoint().FromNanoseconds(elapsed.count()).SampleNumber(display_);
    const std::int64_t next = std::max(running, tick_ + 1);
    const auto nbSleptThrough = static_cast<std::uint64_t>(next - tick_ - 1);
    tick_ = next;
    return nbSleptThrough;
}

}  // namespace Tavrin::Playout
