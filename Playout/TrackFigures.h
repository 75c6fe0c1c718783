#pragma once

#include <cstddef>

#include "Playout/Counters.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/MediaStream.h"
#include "Playout/Session.h"
#include "Playout/ViewCounter.h"

namespace Tavrin::Playout {

/// Who knows what a track has come to. Borrows them all.
struct TrackSources {
    const MediaPreloader& preloader;
    const MediaDecoder& decoder;
    MediaStream& stream;
    const Player::TrackId& id;
    std::size_t memoryShare = 0;
};

[[nodiscard]] TrackInformation InformationFrom(const TrackSources& sources);
[[nodiscard]] TrackCounters CountersFrom(const TrackSources& sources, const ViewCounter& views);

}  // namespace Tavrin::Playout
