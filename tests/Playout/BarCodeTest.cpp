#include "Playout/BarCode.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/StraightDecoder.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

constexpr int kWidth = 400;
constexpr int kHeight = 180;
constexpr int kStripHeight = kHeight / 18;
constexpr int kCellWidth = kWidth / 40;
constexpr int kBlack = 16;
constexpr int kWhite = 235;

/// The strip's 20 bits for a number.
std::uint32_t BitsOf(std::uint32_t number) {
    return number << 4U | (number % 13 + 1);
}

bool IsWhite(std::uint32_t bits, int cell) {
    const bool bit = (bits >> (19U - static_cast<unsigned>(cell) / 2) & 1U) != 0;
    return bit == (cell % 2 == 0);
}

/// A grey picture of 4:2:0 whose upper strip is drawn by the function: row and cell to brightness.
std::shared_ptr<const Picture> Drawn(const std::function<int(int row, int cell)>& brightness) {
    const auto frame =
        Support::MakeFrame(AV_PIX_FMT_YUV420P, kWidth, kHeight, [&](int plane, int row, int byte) {
            const bool isStrip = plane == 0 && row < kStripHeight && byte < kWidth;
            return isStrip ? brightness(row, byte / kCellWidth) : 128;
        });
    return std::make_shared<const Picture>(0, *frame, false);
}

std::shared_ptr<const Picture> Drawn(std::uint32_t bits) {
    return Drawn([bits](int, int cell) { return IsWhite(bits, cell) ? kWhite : kBlack; });
}

/// A picture with two bytes for each brightness, of which `shift` low bits are not used.
std::shared_ptr<const Picture> DrawnDeep(AVPixelFormat format, std::uint32_t number, unsigned depth,
                                         bool bigEndian) {
    const auto frame = Support::MakeFrame(format, kWidth, kHeight, [&](int plane, int row, int byte) {
        const bool isStrip = plane == 0 && row < kStripHeight && byte < 2 * kWidth;
        const int level = isStrip && IsWhite(BitsOf(number), byte / 2 / kCellWidth) ? kWhite : kBlack;
        const auto value = static_cast<unsigned>(level) << (depth - 8U);
        return static_cast<int>((byte % 2 == 0) == bigEndian ? value >> 8U : value & 0xFFU);
    });
    return std::make_shared<const Picture>(0, *frame, false);
}

/// What is read from each picture of a clip, in the order of display.
std::vector<std::optional<std::uint32_t>> NumbersIn(const std::string& file,
                                                    PictureField field = PictureField::Frame) {
    std::vector<std::optional<std::uint32_t>> numbers;
    StraightDecoder(RecordingIndex::Build(file)).Run([&](const std::shared_ptr<const Picture>& picture) {
        numbers.push_back(ReadBarCode(*picture, field));
        return true;
    });
    return numbers;
}

std::vector<std::optional<std::uint32_t>> CountTo(std::size_t nb) {
    std::vector<std::optional<std::uint32_t>> numbers;
    for (std::size_t number = 0; number < nb; ++number) {
        numbers.emplace_back(static_cast<std::uint32_t>(number));
    }
    return numbers;
}

TEST(BarCode, ReadsEveryNumber) {
    for (std::uint32_t number = 0; number < kNbBarCodes; number += 251) {
        EXPECT_EQ(ReadBarCode(*Drawn(BitsOf(number))), number);
    }
    EXPECT_EQ(ReadBarCode(*Drawn(BitsOf(kNbBarCodes - 1))), kNbBarCodes - 1);
}

TEST(BarCode, SingleWrongBitGivesNothing) {
    for (unsigned bit = 0; bit < 20; ++bit) {
        EXPECT_EQ(ReadBarCode(*Drawn(BitsOf(1234) ^ (1U << bit))), std::nullopt) << "bit " << bit;
    }
}

TEST(BarCode, CellOfTheSameColourAsItsComplementGivesNothing) {
    for (int wrong = 0; wrong < 40; ++wrong) {
        const auto picture = Drawn([wrong](int, int cell) {
            const bool isWhite = IsWhite(BitsOf(1234), cell) != (cell == wrong);
            return isWhite ? kWhite : kBlack;
        });
        EXPECT_EQ(ReadBarCode(*picture), std::nullopt) << "cell " << wrong;
    }
}

TEST(BarCode, FaintStripGivesNothing) {
    const auto picture = Drawn([](int, int cell) { return IsWhite(BitsOf(77), cell) ? 140 : 116; });
    EXPECT_EQ(ReadBarCode(*picture), std::nullopt);
}

TEST(BarCode, PlainPictureGivesNothing) {
    EXPECT_EQ(ReadBarCode(*Support::PlainPicture(0, kWidth, kHeight, 128)), std::nullopt);
}

TEST(BarCode, PictureTooSmallForCellsGivesNothing) {
    EXPECT_EQ(ReadBarCode(*Support::PlainPicture(0, 40, 18, 128)), std::nullopt);
}

TEST(BarCode, FieldsOfTwoPicturesGiveNothingAsAFrameAndEachItsOwn) {
    const auto picture = Drawn(
        [](int row, int cell) { return IsWhite(BitsOf(row % 2 == 0 ? 500 : 501), cell) ? kWhite : kBlack; });
    EXPECT_EQ(ReadBarCode(*picture), std::nullopt);
    EXPECT_EQ(ReadBarCode(*picture, PictureField::Top), 500U);
    EXPECT_EQ(ReadBarCode(*picture, PictureField::Bottom), 501U);
}

TEST(BarCode, ReadsMoreThanEightBitsInEitherByteOrder) {
    EXPECT_EQ(ReadBarCode(*DrawnDeep(AV_PIX_FMT_YUV420P10LE, 4321, 10, false)), 4321U);
    EXPECT_EQ(ReadBarCode(*DrawnDeep(AV_PIX_FMT_YUV420P10BE, 4321, 10, true)), 4321U);
    EXPECT_EQ(ReadBarCode(*DrawnDeep(AV_PIX_FMT_YUV420P16LE, 4321, 16, false)), 4321U);
}

TEST(BarCode, IsReadFromLossyClip) {
    EXPECT_EQ(NumbersIn(Clips::Numbered()), CountTo(Clips::kNbPictures));
}

TEST(BarCode, IsReadFromInterlacedClipInFramesAndInEachField) {
    const auto clip = Clips::NumberedInterlaced();
    EXPECT_EQ(NumbersIn(clip), CountTo(Clips::kNbPictures));
    EXPECT_EQ(NumbersIn(clip, PictureField::Top), CountTo(Clips::kNbPictures));
    EXPECT_EQ(NumbersIn(clip, PictureField::Bottom), CountTo(Clips::kNbPictures));
}

TEST(BarCode, IsReadFromLossyClipOfTenBits) {
    EXPECT_EQ(NumbersIn(Clips::NumberedDeep()), CountTo(Clips::kNbPictures));
}

TEST(BarCode, IsReadFromScaledClip) {
    EXPECT_EQ(NumbersIn(Clips::NumberedSmall()), CountTo(Clips::kNbPictures));
}

TEST(BarCode, IsReadFromFullRangeClip) {
    EXPECT_EQ(NumbersIn(Clips::NumberedMotionJpeg()), CountTo(Clips::kNbPictures));
}

TEST(BarCode, IsNotReadFromClipWithoutOne) {
    for (const auto& number : NumbersIn(Clips::ClosedGroups())) {
        EXPECT_EQ(number, std::nullopt);
    }
}

}  // namespace
}  // namespace Tavrin::Playout
