#include "Playout/GroupReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

/// The packet's bytes as they are in the file, by the index; for containers that store packets in one piece.
std::string BytesInFile(const std::string& file, const CodedPacket& packet) {
    return file.substr(static_cast<std::size_t>(packet.position), static_cast<std::size_t>(packet.size));
}

std::string Text(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

void ExpectComplete(const PacketGroup& group) {
    EXPECT_EQ(group.NbMissing(), 0u) << "in group " << group.Number();
    EXPECT_EQ(group.ByteSize(), static_cast<std::size_t>(group.Layout().nbBytes));
}

TEST(GroupReader, DeliversThePacketsOfTheRun) {
    const auto clip = Clips::OpenGroups();
    const auto file = Clips::ReadFile(clip);
    const auto index = RecordingIndex::Build(clip);
    GroupReader reader(index);
    for (std::size_t i = 0; i < index->NbGroups(); ++i) {
        const auto group = reader.Read(i);
        EXPECT_EQ(group->Number(), i);
        ExpectComplete(*group);
        for (auto packet = group->Layout().firstPacket; packet < group->Layout().EndPacket(); ++packet) {
            EXPECT_EQ(Text(group->Bytes(packet)), BytesInFile(file, index->Packet(packet)));
        }
        EXPECT_EQ(group->Packet(group->Layout().EndPacket()), nullptr);
        EXPECT_TRUE(group->Bytes(group->Layout().EndPacket()).empty());
    }
}

class GroupReaderOnEachContainer : public testing::TestWithParam<std::string (*)()> {};

/// Whatever stands in the file where a seek lands, the packets of a group are those of the index: decoding
/// sees wrong ones, reading alone sees their sizes.
TEST_P(GroupReaderOnEachContainer, DeliversEveryGroupCompleteInAnyOrder) {
    const auto index = RecordingIndex::Build(GetParam()());
    const auto nb = index->NbGroups();
    for (const auto& order : {Support::Forward(nb), Support::Backward(nb), Support::Shuffled(nb, 1)}) {
        GroupReader reader(index, 1);
        for (const auto number : order) {
            const auto group = reader.Read(number);
            ExpectComplete(*group);
            for (auto packet = group->Layout().firstPacket; packet < group->Layout().EndPacket(); ++packet) {
                EXPECT_EQ(group->Bytes(packet).size(), static_cast<std::size_t>(index->Packet(packet).size));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Clips, GroupReaderOnEachContainer,
                         testing::Values(Clips::ClosedGroups, Clips::OpenGroups, Clips::Fragmented,
                                         Clips::EditList, Clips::Matroska, Clips::LateMatroska,
                                         Clips::Transport, Clips::Mpeg2Interlaced, Clips::Mpeg2Program,
                                         Clips::CutTransport, Clips::MotionJpeg, Clips::BareH264,
                                         Clips::OldAvi));

// ---- Reading costs ----------------------------------------------------------------------------------------

TEST(GroupReader, ReadingForwardNeverSeeksAndReadsEachPacketOnce) {
    for (const auto& clip : {Clips::OpenGroups(), Clips::Matroska(), Clips::Transport()}) {
        const auto index = RecordingIndex::Build(clip);
        GroupReader reader(index);
        for (std::size_t i = 0; i < index->NbGroups(); ++i) {
            ExpectComplete(*reader.Read(i));
        }
        EXPECT_EQ(reader.GetInformation().nbSeeks, 0u) << clip;
        EXPECT_EQ(reader.GetInformation().nbPackets, index->NbPackets()) << clip;
    }
}

TEST(GroupReader, ReadingBackwardSeeksOncePerGroupAndReadsEachPacketOnce) {
    for (const auto& clip : {Clips::OpenGroups(), Clips::ClosedGroups(), Clips::Transport()}) {
        const auto index = RecordingIndex::Build(clip);
        GroupReader reader(index);
        for (auto i = index->NbGroups(); i-- > 0;) {
            ExpectComplete(*reader.Read(i));
        }
        const auto information = reader.GetInformation();
        EXPECT_LE(information.nbSeeks, index->NbGroups() + 1) << clip;
        // One packet at most comes on top: the one that tells the reader which kind of seek a file wants.
        EXPECT_LE(information.nbPackets, index->NbPackets() + 1) << clip;
    }
}

TEST(GroupReader, AGroupReadLatelyIsNotReadAgain) {
    GroupReader reader(RecordingIndex::Build(Clips::ClosedGroups()), 2);
    const auto first = reader.Read(0);
    EXPECT_EQ(reader.AtHand(0), first);
    EXPECT_EQ(reader.Read(0), first);
    const auto second = reader.Read(1);
    EXPECT_EQ(reader.Read(0), first);
    const auto information = reader.GetInformation();
    EXPECT_EQ(information.nbReads, 2u);
    EXPECT_EQ(information.nbReused, 2u);
    EXPECT_EQ(information.nbPackets, 24u);
    EXPECT_EQ(information.nbBytesKept, first->ByteSize() + second->ByteSize());
}

TEST(GroupReader, TheGroupLongestUnusedGoesFirst) {
    GroupReader reader(RecordingIndex::Build(Clips::ClosedGroups()), 2);
    static_cast<void>(reader.Read(0));
    static_cast<void>(reader.Read(1));
    static_cast<void>(reader.Read(0));
    static_cast<void>(reader.Read(2));
    EXPECT_NE(reader.AtHand(0), nullptr);
    EXPECT_EQ(reader.AtHand(1), nullptr);
    EXPECT_NE(reader.AtHand(2), nullptr);
}

TEST(GroupReader, PacketsOfTwoGroupsAreHeldOnce) {
    const auto index = RecordingIndex::Build(Clips::OpenGroups());
    GroupReader reader(index);
    const auto first = reader.Read(0);
    const auto second = reader.Read(1);
    const auto shared = second->Layout().firstPacket;
    ASSERT_LT(shared, first->Layout().EndPacket());
    EXPECT_EQ(first->Packet(shared), second->Packet(shared));
}

// ---- Failures ---------------------------------------------------------------------------------------------

TEST(GroupReader, AFileThatWasCutOffDeliversWhatIsThereAndCountsTheRest) {
    const auto file = Clips::Scratch("cut-later.ts");
    Clips::WriteFile(file, Clips::ReadFile(Clips::Transport()));
    const auto index = RecordingIndex::Build(file);
    const auto first = index->Group(2).firstPacket;
    std::filesystem::resize_file(file, static_cast<std::uintmax_t>(index->Packet(first + 4).position));
    GroupReader reader(index);
    const auto group = reader.Read(2);
    EXPECT_EQ(group->NbMissing(), index->Group(2).nbPackets - 4);
    EXPECT_NE(group->Packet(first + 3), nullptr);
    EXPECT_EQ(group->Packet(first + 4), nullptr);
    EXPECT_EQ(reader.Read(4)->NbMissing(), index->Group(4).nbPackets);
    ExpectComplete(*reader.Read(1));
}

TEST(GroupReader, AGroupThatDoesNotExistIsRefused) {
    GroupReader reader(RecordingIndex::Build(Clips::Short()));
    EXPECT_THROW(static_cast<void>(reader.Read(1)), std::out_of_range);
}

TEST(GroupReader, AFileThatIsGoneIsAnErrorThatNamesIt) {
    const auto file = Clips::Scratch("gone.mp4");
    Clips::WriteFile(file, Clips::ReadFile(Clips::Short()));
    const auto index = RecordingIndex::Build(file);
    std::filesystem::remove(file);
    try {
        GroupReader reader(index);
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "\"" + file + "\": cannot be opened: no such file");
    }
}

TEST(GroupReader, AStopRequestMakesReadsFailUntilItIsTakenBack) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    GroupReader reader(index);
    reader.RequestStopAt(StopTime::Clock::now());
    EXPECT_THROW(static_cast<void>(reader.Read(3)), std::runtime_error);
    EXPECT_THROW(static_cast<void>(reader.Read(1)), std::runtime_error);
    reader.TakeBackStop();
    ExpectComplete(*reader.Read(3));
    ExpectComplete(*reader.Read(0));
}

TEST(PacketGroup, WantsAsManyPacketsAsTheRunHas) {
    const auto index = RecordingIndex::Build(Clips::Short());
    EXPECT_THROW(PacketGroup(index, 0, {}), std::invalid_argument);
    const PacketGroup group(index, 0, std::vector<PacketGroup::SharedPacket>(12));
    EXPECT_EQ(group.NbMissing(), 12u);
    EXPECT_EQ(group.ByteSize(), 0u);
}

}  // namespace
}  // namespace Tavrin::Playout
