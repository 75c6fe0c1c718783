#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Playout/PlayoutExport.h"

struct AVFrame;

namespace Tavrin::Playout {

/// A decoded picture.
///
/// *Threads:* immutable. *Blocking:* never. *Ownership:* shared; the pixels live as long as the picture, and
/// what Native() and Plane() return no longer than that.
class TAVRIN_PLAYOUT_EXPORT Picture final {
public:
    /// One plane of pixels: \p rows rows of \p rowBytes visible bytes, \p stride bytes apart (never
    /// negative).
    struct PlaneView {
        const std::uint8_t* data = nullptr;
        std::size_t stride = 0;
        std::size_t rowBytes = 0;
        std::size_t rows = 0;

        /// Bytes from the first to the last visible one. The padding after the last row is not ours to read.
        [[nodiscard]] std::size_t Size() const { return rows == 0 ? 0 : stride * (rows - 1) + rowBytes; }
    };

    /// Takes a new reference to the pixels of \p frame; it is not copied unless its rows run upward.
    /// Throws std::runtime_error when memory runs out or the pixel format has no planes to read.
    Picture(std::size_t number, const AVFrame& frame, bool damaged);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    [[nodiscard]] std::size_t Number() const { return number_; }  ///< In presentation order, from 0.
    [[nodiscard]] int Width() const;
    [[nodiscard]] int Height() const;
    [[nodiscard]] std::string PixelFormat() const;  ///< Such as yuv420p.
    /// The decoder had to make up a part of it, or what it was predicted from had been.
    [[nodiscard]] bool Damaged() const { return damaged_; }
    /// Memory held, padding included, in bytes.
    [[nodiscard]] std::size_t ByteSize() const { return byteSize_; }

    [[nodiscard]] std::size_t NbPlanes() const;
    /// An empty view for a plane that does not exist.
    [[nodiscard]] PlaneView Plane(std::size_t plane) const;

    /// MD5 of the visible bytes, plane by plane and row by row, as 32 hexadecimal digits: the same as that of
    /// the picture written as raw video. Computed anew by each call.
    [[nodiscard]] std::string Md5() const;

    /// For code that includes FFmpeg's headers.
    [[nodiscard]] const AVFrame& Native() const { return *frame_; }

private:
    std::size_t number_;
    bool damaged_;
    std::size_t byteSize_ = 0;
    AVFrame* frame_ = nullptr;
};

}  // namespace Tavrin::Playout
