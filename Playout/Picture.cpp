#include "Playout/Picture.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>

#include "Playout/Ffmpeg.h"

namespace Tavrin::Playout {

namespace {

bool RunsUpward(const AVFrame& frame) {
    return std::any_of(std::begin(frame.linesize), std::end(frame.linesize),
                       [](int stride) { return stride < 0; });
}

/// A frame of its own with the same picture, rows running downward.
Ffmpeg::FramePointer Turned(const AVFrame& frame) {
    auto turned = Ffmpeg::NewFrame();
    turned->format = frame.format;
    turned->width = frame.width;
    turned->height = frame.height;
    if (av_frame_get_buffer(turned.get(), 0) < 0 || av_frame_copy(turned.get(), &frame) < 0 ||
        av_frame_copy_props(turned.get(), &frame) < 0) {
        throw std::bad_alloc();
    }
    return turned;
}

Ffmpeg::FramePointer Share(const AVFrame& frame) {
    if (RunsUpward(frame)) {
        return Turned(frame);
    }
    auto shared = Ffmpeg::NewFrame();
    if (av_frame_ref(shared.get(), &frame) < 0) {
        throw std::bad_alloc();
    }
    return shared;
}

std::size_t HeldBytes(const AVFrame& frame) {
    std::size_t sum = 0;
    for (const auto* buffer : frame.buf) {
        sum += buffer == nullptr ? 0 : buffer->size;
    }
    return sum;
}

bool IsReadable(AVPixelFormat format) {
    const auto* description = av_pix_fmt_desc_get(format);
    return description != nullptr && (description->flags & AV_PIX_FMT_FLAG_HWACCEL) == 0;
}

/// Pictures with a palette keep it, 256 colours of 4 bytes, where a second plane would be.
bool IsPalette(AVPixelFormat format, std::size_t plane) {
    return plane == 1 && (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_PAL) != 0;
}

std::size_t RowsOf(AVPixelFormat format, int height, std::size_t plane) {
    const auto* description = av_pix_fmt_desc_get(format);
    const bool chroma = plane == 1 || plane == 2;
    return static_cast<std::size_t>(chroma ? AV_CEIL_RSHIFT(height, description->log2_chroma_h) : height);
}

}  // namespace

Picture::Picture(std::size_t number, const AVFrame& frame, bool damaged)
    : number_(number), damaged_(damaged) {
    if (!IsReadable(static_cast<AVPixelFormat>(frame.format)) || frame.data[0] == nullptr) {
        throw std::runtime_error("picture " + std::to_string(number) + " has no pixels that can be read");
    }
    frame_ = Share(frame).release();
    byteSize_ = HeldBytes(*frame_);
}

Picture::~Picture() {
    av_frame_free(&frame_);
}

int Picture::Width() const {
    return frame_->width;
}

int Picture::Height() const {
    return frame_->height;
}

std::string Picture::PixelFormat() const {
    return av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame_->format));
}

std::size_t Picture::NbPlanes() const {
    const auto format = static_cast<AVPixelFormat>(frame_->format);
    return static_cast<std::size_t>(av_pix_fmt_count_planes(format)) + (IsPalette(format, 1) ? 1 : 0);
}

Picture::PlaneView Picture::Plane(std::size_t plane) const {
    if (plane >= NbPlanes()) {
        return {};
    }
    const auto format = static_cast<AVPixelFormat>(frame_->format);
    if (IsPalette(format, plane)) {
        return {frame_->data[1], AVPALETTE_SIZE, AVPALETTE_SIZE, 1};
    }
    const auto rowBytes = av_image_get_linesize(format, frame_->width, static_cast<int>(plane));
    return {frame_->data[plane], static_cast<std::size_t>(frame_->linesize[plane]),
            static_cast<std::size_t>(std::max(rowBytes, 0)), RowsOf(format, frame_->height, plane)};
}

std::string Picture::Md5() const {
    const std::unique_ptr<AVMD5, decltype(&av_free)> sum(av_md5_alloc(), av_free);
    if (sum == nullptr) {
        throw std::bad_alloc();
    }
    av_md5_init(sum.get());
    for (std::size_t plane = 0; plane < NbPlanes(); ++plane) {
        const auto view = Plane(plane);
        for (std::size_t row = 0; row < view.rows; ++row) {
            av_md5_update(sum.get(), view.data + row * view.stride, view.rowBytes);
        }
    }
    std::array<std::uint8_t, 16> digest{};
    av_md5_final(sum.get(), digest.data());
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const auto byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0f];
    }
    return text;
}

}  // namespace Tavrin::Playout
