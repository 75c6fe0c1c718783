#include "Playout/FieldPicture.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "Playout/Ffmpeg.h"

namespace Tavrin::Playout {

namespace {

/// Bytes of a value that means can be made of; 0 where none can.
std::size_t ValueBytes(AVPixelFormat format) {
    const auto* description = av_pix_fmt_desc_get(format);
    constexpr std::uint64_t kOther = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_FLOAT;
    const bool isBigEndian = (description->flags & AV_PIX_FMT_FLAG_BE) != 0;
    if ((description->flags & kOther) != 0) {
        return 0;
    }
    constexpr int kBitsOfByte = 8;
    if (description->comp[0].depth == kBitsOfByte) {
        return 1;
    }
    const bool isNative = isBigEndian == (std::endian::native == std::endian::big);
    return description->comp[0].depth > kBitsOfByte && description->comp[0].depth <= 2 * kBitsOfByte &&
                   isNative
               ? 2
               : 0;
}

template <typename Value>
void Mean(std::uint8_t* out, const std::uint8_t* above, const std::uint8_t* below, std::size_t nbBytes) {
    for (std::size_t at = 0; at + sizeof(Value) <= nbBytes; at += sizeof(Value)) {
        Value first = 0;
        Value second = 0;
        std::memcpy(&first, above + at, sizeof(Value));
        std::memcpy(&second, below + at, sizeof(Value));
        const auto mean = static_cast<Value>((unsigned{first} + unsigned{second} + 1U) / 2U);
        std::memcpy(out + at, &mean, sizeof(Value));
    }
}

/// Of a plane: the field's lines, and what is made up between them.
void FillPlane(std::uint8_t* out, std::size_t stride, const Picture::PlaneView& plane, std::size_t parity,
               std::size_t valueBytes) {
    const auto line = [&plane](std::size_t row) { return plane.data + row * plane.stride; };
    for (std::size_t row = 0; row < plane.rows; ++row) {
        std::uint8_t* const target = out + row * stride;
        const bool isAbove = row > 0;
        const bool isBelow = row + 1 < plane.rows;
        if (row % 2 == parity || (!isAbove && !isBelow)) {
            std::memcpy(target, line(row), plane.rowBytes);
        } else if (!isAbove || !isBelow || valueBytes == 0) {
            std::memcpy(target, line(isAbove ? row - 1 : row + 1), plane.rowBytes);
        } else if (valueBytes == 1) {
            Mean<std::uint8_t>(target, line(row - 1), line(row + 1), plane.rowBytes);
        } else {
            Mean<std::uint16_t>(target, line(row - 1), line(row + 1), plane.rowBytes);
        }
    }
}

}  // namespace

std::shared_ptr<const Picture> FieldPicture(const std::shared_ptr<const Picture>& picture,
                                            PictureField field) {
    if (field == PictureField::Frame) {
        return picture;
    }
    const AVFrame& whole = picture->Native();
    const auto frame = Ffmpeg::NewFrame();
    frame->format = whole.format;
    frame->width = whole.width;
    frame->height = whole.height;
    if (av_frame_get_buffer(frame.get(), 0) < 0 || av_frame_copy_props(frame.get(), &whole) < 0) {
        throw std::runtime_error("there is no memory for a field of picture " +
                                 std::to_string(picture->Number()));
    }
    const std::size_t valueBytes = ValueBytes(static_cast<AVPixelFormat>(whole.format));
    const std::size_t parity = field == PictureField::Top ? 0 : 1;
    for (std::size_t plane = 0; plane < picture->NbPlanes(); ++plane) {
        FillPlane(frame->data[plane], static_cast<std::size_t>(frame->linesize[plane]), picture->Plane(plane),
                  parity, valueBytes);
    }
    return std::make_shared<const Picture>(picture->Number(), *frame, picture->Damaged());
}

}  // namespace Tavrin::Playout
