#include "Playout/PictureConverter.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

using Support::MakeFrame;
using Support::PlainPicture;

/// The image's middle pixel must be that colour, within what rounding does.
void ExpectColour(const Image& image, const std::array<int, 3>& colour) {
    const auto* pixel = image.Plane(0) + image.RowBytes(0) * (image.Rows(0) / 2) +
                        static_cast<std::size_t>(image.Width() / 2) * 3;
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(pixel[i], colour.at(i), 2) << "component " << i;
    }
}

Image Rgb(const Picture& picture, int width, int height) {
    Image image(ImageFormat::Rgb24, width, height);
    PictureConverter().Convert(picture, image);
    return image;
}

TEST(PictureConverter, TheLimitedRangeBecomesTheFullOne) {
    ExpectColour(Rgb(*PlainPicture(0, 32, 32, 16), 32, 32), {0, 0, 0});
    ExpectColour(Rgb(*PlainPicture(0, 32, 32, 235), 32, 32), {255, 255, 255});
    ExpectColour(Rgb(*PlainPicture(0, 32, 32, 126), 32, 32), {128, 128, 128});
}

TEST(PictureConverter, TheFullRangeStaysTheFullOne) {
    const auto frame =
        MakeFrame(AV_PIX_FMT_YUVJ420P, 32, 32, [](int plane, int, int) { return plane == 0 ? 16 : 128; });
    ExpectColour(Rgb(Picture(0, *frame, false), 32, 32), {16, 16, 16});
}

TEST(PictureConverter, SmallPicturesHaveTheColoursOfStandardDefinitionLargeOnesOfHigh) {
    // Pure red is 81, 90, 240 by the older matrix and 63, 102, 240 by the newer one.
    ExpectColour(Rgb(*PlainPicture(0, 64, 64, 81, 90, 240), 64, 64), {255, 0, 0});
    ExpectColour(Rgb(*PlainPicture(0, 64, 720, 63, 102, 240), 64, 720), {255, 0, 0});
}

TEST(PictureConverter, WhatTheStreamSaysOfItsColoursCounts) {
    auto frame = MakeFrame(AV_PIX_FMT_YUV420P, 64, 64, [](int plane, int, int) {
        return plane == 0 ? 63 : plane == 1 ? 102 : 240;
    });
    frame->colorspace = AVCOL_SPC_BT709;
    ExpectColour(Rgb(Picture(0, *frame, false), 64, 64), {255, 0, 0});
}

TEST(PictureConverter, APictureOfTheImagesSizeAndLayoutIsCopied) {
    const auto frame = MakeFrame(AV_PIX_FMT_YUV420P, 34, 18,
                                 [](int plane, int row, int byte) { return plane * 9 + row + byte; });
    const Picture picture(0, *frame, false);
    Image image(ImageFormat::Yuv420p, 34, 18);
    PictureConverter().Convert(picture, image);
    for (std::size_t plane = 0; plane < 3; ++plane) {
        const auto view = picture.Plane(plane);
        ASSERT_EQ(view.rowBytes, image.RowBytes(plane));
        ASSERT_EQ(view.rows, image.Rows(plane));
        for (std::size_t row = 0; row < view.rows; ++row) {
            EXPECT_TRUE(std::equal(view.data + row * view.stride,
                                   view.data + row * view.stride + view.rowBytes,
                                   image.Plane(plane) + row * image.RowBytes(plane)));
        }
    }
}

TEST(PictureConverter, ScalesToTheImage) {
    const auto frame =
        MakeFrame(AV_PIX_FMT_GRAY8, 64, 64, [](int, int, int byte) { return byte < 32 ? 0 : 255; });
    const auto image = Rgb(Picture(0, *frame, false), 128, 16);
    // In the middle of the left half and of the right one, three bytes for each pixel.
    EXPECT_LT(image.Plane(0)[96], 5);
    EXPECT_GT(image.Plane(0)[288], 250);
}

TEST(PictureConverter, OneConverterTakesPicturesOfAnySizeInTurn) {
    PictureConverter converter;
    Image image(ImageFormat::Rgb24, 32, 32);
    for (int i = 0; i < 3; ++i) {
        converter.Convert(*PlainPicture(0, 32, 32, 16), image);
        ExpectColour(image, {0, 0, 0});
        converter.Convert(*PlainPicture(1, 64, 48, 235), image);
        ExpectColour(image, {255, 255, 255});
        const auto deep = MakeFrame(AV_PIX_FMT_YUV422P10LE, 32, 32, [](int plane, int, int byte) {
            const int value = plane == 0 ? 940 : 512;
            return byte % 2 == 0 ? value & 255 : value >> 8;
        });
        converter.Convert(Picture(2, *deep, false), image);
        ExpectColour(image, {255, 255, 255});
    }
}

}  // namespace
}  // namespace Tavrin::Playout
