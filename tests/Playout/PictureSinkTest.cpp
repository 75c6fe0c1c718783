#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/Md5Writer.h"
#include "Playout/PictureConverter.h"
#include "Playout/PngWriter.h"
#include "Playout/RecordingIndex.h"
#include "Playout/StraightDecoder.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/MadePictures.h"
#include "Playout/Support/Oracle.h"
#include "Playout/Y4mWriter.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
namespace fs = std::filesystem;
using Support::PlainPicture;
using Time::TimePoint;
using Pictures = std::vector<std::shared_ptr<const Picture>>;

ShownTick Tick(std::uint64_t number, const Pictures& pictures) {
    return {number, TimePoint().FromMilliseconds(static_cast<std::int64_t>(number) * 40), 1, pictures};
}

/// The text of the error that this ends in.
template <typename Action>
std::string ErrorOf(Action action) {
    try {
        action();
        return "no error";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

Pictures AllPictures(const std::string& clip) {
    Pictures pictures;
    StraightDecoder(RecordingIndex::Build(clip)).Run([&](const std::shared_ptr<const Picture>& picture) {
        pictures.push_back(picture);
        return true;
    });
    return pictures;
}

// ---- PNG --------------------------------------------------------------------------------------------------

TEST(PngWriter, WritesAFileForEachTickThatReadsBackAsItWas) {
    const auto folder = Clips::Scratch("new/folder");
    const auto pictures = AllPictures(Clips::Short());
    PngWriter writer(folder, {160, 120}, 1);
    for (const std::size_t tick : {3u, 11u}) {
        writer.Write(Tick(tick, {pictures[tick]}));
    }
    writer.Finish();
    for (const auto& [tick, name] : {std::pair(3u, "00000003.png"), std::pair(11u, "00000011.png")}) {
        const auto read = AllPictures((fs::path(folder) / name).string());
        ASSERT_EQ(read.size(), 1u);
        EXPECT_EQ(read[0]->PixelFormat(), "rgb24");
        Image expected(ImageFormat::Rgb24, 160, 120);
        PictureConverter().Convert(*pictures[tick], expected);
        Image actual(ImageFormat::Rgb24, 160, 120);
        PictureConverter().Convert(*read[0], actual);
        EXPECT_EQ(actual.Bytes(), expected.Bytes());
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);
}

TEST(PngWriter, AFolderThatCannotBeMadeIsNamed) {
    const auto file = Clips::Scratch("a file");
    Clips::WriteFile(file, "");
    const auto error = ErrorOf([&] { PngWriter(file + "/folder", {16, 16}, 1); });
    EXPECT_EQ(error, "\"" + file + "/folder\": the folder cannot be made: Not a directory");
}

TEST(PngWriter, AFileThatCannotBeMadeIsNamed) {
    const auto folder = Clips::Scratch("blocked");
    PngWriter writer(folder, {16, 16}, 1);
    fs::create_directories(fs::path(folder) / "00000000.png");
    const auto error = ErrorOf([&] { writer.Write(Tick(0, {PlainPicture(0, 16, 16, 90)})); });
    EXPECT_EQ(error, "\"" + folder + "/00000000.png\": cannot be made: Is a directory");
}

TEST(PngWriter, TakesImagesInRgbOnly) {
    EXPECT_THROW(WritePng(Clips::Scratch("x.png"), Image(ImageFormat::Yuv420p, 16, 16)),
                 std::invalid_argument);
}

// ---- Raw video --------------------------------------------------------------------------------------------

TEST(Y4mWriter, WritesVideoThatReadsBackPictureByPicture) {
    const auto file = Clips::Scratch("out.y4m");
    const auto pictures = AllPictures(Clips::Ntsc());
    Y4mWriter writer(file, {160, 120}, Player::SampleRate(30'000, 1001), 1);
    for (std::size_t tick = 0; tick < pictures.size(); ++tick) {
        writer.Write(Tick(tick, {pictures[tick]}));
    }
    writer.Finish();
    writer.Finish();
    const auto index = RecordingIndex::Build(file);
    EXPECT_EQ(index->Rate(), Player::SampleRate(30'000, 1001));
    const auto read = AllPictures(file);
    ASSERT_EQ(read.size(), pictures.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i]->Md5(), pictures[i]->Md5()) << "picture " << i;
    }
}

TEST(Y4mWriter, SeveralTracksShareTheImage) {
    const auto file = Clips::Scratch("two.y4m");
    Y4mWriter writer(file, {64, 32}, Player::SampleRate(25, 1), 2);
    writer.Write(Tick(0, {PlainPicture(0, 32, 32, 60), nullptr}));
    writer.Finish();
    const auto read = AllPictures(file);
    ASSERT_EQ(read.size(), 1u);
    const auto luma = read[0]->Plane(0);
    EXPECT_EQ(luma.data[16 * luma.stride + 16], 60);
    EXPECT_EQ(luma.data[16 * luma.stride + 48], 16);
}

TEST(Y4mWriter, ARateOfZeroIsRefused) {
    EXPECT_THROW(Y4mWriter(Clips::Scratch("zero.y4m"), {16, 16}, Player::SampleRate(), 1),
                 std::invalid_argument);
}

TEST(Y4mWriter, AFullDiskIsNoticed) {
    const auto error = ErrorOf([] {
        Y4mWriter writer("/dev/full", {64, 64}, Player::SampleRate(25, 1), 1);
        writer.Write(Tick(0, {PlainPicture(0, 64, 64, 60)}));
        writer.Finish();
    });
    EXPECT_EQ(error, "\"/dev/full\": cannot be written: No space left on device");
}

// ---- Check sums -------------------------------------------------------------------------------------------

TEST(Md5Writer, WritesALineForEachTick) {
    const auto file = Clips::Scratch("sums.txt");
    const auto first = PlainPicture(7, 16, 16, 60);
    const auto second = PlainPicture(9, 16, 16, 70);
    Md5Writer writer(file);
    writer.Write(Tick(0, {first, second}));
    writer.Write(Tick(1, {first, nullptr}));
    writer.Write(Tick(2, {nullptr, second}));
    writer.Finish();
    EXPECT_EQ(Clips::ReadFile(file), "0 0.000000000 7,9 " + first->Md5() + "," + second->Md5() + "\n" +
                                         "1 0.040000000 7,- " + first->Md5() + ",-\n" +
                                         "2 0.080000000 -,9 -," + second->Md5() + "\n");
}

TEST(Md5Writer, AFileThatCannotBeMadeIsNamed) {
    EXPECT_EQ(ErrorOf([] { Md5Writer("/nowhere/at all/sums.txt"); }),
              "\"/nowhere/at all/sums.txt\": cannot be made: No such file or directory");
}

TEST(Md5Writer, AFullDiskIsNoticed) {
    const auto error = ErrorOf([] {
        Md5Writer writer("/dev/full");
        writer.Write(Tick(0, {nullptr}));
        writer.Finish();
    });
    EXPECT_EQ(error, "\"/dev/full\": cannot be written: No space left on device");
}

}  // namespace
}  // namespace Tavrin::Playout
