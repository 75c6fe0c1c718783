#include "Playout/Image.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Tavrin::Playout {

namespace {

/// Black in the usual, limited range.
constexpr std::uint8_t kBlackLuma = 16;
constexpr std::uint8_t kNoColour = 128;

std::size_t Halved(int size) {
    return static_cast<std::size_t>(size) / 2 + static_cast<std::size_t>(size) % 2;
}

}  // namespace

Image::Image(ImageFormat format, int width, int height) : format_(format), width_(width), height_(height) {
    if (width < 1 || width > kMaxSize || height < 1 || height > kMaxSize) {
        throw std::invalid_argument("an image cannot be " + std::to_string(width) + "x" +
                                    std::to_string(height) + " pixels: each side is 1 to " +
                                    std::to_string(kMaxSize));
    }
    bytes_.resize(Offset(NbPlanes()));
    FillBlack();
}

std::size_t Image::RowBytes(std::size_t plane) const {
    if (format_ == ImageFormat::Rgb24) {
        return static_cast<std::size_t>(width_) * 3;
    }
    return plane == 0 ? static_cast<std::size_t>(width_) : Halved(width_);
}

std::size_t Image::Rows(std::size_t plane) const {
    return plane == 0 ? static_cast<std::size_t>(height_) : Halved(height_);
}

std::size_t Image::Offset(std::size_t plane) const {
    std::size_t offset = 0;
    for (std::size_t i = 0; i < plane; ++i) {
        offset += RowBytes(i) * Rows(i);
    }
    return offset;
}

std::uint8_t* Image::Plane(std::size_t plane) {
    return bytes_.data() + Offset(plane);
}

const std::uint8_t* Image::Plane(std::size_t plane) const {
    return bytes_.data() + Offset(plane);
}

void Image::FillBlack() {
    if (format_ == ImageFormat::Rgb24) {
        std::fill(bytes_.begin(), bytes_.end(), std::uint8_t{0});
        return;
    }
    const auto chroma = bytes_.begin() + static_cast<std::ptrdiff_t>(Offset(1));
    std::fill(bytes_.begin(), chroma, kBlackLuma);
    std::fill(chroma, bytes_.end(), kNoColour);
}

void Image::Paste(const Image& source, int x, int y) {
    const bool aligned = format_ == ImageFormat::Rgb24 || (x % 2 == 0 && y % 2 == 0);
    const bool fits = x >= 0 && y >= 0 && source.width_ <= width_ - x && source.height_ <= height_ - y;
    if (source.format_ != format_ || !aligned || !fits) {
        throw std::invalid_argument("an image of " + std::to_string(source.width_) + "x" +
                                    std::to_string(source.height_) + " does not go to " + std::to_string(x) +
                                    "," + std::to_string(y) + " of one of " + std::to_string(width_) + "x" +
                                    std::to_string(height_));
    }
    for (std::size_t plane = 0; plane < NbPlanes(); ++plane) {
        const auto bytesPerColumn = format_ == ImageFormat::Rgb24 ? std::size_t{3} : std::size_t{1};
        const auto shift = plane == 0 ? 0U : 1U;
        const auto column = (static_cast<std::size_t>(x) >> shift) * bytesPerColumn;
        const auto row = static_cast<std::size_t>(y) >> shift;
        for (std::size_t i = 0; i < source.Rows(plane); ++i) {
            std::copy_n(source.Plane(plane) + i * source.RowBytes(plane), source.RowBytes(plane),
                        Plane(plane) + (row + i) * RowBytes(plane) + column);
        }
    }
}

}  // namespace Tavrin::Playout
