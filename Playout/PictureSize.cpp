#include "Playout/PictureSize.h"

#include <algorithm>

#include "Playout/Ffmpeg.h"
#include "Playout/FramePool.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

std::size_t DecodedPictureBytes(const RecordingIndex& recording) {
    const RecordingDescription& description = recording.Description();
    const auto context = Ffmpeg::NewCodecContext(avcodec_find_decoder(recording.CodecParameters().codec_id),
                                                 recording.CodecParameters());
    if (const std::size_t bytes = FramePool::BytesFor(*context); bytes > 0) {
        return bytes;
    }
    constexpr std::size_t kBytesPerPixel = 4;
    return kBytesPerPixel * static_cast<std::size_t>(std::max(description.width, 0)) *
           static_cast<std::size_t>(std::max(description.height, 0));
}

std::size_t BytesBeingMade(const RecordingIndex& recording, std::size_t nbLanes, int nbThreads) {
    return nbLanes * (static_cast<std::size_t>(std::max(nbThreads, 1)) + 1) * DecodedPictureBytes(recording);
}

}  // namespace Tavrin::Playout
