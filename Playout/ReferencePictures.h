#pragma once

#include <cstddef>

#include "Playout/PlayoutExport.h"

struct AVCodecParameters;

namespace Tavrin::Playout {

/// The most decoded pictures that a decoder of such a stream keeps to predict others from, or to put out later.
///
/// H.264 and HEVC bound them by level and picture size: MaxDpbFrames of ITU-T H.264, A.3.1 with table A-1, and
/// MaxDpbSize of ITU-T H.265, A.4.2. MPEG-1, 2 and 4 part 2 have two, VP8 three, VP9 and AV1 eight; streams of other
/// codecs, or that do not tell their level, are taken to have four.
///
/// *Threads:* thread-safe. *Errors:* none.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t NbOfReferences(const AVCodecParameters& parameters);

}  // namespace Tavrin::Playout
