#pragma once

#include <cstddef>

namespace Tavrin::Playout {

class RecordingIndex;

/// Bytes that one decoded picture of the recording takes, the decoder's padding left out; an upper guess of
/// four bytes a pixel where the file does not tell the pixel format.
std::size_t DecodedPictureBytes(const RecordingIndex& recording);

}  // namespace Tavrin::Playout
