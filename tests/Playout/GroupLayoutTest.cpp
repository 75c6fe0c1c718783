#include "Playout/GroupLayout.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace Tavrin::Playout {
namespace {

/// Packets in decoding order from a text such as "I0 P3 B1 B2": the type and the time of display. I is an
/// entry; a lower-case letter is hidden; + is the second field of the packet before.
std::vector<CodedPacket> Packets(const std::string& text) {
    std::vector<CodedPacket> packets;
    std::size_t at = 0;
    while (at < text.size()) {
        const auto end = std::min(text.find(' ', at), text.size());
        CodedPacket packet;
        packet.key = packet.entry = text[at] == 'I' || text[at] == 'i';
        packet.hidden = text[at] >= 'a' && text[at] <= 'z';
        packet.secondField = text[at] == '+';
        packet.pts = std::stoll(text.substr(at + 1, end - at - 1));
        packet.size = 10;
        packets.push_back(packet);
        at = end + 1;
    }
    return packets;
}

void ExpectGroup(const PictureGroup& group, std::size_t firstPicture, std::size_t nbPictures,
                 std::size_t firstPacket, std::size_t nbPackets) {
    EXPECT_EQ(group.firstPicture, firstPicture);
    EXPECT_EQ(group.nbPictures, nbPictures);
    EXPECT_EQ(group.firstPacket, firstPacket);
    EXPECT_EQ(group.nbPackets, nbPackets);
}

TEST(GroupLayout, ClosedGroupsDoNotOverlap) {
    const auto layout = LayOutGroups(Packets("I0 P3 B1 B2 I4 P7 B5 B6"));
    EXPECT_EQ(layout.packetOfPicture, (std::vector<std::size_t>{0, 2, 3, 1, 4, 6, 7, 5}));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 4, 0, 4);
    ExpectGroup(layout.groups[1], 4, 4, 4, 4);
    EXPECT_EQ(layout.groups[0].nbBytes, 40);
}

TEST(GroupLayout, AnOpenGroupTakesTheNextKeyFrameAndItsLeadingPicturesIn) {
    const auto layout = LayOutGroups(Packets("I0 P3 B1 B2 I6 B4 B5 P9 B7 B8"));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 6, 0, 7);
    ExpectGroup(layout.groups[1], 6, 4, 4, 6);
}

TEST(GroupLayout, LeadingPicturesOfTheFirstKeyFrameBelongToTheFirstGroup) {
    const auto layout = LayOutGroups(Packets("I2 B0 B1 P5 B3 B4 I6"));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 6, 0, 6);
}

TEST(GroupLayout, WithoutAnyKeyFrameThereIsOneGroup) {
    const auto layout = LayOutGroups(Packets("P0 P1 P2"));
    ASSERT_EQ(layout.groups.size(), 1u);
    ExpectGroup(layout.groups[0], 0, 3, 0, 3);
}

TEST(GroupLayout, PacketsBeforeTheFirstKeyFrameAreAGroupOfTheirOwn) {
    const auto layout = LayOutGroups(Packets("P0 P1 I2 P3"));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 2, 0, 2);
    ExpectGroup(layout.groups[1], 2, 2, 2, 2);
}

TEST(GroupLayout, AKeyFrameThatAnEarlierPictureIsShownAfterBeginsNoGroup) {
    // Picture 5 is decoded before the key frame 4 and shown after it: no group from there has it.
    const auto layout = LayOutGroups(Packets("I0 P5 I4 P6 I7"));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 4, 0, 4);
    ExpectGroup(layout.groups[1], 4, 1, 4, 1);
}

TEST(GroupLayout, HiddenPacketsAreReadAndNotShown) {
    const auto layout = LayOutGroups(Packets("i0 p1 P2 P3 I4"));
    EXPECT_EQ(layout.packetOfPicture, (std::vector<std::size_t>{2, 3, 4}));
    EXPECT_EQ(layout.pictureOfPacket[0], std::nullopt);
    EXPECT_EQ(layout.pictureOfPacket[2], 0u);
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 2, 0, 4);
}

TEST(GroupLayout, AGroupWithoutShownPicturesIsLeftOut) {
    const auto layout = LayOutGroups(Packets("i0 p1 I2 P3"));
    ASSERT_EQ(layout.groups.size(), 1u);
    ExpectGroup(layout.groups[0], 0, 2, 2, 2);
}

TEST(GroupLayout, AHiddenKeyFrameStillBeginsAGroup) {
    const auto layout = LayOutGroups(Packets("I0 P1 i2 P3 P4"));
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[1], 2, 2, 2, 3);
}

TEST(GroupLayout, TwoFieldsAreOnePicture) {
    const auto layout = LayOutGroups(Packets("I0 +0 P1 +1 I2 +2"));
    EXPECT_EQ(layout.packetOfPicture, (std::vector<std::size_t>{0, 2, 4}));
    EXPECT_EQ(layout.pictureOfPacket[1], std::nullopt);
    ASSERT_EQ(layout.groups.size(), 2u);
    ExpectGroup(layout.groups[0], 0, 2, 0, 4);
    ExpectGroup(layout.groups[1], 2, 1, 4, 2);
}

TEST(GroupLayout, PicturesOfOneTimeStampKeepTheOrderOfDecoding) {
    const auto layout = LayOutGroups(Packets("I0 P1 P1 P2"));
    EXPECT_EQ(layout.packetOfPicture, (std::vector<std::size_t>{0, 1, 2, 3}));
}

TEST(GroupLayout, NoPacketsAreNoGroups) {
    EXPECT_TRUE(LayOutGroups({}).groups.empty());
}

TEST(GroupLayout, TheReorderDepthIsTheMostPicturesDecodedBeforeAndShownAfter) {
    EXPECT_EQ(LayOutGroups(Packets("I0 P1 P2")).reorderDepth, 0);
    EXPECT_EQ(LayOutGroups(Packets("I0 P2 B1 P4 B3")).reorderDepth, 1);
    EXPECT_EQ(LayOutGroups(Packets("I0 P4 B2 B1 B3")).reorderDepth, 2);
    EXPECT_EQ(LayOutGroups(Packets("I0 P8 B4 B2 B1 B3 B6 B5 B7")).reorderDepth, 3);
}

TEST(GroupLayout, EveryPictureOfAnyOrderIsInOneGroupWhoseRunHasItsPacket) {
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        std::vector<CodedPacket> packets(40);
        for (std::size_t i = 0; i < packets.size(); ++i) {
            packets[i].pts = static_cast<std::int64_t>(i * 10) + static_cast<std::int64_t>(random() % 60);
            packets[i].entry = random() % 6 == 0;
            packets[i].hidden = random() % 8 == 0;
        }
        const auto layout = LayOutGroups(packets);
        std::size_t next = 0;
        for (std::size_t g = 0; g < layout.groups.size(); ++g) {
            const auto& group = layout.groups[g];
            ASSERT_EQ(group.firstPicture, next);
            ASSERT_GT(group.nbPictures, 0u);
            for (auto picture = group.firstPicture; picture < group.EndPicture(); ++picture) {
                ASSERT_EQ(layout.groupOfPicture[picture], g);
                ASSERT_GE(layout.packetOfPicture[picture], group.firstPacket);
                ASSERT_LT(layout.packetOfPicture[picture], group.EndPacket());
            }
            next = group.EndPicture();
        }
        ASSERT_EQ(next, layout.packetOfPicture.size());
    }
}

}  // namespace
}  // namespace Tavrin::Playout
