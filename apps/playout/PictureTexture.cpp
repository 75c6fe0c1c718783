#include "apps/playout/PictureTexture.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <array>
#include <stdexcept>
#include <string>

#include "Playout/FieldPicture.h"

namespace Tavrin::Playout::Program {

namespace {

struct DirectFormat {
    const char* name;  ///< As pictures call it.
    std::uint32_t format;
};

/// What SDL draws as it is decoded.
constexpr std::array<DirectFormat, 9> kDirectFormats{{{"yuv420p", SDL_PIXELFORMAT_IYUV},
                                                      {"yuvj420p", SDL_PIXELFORMAT_IYUV},
                                                      {"nv12", SDL_PIXELFORMAT_NV12},
                                                      {"nv21", SDL_PIXELFORMAT_NV21},
                                                      {"yuyv422", SDL_PIXELFORMAT_YUY2},
                                                      {"uyvy422", SDL_PIXELFORMAT_UYVY},
                                                      {"yvyu422", SDL_PIXELFORMAT_YVYU},
                                                      {"rgb24", SDL_PIXELFORMAT_RGB24},
                                                      {"bgr24", SDL_PIXELFORMAT_BGR24}}};

std::uint32_t DirectFormatOf(const Picture& picture) {
    const std::string name = picture.PixelFormat();
    for (const DirectFormat& direct : kDirectFormats) {
        if (name == direct.name) {
            return direct.format;
        }
    }
    return SDL_PIXELFORMAT_UNKNOWN;
}

bool HasFullRange(const Picture& picture) {
    return picture.Native().color_range == AVCOL_RANGE_JPEG || picture.PixelFormat().rfind("yuvj", 0) == 0;
}

/// The matrix between colours and luma; streams that do not tell use the one usual for their size. SDL knows
/// the full range with the older one only.
SDL_YUV_CONVERSION_MODE ColoursOf(const Picture& picture) {
    constexpr int kSmallestHighDefinition = 720;
    switch (picture.Native().colorspace) {
        case AVCOL_SPC_BT709:
            return SDL_YUV_CONVERSION_BT709;
        case AVCOL_SPC_BT470BG:
        case AVCOL_SPC_SMPTE170M:
            return SDL_YUV_CONVERSION_BT601;
        default:
            return picture.Height() >= kSmallestHighDefinition ? SDL_YUV_CONVERSION_BT709
                                                               : SDL_YUV_CONVERSION_BT601;
    }
}

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("the window cannot " + what + ": " + SDL_GetError());
}

int Pitch(const Picture& picture, std::size_t plane) {
    return static_cast<int>(picture.Plane(plane).stride);
}

int UploadPlanes(SDL_Texture& texture, std::uint32_t format, const Picture& picture) {
    const auto data = [&picture](std::size_t plane) { return picture.Plane(plane).data; };
    switch (format) {
        case SDL_PIXELFORMAT_IYUV:
            return SDL_UpdateYUVTexture(&texture, nullptr, data(0), Pitch(picture, 0), data(1),
                                        Pitch(picture, 1), data(2), Pitch(picture, 2));
        case SDL_PIXELFORMAT_NV12:
        case SDL_PIXELFORMAT_NV21:
            return SDL_UpdateNVTexture(&texture, nullptr, data(0), Pitch(picture, 0), data(1),
                                       Pitch(picture, 1));
        default:
            return SDL_UpdateTexture(&texture, nullptr, data(0), Pitch(picture, 0));
    }
}

}  // namespace

bool PictureTexture::Show(const std::shared_ptr<const Picture>& picture, PictureField field) {
    if (picture == picture_ && (picture == nullptr || field == field_)) {
        return false;
    }
    if (picture != nullptr) {
        Upload(*FieldPicture(picture, field));
    }
    picture_ = picture;
    field_ = field;
    return true;
}

void PictureTexture::Forget() {
    picture_.reset();
    texture_.reset();
}

PixelSize PictureTexture::Size() const {
    return picture_ == nullptr ? PixelSize() : PixelSize{picture_->Width(), picture_->Height()};
}

void PictureTexture::Draw(const SDL_Rect& place) {
    if (picture_ == nullptr || place.w <= 0 || place.h <= 0) {
        return;
    }
    SDL_SetYUVConversionMode(colours_);
    if (SDL_RenderCopy(&renderer_, texture_.get(), nullptr, &place) != 0) {
        Fail("draw a picture");
    }
    // The mode is one for all textures and read when the drawing is done.
    SDL_RenderFlush(&renderer_);
}

void PictureTexture::Upload(const Picture& picture) {
    const std::uint32_t format = DirectFormatOf(picture);
    const bool isFull = HasFullRange(picture);
    if (format == SDL_PIXELFORMAT_UNKNOWN || (isFull && ColoursOf(picture) == SDL_YUV_CONVERSION_BT709)) {
        UploadConverted(picture);
        return;
    }
    colours_ = isFull ? SDL_YUV_CONVERSION_JPEG : ColoursOf(picture);
    SDL_SetYUVConversionMode(colours_);
    Make(format, {picture.Width(), picture.Height()});
    if (UploadPlanes(*texture_, format, picture) != 0) {
        Fail("upload a picture");
    }
}

void PictureTexture::UploadConverted(const Picture& picture) {
    if (!image_ || image_->Width() != picture.Width() || image_->Height() != picture.Height()) {
        image_.emplace(ImageFormat::Yuv420p, picture.Width(), picture.Height());
    }
    converter_.Convert(picture, *image_);
    colours_ = ColoursOf(picture);
    SDL_SetYUVConversionMode(colours_);
    Make(SDL_PIXELFORMAT_IYUV, {picture.Width(), picture.Height()});
    const auto pitch = [this](std::size_t plane) { return static_cast<int>(image_->RowBytes(plane)); };
    if (SDL_UpdateYUVTexture(texture_.get(), nullptr, image_->Plane(0), pitch(0), image_->Plane(1), pitch(1),
                             image_->Plane(2), pitch(2)) != 0) {
        Fail("upload a picture");
    }
}

void PictureTexture::Make(std::uint32_t format, const PixelSize& size) {
    if (texture_ != nullptr && format == format_ && size == size_) {
        return;
    }
    texture_.reset(
        SDL_CreateTexture(&renderer_, format, SDL_TEXTUREACCESS_STREAMING, size.width, size.height));
    if (texture_ == nullptr) {
        Fail("make room for pictures of " + std::to_string(size.width) + "x" + std::to_string(size.height));
    }
    format_ = format;
    size_ = size;
}

}  // namespace Tavrin::Playout::Program
