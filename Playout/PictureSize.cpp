#include "Playout/PictureSize.h"

#include <algorithm>

#include "Playout/RecordingIndex.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace Tavrin::Playout {

std::size_t DecodedPictureBytes(const RecordingIndex& recording) {
    const RecordingDescription& description = recording.Description();
    // What decoders allocate at most: whole macroblocks of both fields, and two more rows that H.264 reads.
    constexpr int alignment = 64;  // Of rows.
    constexpr int block = 32;
    const auto whole = [](int pixels) { return (pixels + block - 1) / block * block; };
    const int bytes =
        av_image_get_buffer_size(av_get_pix_fmt(description.pixelFormat.c_str()), whole(description.width),
                                 whole(description.height) + 2, alignment);
    if (bytes > 0) {
        return static_cast<std::size_t>(bytes);
    }
    constexpr std::size_t kBytesPerPixel = 4;
    return kBytesPerPixel * static_cast<std::size_t>(std::max(description.width, 0)) *
           static_cast<std::size_t>(std::max(description.height, 0));
}

}  // namespace Tavrin::Playout
