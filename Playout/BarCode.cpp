#include "Playout/BarCode.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace Tavrin::Playout {

namespace {

constexpr unsigned kNbNumberBits = 16;
constexpr unsigned kNbBits = 20;
constexpr int kNbCells = 40;
constexpr std::uint32_t kModulus = 13;
constexpr int kStripsPerHeight = 18;

/// Below these sizes a cell has too few pixels of its own once the picture is coded.
constexpr int kLeastWidth = 160;
constexpr int kLeastHeight = 72;

/// Of the whole range of values, at least so much must lie between the white cells and the black ones: coding
/// blurs them far less, and ordinary pictures seldom have it throughout.
constexpr std::uint32_t kContrastDivisor = 4;

constexpr unsigned kBitsPerByte = 8;
constexpr int kDeepest = 16;

using Cells = std::array<std::uint32_t, kNbCells>;

/// The first component of a frame's pixels.
class Brightness {
public:
    explicit Brightness(const AVFrame& frame)
        : frame_(frame), format_(av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format))) {}

    [[nodiscard]] bool IsReadable() const {
        constexpr std::uint64_t kUnreadable =
            AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_FLOAT;
        return format_ != nullptr && (format_->flags & kUnreadable) == 0 &&
               format_->comp[0].depth <= kDeepest;
    }

    [[nodiscard]] std::uint32_t Range() const { return 1U << static_cast<unsigned>(format_->comp[0].depth); }

    [[nodiscard]] std::uint32_t At(int column, int row) const {
        const AVComponentDescriptor& component = format_->comp[0];
        const std::uint8_t* pixel = frame_.data[component.plane] +
                                    static_cast<std::ptrdiff_t>(row) * frame_.linesize[component.plane] +
                                    static_cast<std::ptrdiff_t>(column) * component.step + component.offset;
        return (Load(pixel) >> static_cast<unsigned>(component.shift)) & (Range() - 1);
    }

private:
    [[nodiscard]] std::uint32_t Load(const std::uint8_t* pixel) const {
        const AVComponentDescriptor& component = format_->comp[0];
        if (component.depth + component.shift <= static_cast<int>(kBitsPerByte)) {
            return *pixel;
        }
        const bool bigEndian = (format_->flags & AV_PIX_FMT_FLAG_BE) != 0;
        const std::uint32_t low = pixel[bigEndian ? 1 : 0];
        const std::uint32_t high = pixel[bigEndian ? 0 : 1];
        return low | (high << kBitsPerByte);
    }

    const AVFrame& frame_;
    const AVPixFmtDescriptor* format_;
};

/// The middle of one cell in two lines of the same field, where neither coding nor scaling smears its
/// neighbours in: the mean of eight pixels.
std::uint32_t ReadCell(const Brightness& brightness, const AVFrame& frame, int cell, int row) {
    constexpr std::array<int, 4> kEighths{-2, -1, 1, 2};
    const int middle = (2 * cell + 1) * frame.width / (2 * kNbCells);
    std::uint32_t sum = 0;
    for (const int eighths : kEighths) {
        const int column = middle + eighths * frame.width / (8 * kNbCells);
        sum += brightness.At(column, row) + brightness.At(column, row + 2);
    }
    constexpr auto kNbPixels = static_cast<std::uint32_t>(2 * kEighths.size());
    return sum / kNbPixels;
}

Cells ReadCells(const Brightness& brightness, const AVFrame& frame, int row) {
    Cells cells{};
    for (int cell = 0; cell < kNbCells; ++cell) {
        cells[static_cast<std::size_t>(cell)] = ReadCell(brightness, frame, cell, row);
    }
    return cells;
}

/// All bits, the remainder's last; nothing when the white cells are not clearly brighter than the black ones.
std::optional<std::uint32_t> ToBits(const Cells& cells, std::uint32_t leastContrast) {
    std::uint32_t bits = 0;
    std::uint32_t darkestWhite = UINT32_MAX;
    std::uint32_t brightestBlack = 0;
    for (std::size_t bit = 0; bit < kNbBits; ++bit) {
        const auto [black, white] = std::minmax(cells[2 * bit], cells[2 * bit + 1]);
        darkestWhite = std::min(darkestWhite, white);
        brightestBlack = std::max(brightestBlack, black);
        bits = bits << 1U | (cells[2 * bit] > cells[2 * bit + 1] ? 1U : 0U);
    }
    return darkestWhite >= brightestBlack + leastContrast ? std::optional(bits) : std::nullopt;
}

std::optional<std::uint32_t> CheckedNumber(std::uint32_t bits) {
    constexpr unsigned kNbCheckBits = kNbBits - kNbNumberBits;
    const std::uint32_t number = bits >> kNbCheckBits;
    const std::uint32_t check = bits & ((1U << kNbCheckBits) - 1);
    return check == number % kModulus + 1 ? std::optional(number) : std::nullopt;
}

std::optional<std::uint32_t> ReadLines(const Brightness& brightness, const AVFrame& frame, int row) {
    const auto bits = ToBits(ReadCells(brightness, frame, row), brightness.Range() / kContrastDivisor);
    return bits ? CheckedNumber(*bits) : std::nullopt;
}

}  // namespace

std::optional<std::uint32_t> ReadBarCode(const Picture& picture, PictureField field) {
    const AVFrame& frame = picture.Native();
    const Brightness brightness(frame);
    if (frame.width < kLeastWidth || frame.height < kLeastHeight || !brightness.IsReadable()) {
        return std::nullopt;
    }
    // Four lines around the middle of the strip, two of each field.
    const int firstOfFour = frame.height / (2 * kStripsPerHeight) - 2;
    const int top = firstOfFour + firstOfFour % 2;
    const int bottom = firstOfFour + 1 - firstOfFour % 2;
    if (field != PictureField::Frame) {
        return ReadLines(brightness, frame, field == PictureField::Top ? top : bottom);
    }
    const auto number = ReadLines(brightness, frame, top);
    return number && number == ReadLines(brightness, frame, bottom) ? number : std::nullopt;
}

}  // namespace Tavrin::Playout
