#include "Playout/TickGate.h"

#include <algorithm>

namespace Tavrin::Playout {

TickGate::TickGate(const std::vector<ReadinessRule>& rules) {
    tracks_.reserve(rules.size());
    for (const ReadinessRule& rule : rules) {
        Track track;
        if (rule.LongestWait()) {
            track.longestWait = std::chrono::nanoseconds(rule.LongestWait()->Nanoseconds());
        }
        tracks_.push_back(track);
    }
}

void TickGate::Note(std::size_t number, bool isReady, Clock::time_point now) {
    Track& track = tracks_.at(number);
    track.noted = now;
    if (isReady) {
        track.since.reset();
    } else if (!track.since) {
        track.since = now;
    }
}

void TickGate::Restart() {
    for (Track& track : tracks_) {
        track.since.reset();
    }
}

bool TickGate::IsOpen() const {
    for (std::size_t track = 0; track < tracks_.size(); ++track) {
        if (Holds(track)) {
            return false;
        }
    }
    return true;
}

bool TickGate::Holds(std::size_t track) const {
    return tracks_.at(track).since.has_value() && !IsLeftBehind(track);
}

bool TickGate::IsLeftBehind(std::size_t number) const {
    const Track& track = tracks_.at(number);
    return track.since && track.longestWait && Waited(number) >= *track.longestWait;
}

TickGate::Clock::duration TickGate::Waited(std::size_t number) const {
    const Track& track = tracks_.at(number);
    return track.since ? track.noted - *track.since : Clock::duration(0);
}

std::optional<TickGate::Clock::duration> TickGate::Left(std::size_t number) const {
    const Track& track = tracks_.at(number);
    if (!track.longestWait) {
        return std::nullopt;
    }
    return std::max(*track.longestWait - Waited(number), Clock::duration(0));
}

}  // namespace Tavrin::Playout
