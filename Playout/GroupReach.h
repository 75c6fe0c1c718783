#pragma once

#include <cstddef>
#include <limits>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// How much of a recording can be decoded at the present speed: so many packets from the beginning of a group,
/// and only every so many groups. What lies beyond is stood in for by the nearest picture that can be had.
struct GroupReach {
    static constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();

    std::size_t nbPackets = kWhole;
    std::size_t everyGroups = 1;

    [[nodiscard]] bool IsWhole() const { return nbPackets == kWhole && everyGroups == 1; }
    bool operator==(const GroupReach&) const = default;
};

/// The picture itself where \p reach goes as far, else the one nearest to it in presentation order among those
/// within the reach: of its own group (or the one before it that is decoded at all) the last, or of the next one
/// the first.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t PictureWithin(const RecordingIndex& recording,
                                                              const GroupReach& reach, std::size_t picture);

/// The reach for decoding \p share of a recording, between 0 and 1: what part of its pictures there is time
/// for. Whole from 1 on.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT GroupReach ReachFor(const RecordingIndex& recording, double share);

}  // namespace Tavrin::Playout
