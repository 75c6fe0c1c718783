#include "Playout/Mosaic.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

using Support::PlainPicture;
using Pictures = std::vector<std::shared_ptr<const Picture>>;

int LumaAt(const Image& image, int x, int y) {
    return image.Plane(0)[static_cast<std::size_t>(y) * image.RowBytes(0) + static_cast<std::size_t>(x)];
}

constexpr int kBlack = 16;

TEST(Mosaic, OnePictureFillsTheImage) {
    Mosaic mosaic(ImageFormat::Yuv420p, {64, 32}, 1);
    const auto& image = mosaic.Compose({PlainPicture(0, 32, 32, 100)});
    for (const int x : {0, 63}) {
        for (const int y : {0, 31}) {
            EXPECT_EQ(LumaAt(image, x, y), 100);
        }
    }
}

TEST(Mosaic, SeveralPicturesLieInRowsFromTheTopLeft) {
    Mosaic mosaic(ImageFormat::Yuv420p, {64, 64}, 4);
    const auto& image = mosaic.Compose({PlainPicture(0, 32, 32, 50), PlainPicture(0, 32, 32, 80),
                                        PlainPicture(0, 32, 32, 110), PlainPicture(0, 32, 32, 140)});
    EXPECT_EQ(LumaAt(image, 16, 16), 50);
    EXPECT_EQ(LumaAt(image, 48, 16), 80);
    EXPECT_EQ(LumaAt(image, 16, 48), 110);
    EXPECT_EQ(LumaAt(image, 48, 48), 140);
}

TEST(Mosaic, MissingPicturesAndCellsWithoutPictureAreBlack) {
    Mosaic mosaic(ImageFormat::Yuv420p, {64, 64}, 3);
    const Pictures all{PlainPicture(0, 32, 32, 50), PlainPicture(0, 32, 32, 80),
                       PlainPicture(0, 32, 32, 110)};
    EXPECT_EQ(LumaAt(mosaic.Compose(all), 48, 16), 80);
    const auto& image = mosaic.Compose({all[0], nullptr, all[2]});
    EXPECT_EQ(LumaAt(image, 16, 16), 50);
    EXPECT_EQ(LumaAt(image, 48, 16), kBlack);
    EXPECT_EQ(LumaAt(image, 16, 48), 110);
    EXPECT_EQ(LumaAt(image, 48, 48), kBlack);
    EXPECT_EQ(LumaAt(mosaic.Compose({}), 16, 16), kBlack);
}

TEST(Mosaic, PicturesKeepTheirProportionsInTheMiddleOfTheirCells) {
    Mosaic mosaic(ImageFormat::Yuv420p, {128, 64}, 2);
    const auto& image = mosaic.Compose({PlainPicture(0, 64, 32, 90), PlainPicture(0, 16, 64, 90)});
    EXPECT_EQ(LumaAt(image, 32, 4), kBlack);
    EXPECT_EQ(LumaAt(image, 32, 32), 90);
    EXPECT_EQ(LumaAt(image, 32, 60), kBlack);
    EXPECT_EQ(LumaAt(image, 70, 32), kBlack);
    EXPECT_EQ(LumaAt(image, 96, 32), 90);
    EXPECT_EQ(LumaAt(image, 96, 1), 90);
    EXPECT_EQ(LumaAt(image, 120, 32), kBlack);
}

TEST(Mosaic, ATrackThatChangesItsPictureOrSizeShowsTheNewOne) {
    Mosaic mosaic(ImageFormat::Yuv420p, {64, 32}, 1);
    EXPECT_EQ(LumaAt(mosaic.Compose({PlainPicture(0, 64, 32, 60)}), 10, 10), 60);
    EXPECT_EQ(LumaAt(mosaic.Compose({PlainPicture(1, 64, 32, 70)}), 10, 10), 70);
    EXPECT_EQ(LumaAt(mosaic.Compose({PlainPicture(2, 20, 90, 80)}), 10, 10), 80);
}

TEST(Mosaic, TheSizeForOnePictureIsItsOwn) {
    EXPECT_EQ(Mosaic::SizeFor({{1921, 1081}}, {640, 480}), (PixelSize{1921, 1081}));
}

TEST(Mosaic, TheSizeForSeveralHoldsTheLargestInEachCell) {
    EXPECT_EQ(Mosaic::SizeFor({{160, 120}, {320, 240}}, {1920, 1080}), (PixelSize{640, 240}));
    EXPECT_EQ(Mosaic::SizeFor(std::vector<PixelSize>(5, {160, 120}), {1920, 1080}), (PixelSize{480, 240}));
}

TEST(Mosaic, TheSizeForSeveralStaysWithinTheLimitInProportion) {
    EXPECT_EQ(Mosaic::SizeFor(std::vector<PixelSize>(4, {1920, 1080}), {1920, 1080}),
              (PixelSize{1920, 1080}));
    EXPECT_EQ(Mosaic::SizeFor(std::vector<PixelSize>(2, {1920, 1080}), {1920, 1080}), (PixelSize{1920, 540}));
    EXPECT_EQ(Mosaic::SizeFor(std::vector<PixelSize>(2, {100, 4000}), {1920, 1080}), (PixelSize{52, 1080}));
}

TEST(Mosaic, WhatHasNoRoomIsRefused) {
    EXPECT_THROW(Mosaic(ImageFormat::Rgb24, {64, 64}, 0), std::invalid_argument);
    EXPECT_THROW(Mosaic(ImageFormat::Rgb24, {2, 2}, 100), std::invalid_argument);
    EXPECT_THROW(Mosaic(ImageFormat::Rgb24, {0, 64}, 1), std::invalid_argument);
}

}  // namespace
}  // namespace Tavrin::Playout
