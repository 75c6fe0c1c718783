#include "Playout/SimulatedRecording.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace Tavrin::Playout {
namespace {

std::string Refusal(const RecordingModel& model) {
    try {
        static_cast<void>(MakeSimulatedRecording(model));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(SimulatedRecording, HasOnePictureForEachSampleOfItsRate) {
    RecordingModel model;
    model.rate = Player::SampleRate(30000, 1001);
    model.nbPictures = 300;
    const auto index = MakeSimulatedRecording(model);
    EXPECT_TRUE(index->ConstantRate());
    EXPECT_EQ(index->NbPictures(), 300U);
    EXPECT_EQ(index->NbSamples(), 300);
    EXPECT_EQ(index->End(), Time::TimePoint::StartOfSample(300, model.rate));
    EXPECT_EQ(index->PictureAt(299), 299U);
    EXPECT_FALSE(index->PictureAt(300));
}

TEST(SimulatedRecording, HasGroupsOfTheStatedLengthAndAFirstOneOfItsOwn) {
    RecordingModel model;
    model.nbPictures = 130;
    model.groupLength = 50;
    model.firstGroupLength = 20;
    const auto index = MakeSimulatedRecording(model);
    ASSERT_EQ(index->NbGroups(), 4U);
    EXPECT_EQ(index->Group(0).nbPictures, 20U);
    EXPECT_EQ(index->Group(1).nbPictures, 50U);
    EXPECT_EQ(index->Group(3).nbPictures, 10U);
    EXPECT_EQ(index->Picture(70).group, 2U);
    EXPECT_TRUE(index->Picture(70).key);
    EXPECT_FALSE(index->Picture(71).key);
}

TEST(SimulatedRecording, HasTheBytesOfItsBitRateWithoutDrift) {
    RecordingModel model;
    model.rate = Player::SampleRate(30000, 1001);
    model.nbPictures = 3000;
    model.bitsPerSecond = 7'777'777;
    const auto index = MakeSimulatedRecording(model);
    std::int64_t nbBytes = 0;
    for (std::size_t group = 0; group < index->NbGroups(); ++group) {
        nbBytes += index->Group(group).nbBytes;
    }
    EXPECT_EQ(nbBytes, index->End().SampleNumber(Time::Ratio(model.bitsPerSecond, 8)));
}

TEST(SimulatedRecording, DescribesThePicturesFromWhichTheirBytesFollow) {
    RecordingModel model;
    model.width = 720;
    model.height = 576;
    model.pixelFormat = "yuv422p10le";
    const auto index = MakeSimulatedRecording(model);
    EXPECT_EQ(index->Description().width, 720);
    EXPECT_EQ(index->Description().height, 576);
    EXPECT_EQ(index->Description().pixelFormat, "yuv422p10le");
}

TEST(SimulatedRecording, IsIntraOnlyWithGroupsOfOne) {
    RecordingModel model;
    model.nbPictures = 10;
    model.groupLength = 1;
    EXPECT_TRUE(MakeSimulatedRecording(model)->IntraOnly());
    EXPECT_EQ(MakeSimulatedRecording(model)->ReorderDepth(), 0);
}

TEST(SimulatedRecording, RefusesWhatCannotBeNamingTheValueAndTheRule) {
    RecordingModel model;
    model.rate = Player::SampleRate();
    EXPECT_EQ(Refusal(model), "a rate of 0/1 pictures a second: it must be above 0");
    model = RecordingModel();
    model.groupLength = 0;
    EXPECT_EQ(Refusal(model), "a group length of 0: it must be from 1 to 10000000");
    model = RecordingModel();
    model.firstGroupLength = 51;
    EXPECT_EQ(Refusal(model), "a first group length of 51: it must be from 0 to 50");
    model = RecordingModel();
    model.bitsPerSecond = 0;
    EXPECT_EQ(Refusal(model), "a bit rate of 0: it must be from 1 to 100000000000");
    model = RecordingModel();
    model.width = 0;
    EXPECT_EQ(Refusal(model), "a width of 0: it must be from 1 to 16384");
    model = RecordingModel();
    model.pixelFormat = "plaid";
    EXPECT_EQ(Refusal(model),
              "a pixel format of 'plaid': it must be one of FFmpeg's in main memory, such as yuv420p");
}

}  // namespace
}  // namespace Tavrin::Playout
