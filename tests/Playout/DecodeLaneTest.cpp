#include "Playout/DecodeLane.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/GroupReader.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/FieldClip.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

/// A recording with a reader and the straight decode of it.
class Recording {
public:
    explicit Recording(const std::string& clip)
        : index(RecordingIndex::Build(clip)), oracle(index), reader_(index) {}

    std::shared_ptr<const PacketGroup> GroupOf(std::size_t picture) {
        return reader_.Read(index->Picture(picture).group);
    }

    std::size_t LongestGroup() const {
        std::size_t longest = 0;
        for (std::size_t i = 0; i < index->NbGroups(); ++i) {
            longest = std::max(longest, index->Group(i).nbPictures);
        }
        return longest;
    }

    /// All packets of all runs, those that two runs share counted twice.
    std::size_t NbPacketsOfRuns() const {
        std::size_t sum = 0;
        for (std::size_t i = 0; i < index->NbGroups(); ++i) {
            sum += index->Group(i).nbPackets;
        }
        return sum;
    }

    /// A lane whose store holds so many pictures.
    std::unique_ptr<DecodeLane> Lane(std::size_t nbStored, int nbThreads = 1) const {
        return std::make_unique<DecodeLane>(
            index, DecodeLaneOptions{std::max<std::size_t>(nbStored * oracle.pictureBytes, 1), nbThreads});
    }

    /// Decodes in that order and compares each picture with the straight decode.
    void ExpectSame(DecodeLane& lane, const std::vector<std::size_t>& order,
                    const DecodeManner& manner = {}) {
        for (const auto number : order) {
            const auto picture = lane.Decode(*GroupOf(number), number, manner);
            if (oracle.md5[number].empty()) {
                ASSERT_EQ(picture, nullptr) << "picture " << number;
                continue;
            }
            ASSERT_NE(picture, nullptr) << "picture " << number;
            ASSERT_EQ(picture->Number(), number);
            // What a decoder makes up for lost parts may come from whatever it decoded before.
            if (!picture->Damaged()) {
                ASSERT_EQ(picture->Md5(), oracle.md5[number]) << "picture " << number;
            }
        }
    }

    /// Decodes in that order as a player does that shows all pictures forward.
    void ExpectSameInARun(DecodeLane& lane, const std::vector<std::size_t>& order) {
        for (const auto number : order) {
            DecodeManner manner;
            const std::size_t next = index->Picture(number).group + 1;
            manner.following = next < index->NbGroups() ? reader_.Read(next) : nullptr;
            ExpectSame(lane, {number}, manner);
        }
    }

    std::shared_ptr<const RecordingIndex> index;
    Support::Oracle oracle;

private:
    GroupReader reader_;
};

// ---- The same pictures as a straight decode ---------------------------------------------------------------

/// The decoder's own threads are synchronised in a library that the thread sanitizer does not see into.
constexpr bool ThreadSanitizerRuns() {
#if defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
    return __has_feature(thread_sanitizer);
#else
    return false;
#endif
}

struct Material {
    const char* name;
    std::string (*clip)();
    const char* encoder = "";
};

class DecodeLaneOnEachClip : public testing::TestWithParam<Material> {
protected:
    void SetUp() override {
        if (*GetParam().encoder != '\0' && !Clips::HasEncoder(GetParam().encoder)) {
            GTEST_SKIP() << "the ffmpeg program has no encoder " << GetParam().encoder;
        }
    }

    /// With room for one picture, a quarter of a group, a group, a group and a half.
    static void ExpectSameWithEachBound(std::vector<std::size_t> (*order)(std::size_t nb)) {
        Recording recording(GetParam().clip());
        ASSERT_GT(recording.oracle.result.nbPictures, 0u);
        const auto group = recording.LongestGroup();
        for (const auto nbStored : {std::size_t{1}, (group + 3) / 4, group, group * 3 / 2}) {
            SCOPED_TRACE("room for " + std::to_string(nbStored) + " pictures");
            const auto lane = recording.Lane(nbStored);
            recording.ExpectSame(*lane, order(recording.index->NbPictures()));
            const auto bound = std::max<std::size_t>(nbStored, 1) * recording.oracle.pictureBytes;
            EXPECT_LE(lane->GetInformation().maxStoredBytes, bound);
        }
    }
};

TEST_P(DecodeLaneOnEachClip, PutsOutTheSamePicturesForward) {
    ExpectSameWithEachBound(Support::Forward);
}

TEST_P(DecodeLaneOnEachClip, PutsOutTheSamePicturesInARun) {
    Recording recording(GetParam().clip());
    for (const int nbThreads : {1, 3}) {
        if (nbThreads > 1 && ThreadSanitizerRuns()) {
            continue;
        }
        const auto lane = recording.Lane(1, nbThreads);
        recording.ExpectSameInARun(*lane, Support::Forward(recording.index->NbPictures()));
    }
}

TEST_P(DecodeLaneOnEachClip, PutsOutTheSamePicturesBackward) {
    ExpectSameWithEachBound(Support::Backward);
}

TEST_P(DecodeLaneOnEachClip, PutsOutTheSamePicturesInRandomOrder) {
    ExpectSameWithEachBound([](std::size_t nb) { return Support::Shuffled(nb, 4711); });
}

TEST_P(DecodeLaneOnEachClip, PutsOutTheSamePicturesWherePassesAreEndedEarly) {
    Recording recording(GetParam().clip());
    const auto lane = recording.Lane(1);
    DecodeManner last;
    last.last = true;
    bool ends = false;
    for (const auto number : Support::Shuffled(recording.index->NbPictures(), 815)) {
        ends = !ends;
        recording.ExpectSame(*lane, {number}, ends ? last : DecodeManner());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Clips, DecodeLaneOnEachClip,
    testing::Values(Material{"ClosedGroups", Clips::ClosedGroups}, Material{"OpenGroups", Clips::OpenGroups},
                    Material{"ShortLastGroup", Clips::ShortLastGroup},
                    Material{"SingleGroup", Clips::SingleGroup}, Material{"IntraOnly", Clips::IntraOnlyH264},
                    Material{"GradualRefresh", Clips::GradualRefresh}, Material{"EditList", Clips::EditList},
                    Material{"VariableRate", Clips::VariableRate}, Material{"Transport", Clips::Transport},
                    Material{"Mpeg2Interlaced", Clips::Mpeg2Interlaced},
                    Material{"Mpeg2Program", Clips::Mpeg2Program},
                    Material{"CutTransport", Clips::CutTransport}, Material{"MotionJpeg", Clips::MotionJpeg},
                    Material{"ProRes", Clips::ProRes}, Material{"BareH264", Clips::BareH264},
                    Material{"Hevc", Clips::HevcOpenGroups, "libx265"},
                    Material{"HevcClosed", Clips::HevcClosedGroups, "libx265"},
                    Material{"Vp9", Clips::Vp9, "libvpx-vp9"}, Material{"Damaged", Clips::Damaged},
                    Material{"Truncated", Clips::Truncated}, Material{"Fields", Clips::Fields}),
    [](const testing::TestParamInfo<Material>& material) { return std::string(material.param.name); });

TEST(DecodeLane, ADecoderWithThreadsPutsOutTheSamePictures) {
    if (ThreadSanitizerRuns()) {
        GTEST_SKIP() << "the thread sanitizer cannot judge threads of a library built without it";
    }
    Recording recording(Clips::OpenGroups());
    const auto lane = recording.Lane(recording.LongestGroup(), 3);
    recording.ExpectSame(*lane, Support::Backward(recording.index->NbPictures()));
}

TEST(DecodeLane, AStaleDecodeIsGivenUpAndTheLaneGoesOnFromThere) {
    Recording recording(Clips::LongGroups());
    const auto lane = recording.Lane(1);
    DecodeManner manner;
    manner.isStale = [](std::size_t latest) { return latest >= 5; };
    EXPECT_EQ(lane->Decode(*recording.GroupOf(20), 20, manner), nullptr);
    const auto before = lane->GetInformation();
    EXPECT_EQ(before.nbAbandoned, 1U);
    recording.ExpectSame(*lane, {21});
    EXPECT_EQ(lane->GetInformation().nbPasses, before.nbPasses) << "no new pass";
}

TEST(DecodeLane, APassThatHasPutOutNothingIsNotGivenUp) {
    Recording recording(Clips::LongGroups());
    const auto lane = recording.Lane(1);
    DecodeManner manner;
    manner.isStale = [](std::size_t) { return true; };
    EXPECT_EQ(lane->Decode(*recording.GroupOf(20), 20, manner), nullptr);
    EXPECT_GE(lane->GetInformation().nbStored, 1U);
}

TEST(DecodeLane, AGroupDoesNotDependOnWhatWasDecodedBefore) {
    Recording recording(Clips::OpenGroups());
    for (const std::size_t before : {0u, 17u, 30u, 59u}) {
        const auto lane = recording.Lane(1);
        for (const std::size_t number : {before, std::size_t{25}}) {
            const auto picture = lane->Decode(*recording.GroupOf(number), number);
            ASSERT_NE(picture, nullptr);
            EXPECT_EQ(picture->Md5(), recording.oracle.md5[number]);
        }
    }
}

// ---- Work done --------------------------------------------------------------------------------------------

TEST(DecodeLane, ForwardEachPacketOfARunIsDecodedOnceWhateverTheRoom) {
    for (const auto& clip : {Clips::ClosedGroups(), Clips::OpenGroups(), Clips::SingleGroup()}) {
        Recording recording(clip);
        for (const std::size_t nbStored : {1u, 3u, 100u}) {
            const auto lane = recording.Lane(nbStored);
            recording.ExpectSame(*lane, Support::Forward(recording.index->NbPictures()));
            EXPECT_EQ(lane->GetInformation().nbPasses, recording.index->NbGroups());
            EXPECT_LE(lane->GetInformation().nbPacketsDecoded, recording.NbPacketsOfRuns());
        }
    }
}

TEST(DecodeLane, InARunTheDecoderGoesOnFromGroupToGroup) {
    Recording recording(Clips::ClosedGroups());
    const auto lane = recording.Lane(1);
    recording.ExpectSameInARun(*lane, Support::Forward(recording.index->NbPictures()));
    EXPECT_EQ(lane->GetInformation().nbGoneOn, recording.index->NbGroups() - 1);
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, recording.index->NbPackets());
}

TEST(DecodeLane, AJumpToTheEndOfAGroupDoesNotWaitForTheNextOne) {
    Recording recording(Clips::LongGroups());
    const PictureGroup& group = recording.index->Group(0);
    const std::size_t last = group.EndPicture() - 1;
    // At once, and from within the group that is being played.
    for (const auto& order : {std::vector<std::size_t>{last}, {0, 1, 2, 3, 4, 5, 6, 7, last}}) {
        const auto lane = recording.Lane(1);
        recording.ExpectSameInARun(*lane, order);
        EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, group.nbPackets);
        EXPECT_EQ(lane->GetInformation().goesOnTo, std::nullopt);
    }
}

TEST(DecodeLane, WhatARunPassesOverAtAGroupsEndIsStored) {
    Recording recording(Clips::ClosedGroups());
    const auto lane = recording.Lane(4);
    const PictureGroup& group = recording.index->Group(0);
    const std::size_t end = group.EndPicture();
    recording.ExpectSameInARun(*lane, Support::Forward(end - 1));
    ASSERT_EQ(lane->GetInformation().goesOnTo, 1U);
    // Another worker was quicker with the picture after the last one.
    recording.ExpectSameInARun(*lane, {end});
    const auto nbDecoded = lane->GetInformation().nbPacketsDecoded;
    recording.ExpectSameInARun(*lane, {end - 1});
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, nbDecoded);
}

TEST(DecodeLane, AfterAnErrorEachGroupIsBegunAnew) {
    Recording recording(Clips::Damaged());
    const auto lane = recording.Lane(1);
    const std::size_t nb = recording.index->NbPictures();
    recording.ExpectSameInARun(*lane, Support::Forward(nb));
    ASSERT_GT(lane->GetInformation().nbErrors, 0U);
    const auto nbGoneOn = lane->GetInformation().nbGoneOn;
    recording.ExpectSameInARun(*lane, Support::Forward(nb));
    EXPECT_EQ(lane->GetInformation().nbGoneOn, nbGoneOn);
}

/// The group with each key frame telling the decoder to drop what it has not put out: in HEVC the second bit after the
/// two bytes in front of a slice.
std::shared_ptr<const PacketGroup> DropsWhatIsBefore(const PacketGroup& group) {
    const PictureGroup& layout = group.Layout();
    std::vector<PacketGroup::SharedPacket> packets;
    for (auto number = layout.firstPacket; number < layout.EndPacket(); ++number) {
        auto packet = std::shared_ptr<AVPacket>(av_packet_clone(group.Packet(number).get()),
                                                [](AVPacket* made) { av_packet_free(&made); });
        av_packet_make_writable(packet.get());
        constexpr std::ptrdiff_t kLength = 4;
        for (std::ptrdiff_t at = 0; at + kLength + 2 < packet->size;) {
            std::uint8_t* unit = packet->data + at;
            const int type = (unit[kLength] >> 1) & 0x3f;
            constexpr int kFirstKey = 16;
            constexpr int kLastKey = 23;
            if (type >= kFirstKey && type <= kLastKey) {
                unit[kLength + 2] |= 0x40;
            }
            at += kLength + ((std::ptrdiff_t{unit[0]} << 24) | (unit[1] << 16) | (unit[2] << 8) | unit[3]);
        }
        packets.push_back(std::move(packet));
    }
    return std::make_shared<const PacketGroup>(group.Index(), group.Number(), std::move(packets));
}

TEST(DecodeLane, NothingIsLostWhereKeyFramesDropWhatIsBefore) {
    if (!Clips::HasEncoder("libx265")) {
        GTEST_SKIP() << "the ffmpeg program has no encoder libx265";
    }
    Recording recording(Clips::HevcClosedGroups());
    ASSERT_GT(recording.index->NbGroups(), 2U);
    const auto lane = recording.Lane(1);
    GroupReader reader(recording.index);
    std::vector<std::shared_ptr<const PacketGroup>> groups;
    for (std::size_t group = 0; group < recording.index->NbGroups(); ++group) {
        groups.push_back(DropsWhatIsBefore(*reader.Read(group)));
    }
    groups.push_back(nullptr);
    for (std::size_t number = 0; number < recording.index->NbPictures(); ++number) {
        const std::size_t group = recording.index->Picture(number).group;
        DecodeManner manner;
        manner.following = groups.at(group + 1);
        const auto picture = lane->Decode(*groups.at(group), number, manner);
        ASSERT_NE(picture, nullptr) << "picture " << number;
        EXPECT_EQ(picture->Md5(), recording.oracle.md5[number]) << "picture " << number;
    }
    EXPECT_EQ(lane->GetInformation().nbGoneOn, 0U);
}

TEST(DecodeLane, BackwardEachPacketOfARunIsDecodedOnceWhenTheGroupHasRoom) {
    for (const auto& clip : {Clips::ClosedGroups(), Clips::OpenGroups(), Clips::SingleGroup()}) {
        Recording recording(clip);
        const auto lane = recording.Lane(recording.LongestGroup());
        recording.ExpectSame(*lane, Support::Backward(recording.index->NbPictures()));
        EXPECT_EQ(lane->GetInformation().nbPasses, recording.index->NbGroups());
        EXPECT_LE(lane->GetInformation().nbPacketsDecoded, recording.NbPacketsOfRuns());
    }
}

TEST(DecodeLane, ClosedGroupsAreDecodedBackwardWithEveryPacketExactlyOnce) {
    Recording recording(Clips::ClosedGroups());
    const auto lane = recording.Lane(recording.LongestGroup());
    recording.ExpectSame(*lane, Support::Backward(recording.index->NbPictures()));
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, recording.index->NbPackets());
}

TEST(DecodeLane, BackwardWithRoomForAPartEachPassHandsThatPartOut) {
    Recording recording(Clips::SingleGroup());
    const auto nb = recording.index->NbPictures();
    for (const std::size_t nbStored : {2u, 7u, 15u, 20u, 59u}) {
        const auto lane = recording.Lane(nbStored);
        recording.ExpectSame(*lane, Support::Backward(nb));
        const auto nbPasses = (nb + nbStored - 1) / nbStored;
        EXPECT_EQ(lane->GetInformation().nbPasses, nbPasses) << "room for " << nbStored;
        EXPECT_EQ(lane->GetInformation().nbStored, nbStored);
    }
}

TEST(DecodeLane, AStepBackInsideTheStoreDecodesNothing) {
    Recording recording(Clips::SingleGroup());
    const auto lane = recording.Lane(10);
    recording.ExpectSame(*lane, {30});
    const auto before = lane->GetInformation().nbPacketsDecoded;
    recording.ExpectSame(*lane, {29, 28, 27, 28, 29, 30, 21});
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, before);
}

TEST(DecodeLane, APictureFurtherOnInTheGroupIsReachedFromWhereTheDecoderStands) {
    Recording recording(Clips::SingleGroup());
    const auto lane = recording.Lane(1);
    recording.ExpectSame(*lane, {3, 20, 59});
    EXPECT_EQ(lane->GetInformation().nbPasses, 1u);
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, 60u);
}

TEST(DecodeLane, AnotherReadOfTheSameGroupGoesOnWhereTheFirstStood) {
    Recording recording(Clips::SingleGroup());
    const auto lane = recording.Lane(1);
    for (const std::size_t number : {5u, 6u, 7u}) {
        GroupReader reader(recording.index);
        ASSERT_NE(lane->Decode(*reader.Read(0), number), nullptr);
    }
    EXPECT_EQ(lane->GetInformation().nbPasses, 1u);
}

TEST(DecodeLane, ResetForgetsThePicturesAndThePlace) {
    Recording recording(Clips::SingleGroup());
    const auto lane = recording.Lane(10);
    recording.ExpectSame(*lane, {5});
    lane->Reset();
    EXPECT_EQ(lane->GetInformation().nbStored, 0u);
    EXPECT_EQ(lane->GetInformation().storedBytes, 0u);
    recording.ExpectSame(*lane, {5});
    EXPECT_EQ(lane->GetInformation().nbPasses, 2u);
}

// ---- Damage -----------------------------------------------------------------------------------------------

TEST(DecodeLane, APictureThatNeverComesIsAnsweredWithoutDecodingTheGroupAgain) {
    Recording recording(Clips::Damaged());
    ASSERT_TRUE(recording.oracle.md5[Clips::kDamagedPicture].empty()) << "the clip is not damaged enough";
    for (const auto nbStored : {std::size_t{1}, std::size_t{100}}) {
        const auto lane = recording.Lane(nbStored);
        const auto group = recording.GroupOf(Clips::kDamagedPicture);
        EXPECT_EQ(lane->Decode(*group, Clips::kDamagedPicture), nullptr);
        const auto after = lane->GetInformation().nbPacketsDecoded;
        EXPECT_EQ(lane->Decode(*group, Clips::kDamagedPicture), nullptr);
        EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, after);
    }
}

TEST(DecodeLane, BackwardPastAPictureThatNeverComesTheGroupIsDecodedOnce) {
    Recording recording(Clips::Damaged());
    const auto lane = recording.Lane(recording.LongestGroup());
    recording.ExpectSame(*lane, Support::Backward(recording.index->NbPictures()));
    EXPECT_EQ(lane->GetInformation().nbPasses, recording.index->NbGroups());
    EXPECT_EQ(lane->GetInformation().nbPacketsDecoded, recording.index->NbPackets());
}

TEST(DecodeLane, DecoderErrorsAreCountedWithTheLastText) {
    Recording recording(Clips::Damaged());
    const auto lane = recording.Lane(100);
    recording.ExpectSame(*lane, Support::Forward(recording.index->NbPictures()));
    EXPECT_EQ(lane->GetInformation().nbErrors, 1u);
    EXPECT_EQ(lane->GetInformation().lastError, "Invalid data found when processing input");
}

TEST(DecodeLane, DamageEndsWithItsGroup) {
    Recording recording(Clips::Damaged());
    const auto lane = recording.Lane(1);
    std::size_t nbDamaged = 0;
    for (std::size_t number = 0; number < recording.index->NbPictures(); ++number) {
        const auto picture = lane->Decode(*recording.GroupOf(number), number);
        const bool damaged = picture != nullptr && picture->Damaged();
        nbDamaged += damaged ? 1 : 0;
        if (recording.index->Picture(number).group !=
            recording.index->Picture(Clips::kDamagedPicture).group) {
            EXPECT_FALSE(damaged) << "picture " << number;
            EXPECT_FALSE(recording.oracle.damaged[number]) << "picture " << number;
        }
    }
    EXPECT_GT(nbDamaged, 0u);
}

TEST(DecodeLane, LeadingPicturesWithoutTheirReferencesAreNoErrors) {
    for (const auto& clip : {Clips::OpenGroups(), Clips::Mpeg2Interlaced()}) {
        Recording recording(clip);
        const auto lane = recording.Lane(1);
        recording.ExpectSame(*lane, Support::Backward(recording.index->NbPictures()));
        EXPECT_EQ(lane->GetInformation().nbErrors, 0u) << clip;
    }
}

TEST(DecodeLane, MissingPacketsLeaveTheirPicturesOutAndDamageWhatNeedsThem) {
    Recording recording(Clips::ClosedGroups());
    const auto whole = recording.GroupOf(12);
    const auto& layout = whole->Layout();
    std::vector<PacketGroup::SharedPacket> packets;
    for (auto number = layout.firstPacket; number < layout.EndPacket(); ++number) {
        packets.push_back(number < layout.firstPacket + 6 ? whole->Packet(number) : nullptr);
    }
    const PacketGroup part(recording.index, whole->Number(), packets);
    EXPECT_EQ(part.NbMissing(), 6u);
    const auto lane = recording.Lane(100);
    std::size_t nbThere = 0;
    for (auto number = layout.firstPicture; number < layout.EndPicture(); ++number) {
        const auto picture = lane->Decode(part, number);
        const bool read = recording.index->Picture(number).packet < layout.firstPacket + 6;
        ASSERT_EQ(picture != nullptr, read) << "picture " << number;
        nbThere += read ? 1 : 0;
    }
    EXPECT_EQ(nbThere, 6u);
    EXPECT_EQ(lane->GetInformation().nbPasses, 1u);
    // Read again, this time as a whole, everything is there.
    recording.ExpectSame(*lane, {layout.EndPicture() - 1});
}

// ---- Misuse -----------------------------------------------------------------------------------------------

TEST(DecodeLane, APictureOfAnotherGroupIsRefused) {
    Recording recording(Clips::ClosedGroups());
    const auto lane = recording.Lane(1);
    EXPECT_THROW(static_cast<void>(lane->Decode(*recording.GroupOf(0), 12)), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(lane->Decode(*recording.GroupOf(12), 11)), std::invalid_argument);
}

TEST(DecodeLane, AGroupOfAnotherRecordingIsRefused) {
    Recording recording(Clips::ClosedGroups());
    Recording other(Clips::OpenGroups());
    const auto lane = recording.Lane(1);
    EXPECT_THROW(static_cast<void>(lane->Decode(*other.GroupOf(0), 0)), std::invalid_argument);
}

}  // namespace
}  // namespace Tavrin::Playout
