#include "Playout/StandInChoice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

using std::chrono::milliseconds;

class Choice : public testing::Test {
protected:
    StandInChoice::PicturePointer Drag(const StandInChoice::PicturePointer& nearest, int atMilliseconds) {
        return Choose(nearest, true, atMilliseconds);
    }

    StandInChoice::PicturePointer Choose(const StandInChoice::PicturePointer& nearest, bool dragged,
                                         int atMilliseconds) {
        return choice_.Choose(
            nearest, dragged, [this] { return newest_; }, begin_ + milliseconds(atMilliseconds));
    }

    StandInChoice choice_;
    StandInChoice::Clock::time_point begin_ = StandInChoice::Clock::now();
    StandInChoice::PicturePointer one_ = Support::PlainPicture(1, 16, 16, 0);
    StandInChoice::PicturePointer other_ = Support::PlainPicture(2, 16, 16, 0);
    StandInChoice::PicturePointer newest_ = Support::PlainPicture(3, 16, 16, 0);
};

TEST_F(Choice, IsTheNearest) {
    EXPECT_EQ(Drag(one_, 0), one_);
    EXPECT_EQ(Drag(other_, 10), other_);
}

TEST_F(Choice, IsNoneWhereThereIsNone) {
    EXPECT_EQ(Drag(nullptr, 0), nullptr);
    EXPECT_EQ(Drag(nullptr, 1000), nullptr);
}

TEST_F(Choice, AHandThatSeesTheSameForTooLongSeesTheNewest) {
    EXPECT_EQ(Drag(one_, 0), one_);
    EXPECT_EQ(Drag(one_, 40), one_);
    EXPECT_EQ(Drag(one_, 60), newest_);
    EXPECT_EQ(Drag(other_, 70), other_) << "another one is nearest";
    EXPECT_EQ(Drag(other_, 110), other_);
}

TEST_F(Choice, KeepsTheNearestWhereNothingNewerIsThere) {
    newest_ = nullptr;
    EXPECT_EQ(Drag(one_, 0), one_);
    EXPECT_EQ(Drag(one_, 1000), one_);
}

TEST_F(Choice, WithoutAHandTheNearestStays) {
    EXPECT_EQ(Choose(one_, false, 0), one_);
    EXPECT_EQ(Choose(one_, false, 1000), one_);
}

TEST_F(Choice, OnceForgottenTheTimeBeginsAgain) {
    EXPECT_EQ(Drag(one_, 0), one_);
    choice_.Forget();
    EXPECT_EQ(Drag(one_, 100), one_);
    EXPECT_EQ(Drag(one_, 151), newest_);
}

}  // namespace
}  // namespace Tavrin::Playout
