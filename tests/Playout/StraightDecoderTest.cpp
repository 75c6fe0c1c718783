#include "Playout/StraightDecoder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

class StraightDecoderOnEachClip : public testing::TestWithParam<std::string (*)()> {};

TEST_P(StraightDecoderOnEachClip, PutsOutThePicturesThatTheProgramPutsOut) {
    const auto index = RecordingIndex::Build(GetParam()());
    std::vector<std::string> sums;
    StraightDecoder(index).Run([&](const std::shared_ptr<const Picture>& picture) {
        EXPECT_EQ(picture->Number(), sums.size());
        sums.push_back(picture->Md5());
        return true;
    });
    EXPECT_EQ(sums.size(), index->NbPictures());
    EXPECT_EQ(sums, Clips::SumsOfTheProgram(GetParam()()));
}

INSTANTIATE_TEST_SUITE_P(Clips, StraightDecoderOnEachClip,
                         testing::Values(Clips::ClosedGroups, Clips::OpenGroups, Clips::EditList,
                                         Clips::Mpeg2Interlaced, Clips::MotionJpeg, Clips::ProRes,
                                         Clips::CutTransport, Clips::BareH264));

TEST(StraightDecoder, EndsWhenTheCallbackHasEnough) {
    std::size_t nb = 0;
    const auto result = StraightDecoder(RecordingIndex::Build(Clips::ClosedGroups()))
                            .Run([&](const std::shared_ptr<const Picture>&) { return ++nb < 5; });
    EXPECT_EQ(nb, 5u);
    EXPECT_EQ(result.nbPictures, 5u);
}

TEST(StraightDecoder, CountsErrorsAndGoesOn) {
    std::vector<bool> there(Clips::kNbPictures);
    const auto result = StraightDecoder(RecordingIndex::Build(Clips::Damaged()))
                            .Run([&](const std::shared_ptr<const Picture>& picture) {
                                there.at(picture->Number()) = true;
                                return true;
                            });
    EXPECT_EQ(result.nbErrors, 1u);
    EXPECT_EQ(result.lastError, "Invalid data found when processing input");
    EXPECT_FALSE(there[Clips::kDamagedPicture]);
    EXPECT_TRUE(there[Clips::kNbPictures - 1]);
    EXPECT_EQ(result.nbPictures, Clips::kNbPictures - 1);
}

TEST(StraightDecoder, MarksPicturesShownBeforeTheDamagedOneThatTheyArePredictedFrom) {
    const auto index = RecordingIndex::Build(Clips::Damaged());
    const auto damagedPacket = index->Picture(Clips::kDamagedPicture).packet;
    std::size_t nbBefore = 0;
    StraightDecoder(index).Run([&](const std::shared_ptr<const Picture>& picture) {
        const auto& indexed = index->Picture(picture->Number());
        const bool sameGroup = indexed.group == index->Picture(Clips::kDamagedPicture).group;
        EXPECT_EQ(picture->Damaged(), sameGroup && indexed.packet > damagedPacket)
            << "picture " << picture->Number();
        nbBefore += picture->Damaged() && picture->Number() < Clips::kDamagedPicture ? 1 : 0;
        return true;
    });
    EXPECT_GT(nbBefore, 0u) << "no picture of the clip shows the rule";
}

TEST(StraightDecoder, PlaysWhatATruncatedFileHas) {
    const auto index = RecordingIndex::Build(Clips::Truncated());
    const auto result =
        StraightDecoder(index).Run([](const std::shared_ptr<const Picture>&) { return true; });
    EXPECT_GE(result.nbPictures + 1, index->NbPictures());
}

}  // namespace
}  // namespace Tavrin::Playout
