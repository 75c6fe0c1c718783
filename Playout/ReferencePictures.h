#pragma once

#include <cstddef>

#include "Playout/PlayoutExport.h"

struct AVCodecParameters;

namespace Tavrin::Playout {

/// The most decoded pictures that a decoder of such a stream keeps to predict others from, or to put out later;
/// `reorderDepth` of them are the latter.
///
/// H.264 and HEVC say it in their parameter sets. Where these are not in the stream's header, level and picture size
/// bound it: MaxDpbFrames of ITU-T H.264, A.3.1 with table A-1, and MaxDpbSize of ITU-T H.265, A.4.2. MPEG-1, 2 and 4
/// part 2 refer to two, VP8 to three, VP9 and AV1 to eight; streams of other codecs, or that tell nothing, are taken to
/// refer to four.
///
/// *Threads:* thread-safe. *Errors:* none.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t NbOfReferences(const AVCodecParameters& parameters,
                                                               std::size_t reorderDepth);

}  // namespace Tavrin::Playout
