#include "Playout/Image.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace Tavrin::Playout {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Image, IsBlackAtFirst) {
    EXPECT_EQ(Image(ImageFormat::Rgb24, 2, 1).Bytes(), Bytes(6, 0));
    const Image image(ImageFormat::Yuv420p, 2, 2);
    EXPECT_EQ(image.Bytes(), (Bytes{16, 16, 16, 16, 128, 128}));
}

TEST(Image, PlanesFollowOneAnotherWithoutPadding) {
    Image image(ImageFormat::Yuv420p, 5, 3);
    EXPECT_EQ(image.RowBytes(0), 5u);
    EXPECT_EQ(image.Rows(0), 3u);
    EXPECT_EQ(image.RowBytes(1), 3u);
    EXPECT_EQ(image.Rows(1), 2u);
    EXPECT_EQ(image.Plane(1) - image.Plane(0), 15);
    EXPECT_EQ(image.Plane(2) - image.Plane(1), 6);
    EXPECT_EQ(image.Bytes().size(), 15u + 6u + 6u);
}

TEST(Image, PasteCopiesToItsPlace) {
    Image image(ImageFormat::Rgb24, 3, 2);
    Image dot(ImageFormat::Rgb24, 1, 1);
    dot.Plane(0)[0] = 1;
    dot.Plane(0)[1] = 2;
    dot.Plane(0)[2] = 3;
    image.Paste(dot, 1, 1);
    EXPECT_EQ(image.Bytes(), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 0, 0, 0}));
}

TEST(Image, PasteCopiesEachPlane) {
    Image image(ImageFormat::Yuv420p, 4, 4);
    Image part(ImageFormat::Yuv420p, 2, 2);
    for (std::size_t plane = 0; plane < 3; ++plane) {
        for (std::size_t i = 0; i < part.RowBytes(plane) * part.Rows(plane); ++i) {
            part.Plane(plane)[i] = static_cast<std::uint8_t>(plane + 1);
        }
    }
    image.Paste(part, 2, 0);
    EXPECT_EQ(image.Bytes(), (Bytes{16, 16, 1,  1,  16,  16, 1,   1,   16,  16, 16,  16,
                                    16, 16, 16, 16, 128, 2,  128, 128, 128, 3,  128, 128}));
}

TEST(Image, PasteOutsideOrAcrossTheColoursGridIsRefused) {
    Image image(ImageFormat::Yuv420p, 8, 8);
    const Image part(ImageFormat::Yuv420p, 4, 4);
    for (const auto& [x, y] :
         std::vector<std::pair<int, int>>{{6, 0}, {0, 6}, {-2, 0}, {0, -2}, {1, 0}, {0, 1}}) {
        EXPECT_THROW(image.Paste(part, x, y), std::invalid_argument) << x << "," << y;
    }
    EXPECT_THROW(image.Paste(Image(ImageFormat::Rgb24, 2, 2), 0, 0), std::invalid_argument);
}

TEST(Image, SizesThatCannotBeAreRefused) {
    for (const int size : {0, -1, Image::kMaxSize + 1}) {
        EXPECT_THROW(Image(ImageFormat::Rgb24, size, 8), std::invalid_argument);
        EXPECT_THROW(Image(ImageFormat::Rgb24, 8, size), std::invalid_argument);
    }
}

}  // namespace
}  // namespace Tavrin::Playout
