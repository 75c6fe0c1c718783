#include "Playout/GroupReach.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace Tavrin::Playout {

namespace {

/// A decoder takes more packets than its pictures to put out the last of them, and begins anew each time.
constexpr double kPacketsToBeginWith = 1.5;

/// Of a group, the picture nearest to the one given among those whose packets are within the reach.
std::size_t NearestIn(const RecordingIndex& recording, std::size_t group, std::size_t nbPackets,
                      std::size_t picture) {
    const PictureGroup& layout = recording.Group(group);
    const std::size_t end = layout.firstPacket + std::min(nbPackets, layout.nbPackets);
    std::optional<std::size_t> nearest;
    const auto distance = [picture](std::size_t other) {
        return other > picture ? other - picture : picture - other;
    };
    for (std::size_t packet = layout.firstPacket; packet < end; ++packet) {
        const auto shown = recording.PictureOfPacket(packet);
        const bool isOwn = shown && *shown >= layout.firstPicture && *shown < layout.EndPicture();
        if (isOwn && (!nearest || distance(*shown) < distance(*nearest))) {
            nearest = shown;
        }
    }
    return nearest.value_or(layout.firstPicture);
}

}  // namespace

std::size_t PictureWithin(const RecordingIndex& recording, const GroupReach& reach, std::size_t picture) {
    const IndexedPicture& indexed = recording.Picture(picture);
    const std::size_t every = std::max<std::size_t>(reach.everyGroups, 1);
    const std::size_t group = indexed.group / every * every;
    const bool isWithin =
        group == indexed.group && indexed.packet - recording.Group(group).firstPacket < reach.nbPackets;
    if (isWithin) {
        return picture;
    }
    const std::size_t before = NearestIn(recording, group, reach.nbPackets, picture);
    if (group + every >= recording.NbGroups()) {
        return before;
    }
    const std::size_t after = NearestIn(recording, group + every, 1, picture);
    const auto distance = [picture](std::size_t other) {
        return other > picture ? other - picture : picture - other;
    };
    return distance(after) < distance(before) ? after : before;
}

GroupReach ReachFor(const RecordingIndex& recording, double share) {
    GroupReach reach;
    if (share >= 1 || recording.NbGroups() == 0) {
        return reach;
    }
    const double length =
        static_cast<double>(recording.NbPackets()) / static_cast<double>(recording.NbGroups());
    const double affordable = std::max(share, 0.001) * length;
    const double most = static_cast<double>(recording.NbGroups());
    reach.everyGroups =
        static_cast<std::size_t>(std::clamp(std::ceil((1 + kPacketsToBeginWith) / affordable), 1.0, most));
    const double room = affordable * static_cast<double>(reach.everyGroups) - kPacketsToBeginWith;
    reach.nbPackets = static_cast<std::size_t>(std::max(std::floor(room), 1.0));
    return reach;
}

}  // namespace Tavrin::Playout
