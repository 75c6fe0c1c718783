#include "Playout/Pacer.h"

#include <algorithm>

namespace Tavrin::Playout {

using Time::TimePoint;

Pacer::Clock::time_point Pacer::StartOf(std::int64_t tick) const {
    return anchor_ + std::chrono::nanoseconds(TimePoint::StartOfSample(tick, display_).Nanoseconds());
}

Pacer::Clock::time_point Pacer::Due() const {
    return StartOf(tick_ + 1);
}

TimePoint Pacer::Elapsed() const {
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(StartOf(tick_) - start_);
    return TimePoint().FromNanoseconds(elapsed.count());
}

std::uint64_t Pacer::Begin(Clock::time_point now) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - anchor_);
    const std::int64_t running = TimePoint().FromNanoseconds(elapsed.count()).SampleNumber(display_);
    const std::int64_t next = std::max(running, tick_ + 1);
    const auto nbSleptThrough = static_cast<std::uint64_t>(next - tick_ - 1);
    tick_ = next;
    return nbSleptThrough;
}

void Pacer::Resume(Clock::time_point now) {
    ++tick_;
    anchor_ += now - StartOf(tick_);
}

}  // namespace Tavrin::Playout
