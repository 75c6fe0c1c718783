#include "Playout/SessionTrack.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Tavrin::Playout {

using Time::TimePoint;

namespace {

/// What could never be shown as asked is refused here, and not found out at three in the morning.
void Check(const SessionTrack& track, std::size_t number) {
    const std::string name = "track " + std::to_string(number);
    if (track.recording == nullptr) {
        throw std::invalid_argument(name + " has no recording");
    }
    if (track.weight == 0) {
        throw std::invalid_argument(name + ", " + track.recording->File() +
                                    ": its weight is 0; the memory is shared by weights of at least 1");
    }
    if (track.offset + track.recording->End() <= TimePoint()) {
        throw std::invalid_argument(
            name + ", " + track.recording->File() + ": with an offset of " + track.offset.ToDurationString() +
            " it is over before playing begins: it lasts " + track.recording->Duration().ToDurationString());
    }
}

}  // namespace

std::vector<SessionTrack> TracksFromTheOrigin(std::vector<std::shared_ptr<const RecordingIndex>> recordings) {
    std::vector<SessionTrack> tracks;
    tracks.reserve(recordings.size());
    for (auto& recording : recordings) {
        tracks.push_back({std::move(recording), {}, {}, 1});
    }
    return tracks;
}

std::vector<SessionTrack> CheckedTracks(std::vector<SessionTrack> tracks) {
    if (tracks.empty()) {
        throw std::invalid_argument("Session: no recordings, at least one is needed");
    }
    for (std::size_t number = 0; number < tracks.size(); ++number) {
        Check(tracks[number], number);
    }
    return tracks;
}

}  // namespace Tavrin::Playout
