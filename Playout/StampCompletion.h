#pragma once

#include <cstdint>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// Where a picture stands in the order of display, as the codec numbers it.
struct CodedOrder {
    std::int64_t sequence = 0;  ///< Counts the places where numbering begins anew.
    std::int64_t number = 0;    ///< Grows with the time of display within a sequence.
};

/// Fills in the presentation time stamps that a container does not have, for packets in decoding order.
///
/// 1. The second field of a picture is shown with the first.
/// 2. Where the codec numbers its pictures (\p orders, one for each packet), display follows those numbers;
///    the times are those of decoding in ascending order, or, when there are none, equal steps. All stamps
///    are then set anew, so that they fit together.
/// 3. Without reordering pictures are shown when they are decoded.
/// 4. Otherwise a picture without stamp is one that others are predicted from, and is shown when the next
/// such
///    picture is decoded.
///
/// Returns false when stamps are still missing after that.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT bool CompleteStamps(std::vector<CodedPacket>& packets,
                                                        const std::vector<CodedOrder>& orders, bool reorders);

}  // namespace Tavrin::Playout
