#include "Playout/StampCompletion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace Tavrin::Playout {
namespace {

constexpr auto kNone = CodedPacket::kNone;

struct Stamps {
    std::int64_t pts;
    std::int64_t dts;
};

std::vector<CodedPacket> Packets(const std::vector<Stamps>& stamps) {
    std::vector<CodedPacket> packets;
    for (const auto& [pts, dts] : stamps) {
        CodedPacket packet;
        packet.pts = pts;
        packet.dts = dts;
        packet.duration = 2;
        packets.push_back(packet);
    }
    return packets;
}

std::vector<std::int64_t> Presentation(const std::vector<CodedPacket>& packets) {
    std::vector<std::int64_t> stamps;
    for (const auto& packet : packets) {
        stamps.push_back(packet.pts);
    }
    return stamps;
}

TEST(StampCompletion, CompleteStampsStayAsTheyAre) {
    auto packets = Packets({{4, 0}, {2, 1}, {3, 2}});
    EXPECT_TRUE(CompleteStamps(packets, {{0, 9}, {0, 5}, {0, 1}}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{4, 2, 3}));
}

TEST(StampCompletion, TheCodecsNumbersGiveTheOrderAndDecodingTheTimes) {
    auto packets = Packets({{kNone, 0}, {kNone, 10}, {kNone, 20}, {kNone, 30}});
    EXPECT_TRUE(CompleteStamps(packets, {{0, 0}, {0, 6}, {0, 2}, {0, 4}}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{0, 30, 10, 20}));
}

TEST(StampCompletion, NumbersBeginAnewInEachSequence) {
    auto packets = Packets({{kNone, 0}, {kNone, 1}, {kNone, 2}, {kNone, 3}});
    EXPECT_TRUE(CompleteStamps(packets, {{0, 0}, {0, 2}, {1, 0}, {1, 2}}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{0, 1, 2, 3}));
}

TEST(StampCompletion, WithoutAnyStampsTimesAreEqualSteps) {
    auto packets = Packets({{kNone, kNone}, {kNone, kNone}, {kNone, kNone}});
    EXPECT_TRUE(CompleteStamps(packets, {{0, 0}, {0, 4}, {0, 2}}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{0, 4, 2}));
}

TEST(StampCompletion, ASecondFieldIsShownWithTheFirst) {
    auto packets = Packets({{kNone, 0}, {kNone, 1}, {kNone, 2}, {kNone, 3}});
    packets[1].secondField = packets[3].secondField = true;
    EXPECT_TRUE(CompleteStamps(packets, {{0, 0}, {0, 0}, {0, 2}, {0, 2}}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{0, 0, 2, 2}));
}

TEST(StampCompletion, WithoutReorderingDecodingIsDisplay) {
    auto packets = Packets({{kNone, 0}, {5, 5}, {kNone, 7}});
    EXPECT_TRUE(CompleteStamps(packets, {}, false));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{0, 5, 7}));
}

TEST(StampCompletion, APictureThatOthersNeedIsShownWhenTheNextSuchIsDecoded) {
    // I P B B P B B, where the demuxer knew the stamps of the B-frames alone.
    auto packets = Packets({{kNone, 0}, {kNone, 2}, {4, 4}, {6, 6}, {kNone, 8}, {10, 10}, {12, 12}});
    EXPECT_TRUE(CompleteStamps(packets, {}, true));
    EXPECT_EQ(Presentation(packets), (std::vector<std::int64_t>{2, 8, 4, 6, 14, 10, 12}));
}

TEST(StampCompletion, WhatCannotBeToldIsRefused) {
    auto packets = Packets({{kNone, kNone}, {3, 3}});
    EXPECT_FALSE(CompleteStamps(packets, {}, false));
}

}  // namespace
}  // namespace Tavrin::Playout
