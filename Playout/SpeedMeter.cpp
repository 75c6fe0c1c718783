#include "Playout/SpeedMeter.h"

#include <algorithm>

namespace Tavrin::Playout {

namespace {

constexpr std::chrono::seconds kWindow{1};

/// As fast as possible there are thousands of moves a second: one of each of these steps is kept.
constexpr std::chrono::milliseconds kStep{5};

}  // namespace

SpeedMeter::SpeedMeter(const Player::SampleRate& display)
    : tick_(Time::TimePoint::StartOfSample(1, display).Nanoseconds()) {
}

void SpeedMeter::Note(Clock::time_point now, const Time::TimePoint& head) {
    if (moves_.size() > 1 && now - moves_[moves_.size() - 2].when < kStep) {
        moves_.pop_back();
    }
    moves_.push_back({now, head});
    while (moves_.size() > 2 && now - moves_[1].when >= kWindow) {
        moves_.pop_front();
    }
}

double SpeedMeter::Held(Clock::time_point now, double asked) const {
    if (moves_.empty()) {
        return asked;
    }
    const Move& first = moves_.front();
    const Move& last = moves_.back();
    const Clock::duration wall = std::max(last.when - first.when, now - first.when - tick_);
    if (wall <= Clock::duration(0)) {
        return asked;
    }
    const std::chrono::duration<double> seconds = wall;
    const std::chrono::duration<double> made =
        std::chrono::nanoseconds((last.head - first.head).Nanoseconds());
    return made / seconds;
}

}  // namespace Tavrin::Playout
