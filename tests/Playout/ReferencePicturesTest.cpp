#include "Playout/ReferencePictures.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

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
    return NbOfReferences(parameters, 0);
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

TEST(ReferencePictures, WhereNothingBoundsThemThoseToPutOutLaterAreKeptBeside) {
    AVCodecParameters parameters{};
    parameters.codec_id = AV_CODEC_ID_MPEG2VIDEO;
    EXPECT_EQ(NbOfReferences(parameters, 1), 3U);
}

std::string With(const std::string& name, const std::string& encoder) {
    return Support::Clips::Encoded(
        name, "-f lavfi -i testsrc2=size=320x240:rate=25:duration=1 -pix_fmt yuv420p " + encoder);
}

std::size_t Said(const std::string& file) {
    return NbOfReferences(RecordingIndex::Build(file)->CodecParameters(), 0);
}

TEST(ReferencePictures, AreThoseThatTheStreamSays) {
    const std::string x264 = "-c:v libx264 -x264-params scenecut=0:bframes=0:ref=";
    EXPECT_EQ(Said(With("references-1.mp4", x264 + "1")), 1U);
    EXPECT_EQ(Said(With("references-5.mp4", x264 + "5")), 5U);
    EXPECT_EQ(Said(With("references-16.mp4", x264 + "16")), 16U);
    EXPECT_EQ(Said(With("references-6.ts", x264 + "6")), 6U) << "behind start codes";
    EXPECT_EQ(
        Said(With("references-422.mp4", "-c:v libx264 -pix_fmt yuv422p10le -x264-params bframes=0:ref=7")),
        7U)
        << "of a profile with a sampling of its own";
}

TEST(ReferencePictures, OfHevcAreThoseThatTheStreamSays) {
    const std::string x265 = "-c:v libx265 -x265-params log-level=error:bframes=0:ref=";
    // The one that is decoded counts too.
    EXPECT_EQ(Said(With("references-hevc-2.mp4", x265 + "2")), 3U);
    EXPECT_EQ(Said(With("references-hevc-5.mkv", x265 + "5")), 6U);
    EXPECT_EQ(Said(With("references-hevc-3.ts", x265 + "3")), 4U) << "behind start codes";
}

/// A header of any bytes says something between one picture and sixteen, and is never read beyond its end.
TEST(ReferencePictures, OfADamagedHeaderAreAtMostSixteen) {
    const auto whole = RecordingIndex::Build(
        With("references-5.mp4", "-c:v libx264 -x264-params scenecut=0:bframes=0:ref=5"));
    const AVCodecParameters& good = whole->CodecParameters();
    const std::vector<std::uint8_t> header(good.extradata, good.extradata + good.extradata_size);
    std::mt19937 random(5);
    for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC}) {
        for (int round = 0; round < 5000; ++round) {
            std::vector<std::uint8_t> damaged = header;
            damaged.resize(random() % (header.size() + 1));
            for (std::size_t i = 0; i < damaged.size(); ++i) {
                damaged[i] = random() % 8 == 0 ? static_cast<std::uint8_t>(random()) : damaged[i];
            }
            AVCodecParameters parameters{};
            parameters.codec_id = codec;
            parameters.extradata = damaged.data();
            parameters.extradata_size = static_cast<int>(damaged.size());
            const std::size_t nb = NbOfReferences(parameters, 0);
            ASSERT_GE(nb, 1U) << round;
            ASSERT_LE(nb, 16U) << round;
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
