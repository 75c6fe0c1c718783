#include "Playout/FieldPicture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

constexpr int kWidth = 16;
constexpr int kHeight = 6;

/// Each line of one value: ten times its number, and 100 more in the colours.
std::shared_ptr<const Picture> Lines() {
    const auto frame = Support::MakeFrame(AV_PIX_FMT_YUV422P, kWidth, kHeight, [](int plane, int row, int) {
        return 10 * row + (plane == 0 ? 0 : 100);
    });
    return std::make_shared<const Picture>(7, *frame, true);
}

int ValueAt(const Picture& picture, std::size_t plane, std::size_t row) {
    const auto view = picture.Plane(plane);
    return view.data[row * view.stride + view.rowBytes - 1];
}

TEST(FieldPicture, WholePictureIsReturnedAsItIs) {
    const auto picture = Lines();
    EXPECT_EQ(FieldPicture(picture, PictureField::Frame), picture);
}

TEST(FieldPicture, LinesOfTheFieldStayWhereTheyAre) {
    const auto top = FieldPicture(Lines(), PictureField::Top);
    const auto bottom = FieldPicture(Lines(), PictureField::Bottom);
    for (const std::size_t row : {0U, 2U, 4U}) {
        EXPECT_EQ(ValueAt(*top, 0, row), 10 * row);
        EXPECT_EQ(ValueAt(*bottom, 0, row + 1), 10 * (row + 1));
    }
}

TEST(FieldPicture, BetweenThemLieMeansAndAtTheEdgesTheNearestLine) {
    const auto top = FieldPicture(Lines(), PictureField::Top);
    EXPECT_EQ(ValueAt(*top, 0, 1), 10);
    EXPECT_EQ(ValueAt(*top, 0, 3), 30);
    EXPECT_EQ(ValueAt(*top, 0, 5), 40);
    const auto bottom = FieldPicture(Lines(), PictureField::Bottom);
    EXPECT_EQ(ValueAt(*bottom, 0, 0), 10);
    EXPECT_EQ(ValueAt(*bottom, 0, 2), 20);
}

TEST(FieldPicture, ColoursAreThoseOfTheField) {
    const auto bottom = FieldPicture(Lines(), PictureField::Bottom);
    EXPECT_EQ(ValueAt(*bottom, 1, 1), 110);
    EXPECT_EQ(ValueAt(*bottom, 2, 0), 110);
    EXPECT_EQ(ValueAt(*bottom, 2, 2), 120);
}

TEST(FieldPicture, KeepsNumberFormatSizeAndDamage) {
    const auto top = FieldPicture(Lines(), PictureField::Top);
    EXPECT_EQ(top->Number(), 7U);
    EXPECT_EQ(top->PixelFormat(), "yuv422p");
    EXPECT_EQ(top->Height(), kHeight);
    EXPECT_TRUE(top->Damaged());
}

TEST(FieldPicture, TenBitsAreTakenTogether) {
    // 255 and 257 in two bytes each: the mean is 256, which no mean of bytes is.
    const auto frame =
        Support::MakeFrame(AV_PIX_FMT_YUV420P10LE, kWidth, kHeight, [](int plane, int row, int byte) {
            const int value = plane != 0 || row == 0 ? 255 : 257;
            return byte % 2 == 0 ? value % 256 : value / 256;
        });
    const auto top = FieldPicture(std::make_shared<const Picture>(0, *frame, false), PictureField::Top);
    const auto view = top->Plane(0);
    std::uint16_t value = 0;
    std::memcpy(&value, view.data + view.stride, sizeof(value));
    EXPECT_EQ(value, 256);
}

TEST(FieldPicture, WherePixelsAreNoValuesLinesAreRepeated) {
    const auto frame = Support::MakeFrame(AV_PIX_FMT_PAL8, kWidth, kHeight,
                                          [](int plane, int row, int) { return plane == 0 ? 10 * row : 3; });
    const auto picture = std::make_shared<const Picture>(0, *frame, false);
    const auto top = FieldPicture(picture, PictureField::Top);
    EXPECT_EQ(ValueAt(*top, 0, 1), 0);
    EXPECT_EQ(ValueAt(*top, 0, 3), 20);
    EXPECT_EQ(ValueAt(*FieldPicture(picture, PictureField::Bottom), 0, 0), 10);
}

}  // namespace
}  // namespace Tavrin::Playout
