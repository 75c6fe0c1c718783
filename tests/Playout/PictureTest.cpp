#include "Playout/Picture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

using Support::MakeFrame;
using Support::OwnedFrame;

int Value(int plane, int row, int byte) {
    return plane * 50 + row * 7 + byte;
}

TEST(Picture, SharesThePixelsOfItsFrame) {
    auto frame = MakeFrame(AV_PIX_FMT_YUV420P, 16, 8, Value);
    const auto* pixels = frame->data[0];
    const Picture picture(42, *frame, true);
    EXPECT_EQ(picture.Plane(0).data, pixels);
    frame.reset();
    EXPECT_EQ(picture.Plane(0).data[1], 1);
    EXPECT_EQ(picture.Number(), 42u);
    EXPECT_TRUE(picture.Damaged());
    EXPECT_EQ(picture.Width(), 16);
    EXPECT_EQ(picture.Height(), 8);
    EXPECT_EQ(picture.PixelFormat(), "yuv420p");
}

TEST(Picture, PlanesHaveTheirOwnSizes) {
    const Picture picture(0, *MakeFrame(AV_PIX_FMT_YUV420P, 17, 9, Value), false);
    ASSERT_EQ(picture.NbPlanes(), 3u);
    EXPECT_EQ(picture.Plane(0).rowBytes, 17u);
    EXPECT_EQ(picture.Plane(0).rows, 9u);
    for (const std::size_t plane : {1u, 2u}) {
        EXPECT_EQ(picture.Plane(plane).rowBytes, 9u) << "half of 17, rounded up";
        EXPECT_EQ(picture.Plane(plane).rows, 5u);
    }
    EXPECT_EQ(picture.Plane(3).data, nullptr);
    EXPECT_EQ(picture.Plane(3).Size(), 0u);
}

TEST(Picture, TheSizeOfAPlaneEndsAtItsLastVisibleByte) {
    const Picture picture(0, *MakeFrame(AV_PIX_FMT_GRAY8, 10, 4, Value), false);
    const auto plane = picture.Plane(0);
    EXPECT_GT(plane.stride, 10u) << "the rows have no padding, so the test shows nothing";
    EXPECT_EQ(plane.Size(), 3 * plane.stride + 10);
}

TEST(Picture, DeepPixelsTakeTwoBytes) {
    const Picture picture(0, *MakeFrame(AV_PIX_FMT_YUV422P10LE, 16, 8, Value), false);
    EXPECT_EQ(picture.Plane(0).rowBytes, 32u);
    EXPECT_EQ(picture.Plane(1).rowBytes, 16u);
    EXPECT_EQ(picture.Plane(1).rows, 8u);
}

TEST(Picture, TheMemoryHeldIsAtLeastThePixels) {
    const Picture picture(0, *MakeFrame(AV_PIX_FMT_YUV420P, 64, 64, Value), false);
    EXPECT_GE(picture.ByteSize(), 64u * 64u * 3u / 2u);
    EXPECT_LT(picture.ByteSize(), 64u * 64u * 3u);
}

TEST(Picture, TheMd5IsThatOfTheVisibleBytesOneAfterTheOther) {
    // "abcdefghijklmnopqrstuvwxyz" in two rows, whatever lies in the padding.
    for (const int padding : {0, 255}) {
        const auto frame = MakeFrame(AV_PIX_FMT_GRAY8, 13, 2, [&](int, int row, int byte) {
            return byte < 13 ? 'a' + row * 13 + byte : padding;
        });
        EXPECT_EQ(Picture(0, *frame, false).Md5(), "c3fcd3d76192e4007dfb496cca67e13b");
    }
}

TEST(Picture, TheMd5CoversEveryPlane) {
    const Picture first(0, *MakeFrame(AV_PIX_FMT_YUV420P, 8, 8, Value), false);
    for (int changed = 0; changed < 3; ++changed) {
        const auto frame = MakeFrame(AV_PIX_FMT_YUV420P, 8, 8, [&](int plane, int row, int byte) {
            const bool last = plane == changed && row == (plane == 0 ? 7 : 3) && byte == (plane == 0 ? 7 : 3);
            return Value(plane, row, byte) + (last ? 1 : 0);
        });
        EXPECT_NE(Picture(0, *frame, false).Md5(), first.Md5()) << "plane " << changed;
    }
}

TEST(Picture, ThePaletteIsAPlane) {
    auto frame = MakeFrame(AV_PIX_FMT_PAL8, 8, 8, Value);
    const Picture picture(0, *frame, false);
    ASSERT_EQ(picture.NbPlanes(), 2u);
    EXPECT_EQ(picture.Plane(1).Size(), 1024u);
}

TEST(Picture, RowsThatRunUpwardAreTurned) {
    auto downward = MakeFrame(AV_PIX_FMT_GRAY8, 8, 4, Value);
    const auto expected = Picture(0, *downward, false).Md5();
    auto upward = MakeFrame(AV_PIX_FMT_GRAY8, 8, 4,
                            [](int plane, int row, int byte) { return Value(plane, 3 - row, byte); });
    upward->data[0] += std::ptrdiff_t{3} * upward->linesize[0];
    upward->linesize[0] = -upward->linesize[0];
    const Picture picture(0, *upward, false);
    EXPECT_EQ(picture.Md5(), expected);
    EXPECT_GT(picture.Plane(0).stride, 0u);
}

TEST(Picture, AFrameWithoutPixelsIsRefused) {
    const OwnedFrame frame(av_frame_alloc());
    frame->width = frame->height = 8;
    EXPECT_THROW(Picture(0, *frame, false), std::runtime_error);
    frame->format = AV_PIX_FMT_YUV420P;
    EXPECT_THROW(Picture(0, *frame, false), std::runtime_error);
    frame->format = AV_PIX_FMT_VAAPI;
    EXPECT_THROW(Picture(0, *frame, false), std::runtime_error);
}

}  // namespace
}  // namespace Tavrin::Playout
