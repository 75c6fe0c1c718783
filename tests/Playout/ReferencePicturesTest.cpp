#include "Playout/ReferencePictures.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace Tavrin::Playout {
namespace {

std::size_t Of(AVCodecID codec, int level, int width, int height) {
    AVCodecParameters parameters{};
    parameters.codec_id = codec;
    parameters.level = level;
    parameters.width = width;
    parameters.height = height;
    return NbOfReferences(parameters);
}

TEST(ReferencePictures, OfH264AreBoundedByLevelAndSize) {
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 40, 1920, 1080), 4U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 50, 1920, 1080), 13U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 31, 1280, 720), 5U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 51, 3840, 2160), 5U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 13, 352, 288), 6U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 9, 176, 144), 4U) << "level 1b";
}

TEST(ReferencePictures, AreNeverMoreThanSixteenNorNone) {
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 51, 320, 240), 16U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 10, 1920, 1080), 1U) << "larger than the level allows";
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 153, 320, 240), 16U);
}

TEST(ReferencePictures, OfHevcAreMoreTheSmallerThePictureIs) {
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 123, 1920, 1080), 6U);
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 123, 1440, 1080), 8U);
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 123, 1280, 720), 12U);
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 123, 720, 576), 16U);
}

TEST(ReferencePictures, WhereTheStreamDoesNotTellAreTakenToBeFour) {
    EXPECT_EQ(Of(AV_CODEC_ID_H264, -99, 1920, 1080), 4U);
    EXPECT_EQ(Of(AV_CODEC_ID_H264, 40, 0, 0), 4U);
    EXPECT_EQ(Of(AV_CODEC_ID_HEVC, 0, 1920, 1080), 4U);
    EXPECT_EQ(Of(AV_CODEC_ID_THEORA, 0, 640, 480), 4U);
}

TEST(ReferencePictures, OfOtherCodecsAreAFixedNumber) {
    EXPECT_EQ(Of(AV_CODEC_ID_MPEG2VIDEO, 4, 1920, 1080), 2U);
    EXPECT_EQ(Of(AV_CODEC_ID_AV1, 8, 1920, 1080), 8U);
}

}  // namespace
}  // namespace Tavrin::Playout
