#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// Pictures in presentation order and their groups, found from the packets' stamps and flags.
struct GroupLayout {
    std::vector<std::size_t> packetOfPicture;                 ///< In presentation order.
    std::vector<std::optional<std::size_t>> pictureOfPacket;  ///< Nothing where a packet shows no picture.
    std::vector<std::size_t> groupOfPicture;
    std::vector<PictureGroup> groups;
    int reorderDepth = 0;
};

/// Lays out packets in decoding order, all with presentation time stamps.
///
/// A packet marked as an entry begins a group unless a picture before it in decoding order is shown after it:
/// that picture would then belong to a group that cannot decode it. The first group takes in whatever comes
/// before the first entry, in either order. Groups that show no picture (an edit list hides them) are left
/// out.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT GroupLayout LayOutGroups(const std::vector<CodedPacket>& packets);

}  // namespace Tavrin::Playout
