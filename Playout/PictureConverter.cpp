#include "Playout/PictureConverter.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <stdexcept>

#include "Playout/Ffmpeg.h"

namespace Tavrin::Playout {

namespace {

AVPixelFormat NativeFormat(ImageFormat format) {
    return format == ImageFormat::Rgb24 ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_YUV420P;
}

/// The formats with J say by their name that they use the full range of values; the library wants it said
/// beside the plain format.
AVPixelFormat PlainFormat(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            return AV_PIX_FMT_YUV411P;
        default:
            return format;
    }
}

bool HasFullRange(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    return frame.color_range == AVCOL_RANGE_JPEG || PlainFormat(format) != format;
}

/// The matrix between colours and luma; streams that do not tell use the one usual for their size.
int ColourSpace(const AVFrame& frame) {
    constexpr int kSmallestHighDefinition = 720;
    if (frame.colorspace != AVCOL_SPC_UNSPECIFIED && frame.colorspace != AVCOL_SPC_RGB) {
        return frame.colorspace;
    }
    return frame.height >= kSmallestHighDefinition ? SWS_CS_ITU709 : SWS_CS_ITU601;
}

}  // namespace

class PictureConverter::Impl {
public:
    Impl() = default;
    ~Impl() { sws_freeContext(context_); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Convert(const AVFrame& frame, Image& image) {
        Prepare(frame, image);
        std::array<std::uint8_t*, 4> planes{};
        std::array<int, 4> strides{};
        for (std::size_t plane = 0; plane < image.NbPlanes(); ++plane) {
            planes[plane] = image.Plane(plane);
            strides[plane] = static_cast<int>(image.RowBytes(plane));
        }
        const int rows =
            sws_scale(context_, frame.data, frame.linesize, 0, frame.height, planes.data(), strides.data());
        if (rows != image.Height()) {
            Fail(frame);
        }
    }

private:
    [[noreturn]] static void Fail(const AVFrame& frame) {
        const auto* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
        throw std::runtime_error("pictures of " + std::to_string(frame.width) + "x" +
                                 std::to_string(frame.height) + " " + (name == nullptr ? "?" : name) +
                                 " cannot be converted");
    }

    void Prepare(const AVFrame& frame, const Image& image) {
        // Exact rather than fast, so that the bytes do not depend on the machine.
        constexpr int kHow = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INT;
        context_ = sws_getCachedContext(
            context_, frame.width, frame.height, PlainFormat(static_cast<AVPixelFormat>(frame.format)),
            image.Width(), image.Height(), NativeFormat(image.Format()), kHow, nullptr, nullptr, nullptr);
        if (context_ == nullptr) {
            Fail(frame);
        }
        const int* matrix = sws_getCoefficients(ColourSpace(frame));
        constexpr int kOne = 1 << 16;
        const int fullTarget = image.Format() == ImageFormat::Rgb24 ? 1 : 0;
        // Refused for formats without colours to convert, where nothing needs to be said.
        sws_setColorspaceDetails(context_, matrix, HasFullRange(frame) ? 1 : 0, matrix, fullTarget, 0, kOne,
                                 kOne);
    }

    SwsContext* context_ = nullptr;
};

PictureConverter::PictureConverter() : impl_(std::make_unique<Impl>()) {
    Ffmpeg::RouteMessages();
}

PictureConverter::~PictureConverter() = default;

void PictureConverter::Convert(const Picture& picture, Image& image) {
    impl_->Convert(picture.Native(), image);
}

}  // namespace Tavrin::Playout
