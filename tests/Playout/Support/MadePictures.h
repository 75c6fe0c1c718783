#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>

#include "Playout/Picture.h"

namespace Tavrin::Playout::Support {

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using OwnedFrame = std::unique_ptr<AVFrame, FreeFrame>;

/// A frame whose bytes are those of the function: plane, row, byte in the row.
inline OwnedFrame MakeFrame(AVPixelFormat format, int width, int height,
                            const std::function<int(int plane, int row, int byte)>& value) {
    OwnedFrame frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::runtime_error("no memory for a frame");
    }
    const auto* description = av_pix_fmt_desc_get(format);
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        const int rows = chroma ? AV_CEIL_RSHIFT(height, description->log2_chroma_h) : height;
        for (int row = 0; row < rows; ++row) {
            for (int byte = 0; byte < frame->linesize[plane]; ++byte) {
                frame->data[plane][row * frame->linesize[plane] + byte] =
                    static_cast<std::uint8_t>(value(plane, row, byte));
            }
        }
    }
    return frame;
}

/// A 4:2:0 picture of one colour.
inline std::shared_ptr<const Picture> PlainPicture(std::size_t number, int width, int height, int luma,
                                                   int blue = 128, int red = 128) {
    const auto frame = MakeFrame(AV_PIX_FMT_YUV420P, width, height, [&](int plane, int, int) {
        return plane == 0 ? luma : plane == 1 ? blue : red;
    });
    return std::make_shared<const Picture>(number, *frame, false);
}

}  // namespace Tavrin::Playout::Support
