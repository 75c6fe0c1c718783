#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Pixel formats that pictures are converted to.
enum class ImageFormat {
    Rgb24,   ///< One plane, three bytes for each pixel.
    Yuv420p  ///< Luma, then two planes of half the size each way, rounded up.
};

/// Pixels to write to a file: the planes one after the other, without padding.
///
/// *Threads:* externally synchronised.
class TAVRIN_PLAYOUT_EXPORT Image {
public:
    /// A black image. Throws std::invalid_argument unless both sizes are between 1 and kMaxSize.
    Image(ImageFormat format, int width, int height);

    static constexpr int kMaxSize = 16384;

    [[nodiscard]] ImageFormat Format() const { return format_; }
    [[nodiscard]] int Width() const { return width_; }
    [[nodiscard]] int Height() const { return height_; }

    [[nodiscard]] std::size_t NbPlanes() const { return format_ == ImageFormat::Rgb24 ? 1 : 3; }
    /// Bytes of one row; rows lie next to one another.
    [[nodiscard]] std::size_t RowBytes(std::size_t plane) const;
    [[nodiscard]] std::size_t Rows(std::size_t plane) const;
    [[nodiscard]] std::uint8_t* Plane(std::size_t plane);
    [[nodiscard]] const std::uint8_t* Plane(std::size_t plane) const;

    /// All planes.
    [[nodiscard]] const std::vector<std::uint8_t>& Bytes() const { return bytes_; }

    /// Copies \p source, of the same format, to column \p x and row \p y, which must be even for Yuv420p and
    /// leave it room; throws std::invalid_argument otherwise.
    void Paste(const Image& source, int x, int y);

    void FillBlack();

private:
    [[nodiscard]] std::size_t Offset(std::size_t plane) const;

    ImageFormat format_;
    int width_;
    int height_;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace Tavrin::Playout
