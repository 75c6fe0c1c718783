// Interlaced recordings shown field by field: each field of the clips carries its own number in its pixels.

#include "Playout/FieldOrder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Playout/BarCode.h"
#include "Playout/FieldPicture.h"
#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

constexpr int kNbFields = 60;

std::shared_ptr<const RecordingIndex> TopFirst() {
    return RecordingIndex::Build(Clips::NumberedFields());
}

std::shared_ptr<const RecordingIndex> BottomFirst() {
    return RecordingIndex::Build(Clips::NumberedFieldsBottomFirst());
}

TimePoint Milliseconds(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

/// The time point that an order for the sample that begins then yields.
TimePoint Yielded(const FieldOrder& fields, const TimePoint& tp) {
    Player::DecodeOrder order;
    fields.Aim(order, tp);
    TimePoint yielded;
    TimePoint duration;
    order.GenerateTimePointAndDuration(yielded, duration);
    EXPECT_EQ(duration, Milliseconds(20));
    return yielded;
}

TEST(FieldOrder, IsByFieldsWhereTheDisplayShowsThemAllOrItIsAskedFor) {
    const auto interlaced = TopFirst();
    const SampleRate pictures(25, 1);
    const SampleRate fields(50, 1);
    EXPECT_EQ(FieldOrder(interlaced, fields, FieldOutput::Automatic).Rate(), fields);
    EXPECT_EQ(FieldOrder(interlaced, pictures, FieldOutput::Automatic).Rate(), pictures);
    EXPECT_EQ(FieldOrder(interlaced, SampleRate(49, 1), FieldOutput::Automatic).Rate(), pictures);
    EXPECT_EQ(FieldOrder(interlaced, pictures, FieldOutput::Fields).Rate(), fields);
    EXPECT_EQ(FieldOrder(interlaced, fields, FieldOutput::Frames).Rate(), pictures);
}

TEST(FieldOrder, WhatIsNotInterlacedHasNoFields) {
    const auto progressive = RecordingIndex::Build(Clips::Short());
    const FieldOrder fields(progressive, SampleRate(50, 1), FieldOutput::Fields);
    EXPECT_FALSE(fields.IsByFields());
    EXPECT_EQ(fields.Rate(), progressive->Rate());
    EXPECT_EQ(fields.FieldAt(Milliseconds(60)), PictureField::Frame);
}

TEST(FieldOrder, FieldsAlternateInTheOrderOfTheRecording) {
    const FieldOrder top(TopFirst(), SampleRate(50, 1), FieldOutput::Fields);
    EXPECT_EQ(top.FieldAt(Milliseconds(0)), PictureField::Top);
    EXPECT_EQ(top.FieldAt(Milliseconds(20)), PictureField::Bottom);
    EXPECT_EQ(top.FieldAt(Milliseconds(40)), PictureField::Top);
    const FieldOrder bottom(BottomFirst(), SampleRate(50, 1), FieldOutput::Fields);
    EXPECT_EQ(bottom.FieldAt(Milliseconds(0)), PictureField::Bottom);
    EXPECT_EQ(bottom.FieldAt(Milliseconds(20)), PictureField::Top);
}

TEST(FieldOrder, OrdersYieldTheTimeOfTheirFieldWhicheverComesFirst) {
    for (const auto& recording : {TopFirst(), BottomFirst()}) {
        const FieldOrder fields(recording, SampleRate(50, 1), FieldOutput::Fields);
        for (std::int64_t field = 0; field < kNbFields; ++field) {
            EXPECT_EQ(Yielded(fields, Milliseconds(20 * field)), Milliseconds(20 * field));
        }
    }
}

TEST(FieldOrder, StepsCountFieldsOfPicturesThatStayLonger) {
    const auto recording = TopFirst();
    const FieldOrder fields(recording, SampleRate(50, 1), FieldOutput::Fields);
    EXPECT_EQ(fields.SampleFurther(Milliseconds(50), 1), 3);
    EXPECT_EQ(fields.SampleFurther(Milliseconds(50), -3), -1);
    EXPECT_EQ(fields.SampleFurther(Milliseconds(20), 58), 59);
    EXPECT_EQ(fields.SampleFurther(Milliseconds(20), 60), 61);
}

/// A field as its own bar code numbers it; nothing when the picture does not show that field alone.
std::optional<std::uint32_t> NumberOf(const ShownTick& shown) {
    const PictureField field = shown.FieldOf(0);
    const auto number = ReadBarCode(*shown.pictures.front(), field);
    // What is drawn for people must show it too, also in the lines that are made up.
    const auto drawn = ReadBarCode(*FieldPicture(shown.pictures.front(), field));
    return number == drawn ? number : std::nullopt;
}

using Numbers = std::vector<std::optional<std::uint32_t>>;

class FieldPlay : public testing::TestWithParam<bool> {
protected:
    Numbers Play(const PlaybackOptions& options, ICommandSource* commands = nullptr) {
        Numbers numbers;
        Playback(session_, options)
            .Run(
                [&](const ShownTick& shown, const TickReport&) {
                    numbers.push_back(NumberOf(shown));
                    return true;
                },
                nullptr, commands);
        return numbers;
    }

    Numbers PlayAt(const Ratio& speed) {
        PlaybackOptions options;
        options.speed = speed;
        return Play(options);
    }

    static SessionOptions ByFields() {
        SessionOptions options;
        options.fields = FieldOutput::Fields;
        return options;
    }

    Session session_{{GetParam() ? TopFirst() : BottomFirst()}, ByFields()};
};

/// Each number so many times.
Numbers Counted(std::int64_t from, std::int64_t step, std::size_t nb, std::size_t nbTimes = 1) {
    Numbers numbers;
    for (std::size_t i = 0; i < nb * nbTimes; ++i) {
        numbers.emplace_back(
            static_cast<std::uint32_t>(from + step * static_cast<std::int64_t>(i / nbTimes)));
    }
    return numbers;
}

TEST_P(FieldPlay, TheDisplayShowsFields) {
    EXPECT_EQ(session_.DisplayRate(), SampleRate(50, 1));
}

TEST_P(FieldPlay, ForwardEveryFieldIsShown) {
    EXPECT_EQ(PlayAt(Ratio(1, 1)), Counted(0, 1, kNbFields));
}

TEST_P(FieldPlay, BackwardEveryFieldIsShown) {
    EXPECT_EQ(PlayAt(Ratio(-1, 1)), Counted(kNbFields - 1, -1, kNbFields));
}

TEST_P(FieldPlay, AtHalfTheSpeedEachFieldIsShownTwice) {
    EXPECT_EQ(PlayAt(Ratio(1, 2)), Counted(0, 1, kNbFields, 2));
    EXPECT_EQ(PlayAt(Ratio(-1, 2)), Counted(kNbFields - 1, -1, kNbFields, 2));
}

TEST_P(FieldPlay, AtTwiceTheSpeedTheFirstFieldsAreShown) {
    EXPECT_EQ(PlayAt(Ratio(2, 1)), Counted(0, 2, kNbFields / 2));
    EXPECT_EQ(PlayAt(Ratio(-2, 1)), Counted(kNbFields - 2, -2, kNbFields / 2));
}

/// One command a tick.
class CommandEachTick final : public ICommandSource {
public:
    explicit CommandEachTick(std::vector<PlayCommand> commands) : commands_(std::move(commands)) {}

    std::vector<PlayCommand> Take(const TimePoint& at) override {
        const bool isFirst = at == TimePoint();
        return isFirst || !IsOpen() ? std::vector<PlayCommand>() : std::vector{commands_[next_++]};
    }
    [[nodiscard]] bool IsOpen() const override { return next_ < commands_.size(); }

private:
    std::vector<PlayCommand> commands_;
    std::size_t next_ = 0;
};

TEST_P(FieldPlay, StepsMoveByOneField) {
    PlaybackOptions options;
    options.speed = Ratio();
    options.from = Milliseconds(500);
    CommandEachTick commands(
        {StepBy{1}, StepBy{1}, StepBy{1}, StepBy{-1}, StepBy{-1}, StepBy{-1}, StepBy{-1}});
    EXPECT_EQ(Play(options, &commands), (Numbers{25U, 26U, 27U, 28U, 27U, 26U, 25U, 24U}));
}

TEST_P(FieldPlay, JumpsLeadToTheFieldOnDisplayThen) {
    PlaybackOptions options;
    options.speed = Ratio();
    CommandEachTick commands({JumpTo{Milliseconds(1190)}, JumpTo{Milliseconds(10)}, JumpTo{Milliseconds(730)},
                              JumpTo{Milliseconds(719)}});
    EXPECT_EQ(Play(options, &commands), (Numbers{0U, 59U, 0U, 36U, 35U}));
}

TEST_P(FieldPlay, TurnsSkipNoField) {
    PlaybackOptions options;
    options.speed = Ratio(1, 1);
    options.from = Milliseconds(400);
    CommandEachTick commands({SetSpeed{Ratio(1, 1)}, SetSpeed{Ratio(-1, 1)}, SetSpeed{Ratio(-1, 1)},
                              SetSpeed{Ratio(1, 1)}, Quit{}});
    EXPECT_EQ(Play(options, &commands), (Numbers{20U, 21U, 20U, 19U, 20U}));
}

TEST_P(FieldPlay, BothFieldsOfAPictureAreDecodedOnce) {
    PlayAt(Ratio(1, 1));
    EXPECT_EQ(session_.GetInformation(0).decoding.nbPacketsDecoded, kNbFields / 2U);
}

INSTANTIATE_TEST_SUITE_P(Order, FieldPlay, testing::Bool(),
                         [](const auto& order) { return order.param ? "TopFirst" : "BottomFirst"; });

TEST(FieldPlay, BesideARecordingWithAsManyPicturesFieldsAreShownUnasked) {
    Session session({TopFirst(), RecordingIndex::Build(Clips::Short())}, [] {
        SessionOptions options;
        options.displayRate = SampleRate(50, 1);
        return options;
    }());
    Numbers numbers;
    Playback(session, PlaybackOptions()).Run([&](const ShownTick& shown, const TickReport&) {
        EXPECT_EQ(shown.FieldOf(1), PictureField::Frame);
        numbers.push_back(NumberOf(shown));
        return true;
    });
    EXPECT_EQ(numbers, Counted(0, 1, kNbFields));
}

TEST(FieldPlay, AtTheRateOfPicturesWholeOnesAreShown) {
    Session session({TopFirst()});
    EXPECT_EQ(session.DisplayRate(), SampleRate(25, 1));
    EXPECT_EQ(session.Tick(TimePoint()).tracks.at(0).field, PictureField::Frame);
    EXPECT_FALSE(session.Samples(0).IsByFields());
}

}  // namespace
}  // namespace Tavrin::Playout
