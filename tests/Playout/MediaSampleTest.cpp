#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/GroupReader.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::StorageId;
using Player::TrackId;
using Time::TimePoint;

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

std::string Property(const Player::ISample& sample, const std::string& key) {
    std::uint64_t size = 4711;
    const auto* bytes = sample.GetProperty(key, size);
    return bytes == nullptr ? "none" : std::string(reinterpret_cast<const char*>(bytes), size);
}

std::string Data(const Player::ISample& sample, const std::string& key) {
    std::uint64_t size = 4711;
    const auto* bytes = sample.GetData(key, size);
    return bytes == nullptr ? "none" : std::string(reinterpret_cast<const char*>(bytes), size);
}

void ExpectUnknownKeysAreNullWithSizeZero(const Player::ISample& sample) {
    std::uint64_t size = 4711;
    EXPECT_EQ(sample.GetProperty("unknown", size), nullptr);
    EXPECT_EQ(size, 0u);
    size = 4711;
    EXPECT_EQ(sample.GetData("unknown", size), nullptr);
    EXPECT_EQ(size, 0u);
}

std::shared_ptr<const PacketGroup> SecondGroup() {
    GroupReader reader(RecordingIndex::Build(Clips::ClosedGroups()));
    return reader.Read(1);
}

TEST(CompressedSample, TellsWhatItIs) {
    const auto group = SecondGroup();
    const CompressedSample sample(TrackId(StorageId("archive", 7), 3), group, 14, Ms(560), Ms(40));
    EXPECT_EQ(sample.GetTimePoint(), Ms(560));
    EXPECT_EQ(sample.GetDuration(), Ms(40));
    EXPECT_EQ(Property(sample, "track"), "archive:7:T3");
    EXPECT_EQ(Property(sample, "codec"), "h264");
    EXPECT_EQ(Property(sample, "picture"), "14");
    EXPECT_EQ(Property(sample, "group"), "1");
    EXPECT_EQ(Property(sample, "key"), "0");
    EXPECT_EQ(Property(sample, "width"), "160");
    EXPECT_EQ(Property(sample, "height"), "120");
    EXPECT_EQ(Property(sample, "size"), std::to_string(Data(sample, "packet").size()));
    EXPECT_EQ(sample.GetPropertyKeys().size(), 8u);
    EXPECT_EQ(Property(CompressedSample(TrackId(), group, 12, Ms(480), Ms(40)), "key"), "1");
}

TEST(CompressedSample, ItsDataAreTheBytesOfThePacketInTheFile) {
    const auto group = SecondGroup();
    const CompressedSample sample(TrackId(), group, 14, Ms(560), Ms(40));
    const auto& packet = group->Index()->Packet(group->Index()->Picture(14).packet);
    EXPECT_EQ(sample.GetDataKeys(), (std::set<std::string>{"packet"}));
    EXPECT_EQ(Data(sample, "packet"),
              Clips::ReadFile(Clips::ClosedGroups())
                  .substr(static_cast<std::size_t>(packet.position), static_cast<std::size_t>(packet.size)));
}

TEST(CompressedSample, UnknownKeysAreNullWithSizeZero) {
    ExpectUnknownKeysAreNullWithSizeZero(CompressedSample(TrackId(), SecondGroup(), 14, Ms(560), Ms(40)));
}

TEST(CompressedSample, APictureOfAnotherGroupIsRefused) {
    EXPECT_THROW(CompressedSample(TrackId(), SecondGroup(), 11, Ms(440), Ms(40)), std::invalid_argument);
}

TEST(DecodedSample, TellsWhatItIs) {
    const auto picture = Support::PlainPicture(9, 16, 8, 77);
    const DecodedSample sample(picture, Ms(360), Ms(40));
    EXPECT_EQ(sample.GetTimePoint(), Ms(360));
    EXPECT_EQ(sample.GetDuration(), Ms(40));
    EXPECT_EQ(Property(sample, "picture"), "9");
    EXPECT_EQ(Property(sample, "width"), "16");
    EXPECT_EQ(Property(sample, "height"), "8");
    EXPECT_EQ(Property(sample, "format"), "yuv420p");
    EXPECT_EQ(Property(sample, "damaged"), "0");
    EXPECT_EQ(Property(sample, "field"), "frame");
    EXPECT_EQ(Property(sample, "stride0"), std::to_string(picture->Plane(0).stride));
    EXPECT_EQ(Property(sample, "stride2"), std::to_string(picture->Plane(2).stride));
    EXPECT_EQ(Property(sample, "stride3"), "none");
    EXPECT_EQ(sample.Content(), picture);
}

TEST(DecodedSample, ItsDataAreThePlanes) {
    const auto picture = Support::PlainPicture(9, 16, 8, 77, 10, 20);
    const DecodedSample sample(picture, Ms(360), Ms(40));
    EXPECT_EQ(sample.GetDataKeys(), (std::set<std::string>{"plane0", "plane1", "plane2"}));
    EXPECT_EQ(Data(sample, "plane0").size(), picture->Plane(0).Size());
    EXPECT_EQ(Data(sample, "plane0").at(0), 77);
    EXPECT_EQ(Data(sample, "plane1").at(0), 10);
    EXPECT_EQ(Data(sample, "plane2").at(0), 20);
}

TEST(DecodedSample, UnknownKeysAreNullWithSizeZero) {
    ExpectUnknownKeysAreNullWithSizeZero(DecodedSample(Support::PlainPicture(9, 16, 8, 77), Ms(0), Ms(40)));
}

TEST(DecodedSample, NamesTheFieldThatItStandsFor) {
    const auto picture = Support::PlainPicture(9, 16, 8, 77);
    EXPECT_EQ(Property(DecodedSample(picture, Ms(0), Ms(20), PictureField::Top), "field"), "top");
    EXPECT_EQ(Property(DecodedSample(picture, Ms(20), Ms(20), PictureField::Bottom), "field"), "bottom");
}

}  // namespace
}  // namespace Tavrin::Playout
