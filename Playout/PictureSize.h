#pragma once

#include <cstddef>

namespace Tavrin::Playout {

class RecordingIndex;

/// Bytes that one decoded picture of the recording takes, the decoder's padding left out; an upper guess of
/// four bytes a pixel where the file does not tell the pixel format.
std::size_t DecodedPictureBytes(const RecordingIndex& recording);

/// Bytes of the pictures that so many decoders may be putting out at any moment: one for each thread of each, and the
/// one that is handed over.
std::size_t BytesBeingMade(const RecordingIndex& recording, std::size_t nbLanes, int nbThreads);

}  // namespace Tavrin::Playout
