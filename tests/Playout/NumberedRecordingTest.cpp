#include "Playout/NumberedRecording.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "Playout/StraightDecoder.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

NumberedRecording Open(const std::string& file) {
    return NumberedRecording(RecordingIndex::Build(file));
}

/// A picture of the recording, with a number that is not its own.
std::shared_ptr<const Picture> Mislabelled(const NumberedRecording& recording, std::size_t picture,
                                           std::size_t label) {
    std::shared_ptr<const Picture> found;
    StraightDecoder(recording.Index()).Run([&](const std::shared_ptr<const Picture>& decoded) {
        if (decoded->Number() == picture) {
            found = std::make_shared<const Picture>(label, decoded->Native(), false);
        }
        return found == nullptr;
    });
    return found;
}

TEST(NumberedRecording, IsReadByItsPixelsWhateverThePlayerCallsThem) {
    const auto recording = Open(Clips::Numbered());
    ASSERT_TRUE(recording.HasBarCode());
    const auto picture = Mislabelled(recording, 17, 18);
    EXPECT_TRUE(recording.Shows(*picture, 17));
    EXPECT_FALSE(recording.Shows(*picture, 18));
}

TEST(NumberedRecording, WithoutBarCodeIsReadByThePlayersNumber) {
    const auto recording = Open(Clips::ClosedGroups());
    ASSERT_FALSE(recording.HasBarCode());
    EXPECT_TRUE(recording.Shows(*Support::PlainPicture(5, 160, 120, 128), 5));
    EXPECT_FALSE(recording.Shows(*Support::PlainPicture(5, 160, 120, 128), 6));
}

TEST(NumberedRecording, PictureWithoutReadableBarCodeShowsNothing) {
    const auto recording = Open(Clips::Numbered());
    EXPECT_FALSE(recording.NumberOf(*Support::PlainPicture(0, 240, 180, 128)));
    EXPECT_FALSE(recording.Shows(*Support::PlainPicture(0, 240, 180, 128), 0));
}

TEST(NumberedRecording, DistanceTakesTheNearerWayRound) {
    const auto recording = Open(Clips::Numbered());
    EXPECT_EQ(recording.Distance(20, 17), 3);
    EXPECT_EQ(recording.Distance(17, 20), -3);
    EXPECT_EQ(recording.Distance(1, 65'535), 2);
    EXPECT_EQ(recording.Distance(65'535, 1), -2);
    EXPECT_EQ(recording.Distance(4, 65'540), 0);
}

TEST(NumberedRecording, RefusesRecordingOfWhichNothingCanBeDecoded) {
    const auto index = RecordingIndex::Build(Clips::Numbered());
    EXPECT_GT(NumberedRecording(index).PictureBytes(), 240U * 180U);
    EXPECT_THROW((void)Open(Clips::Garbage()), std::runtime_error);
}

}  // namespace
}  // namespace Tavrin::Playout
