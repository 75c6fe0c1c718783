#include "Player/DecodeOrder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::Ns;
using Testing::SampleCensus;
using Testing::StartOf;
using Time::TimePoint;

struct Span {
    TimePoint tp_;
    TimePoint duration_;
};

Span SpanOf(const DecodeOrder& order) {
    Span span;
    order.GenerateTimePointAndDuration(span.tp_, span.duration_);
    return span;
}

DecodeOrder Interlaced(const TimePoint& tp, const SampleRate& fieldRate, bool top) {
    DecodeOrder order;
    order.orderTp_ = tp;
    order.isInterlace_ = true;
    order.decodeTopField_ = top;
    order.fieldSampleRate_ = fieldRate;
    return order;
}

TEST(DecodeOrder, DefaultsDescribeAProgressiveOrderForNothing) {
    const DecodeOrder order;
    EXPECT_EQ(order.toDecode_, nullptr);
    EXPECT_EQ(order.orderTp_, TimePoint());
    EXPECT_EQ(order.queue_, nullptr);
    EXPECT_TRUE(order.decodeTopField_);
    EXPECT_FALSE(order.isInterlace_);
    EXPECT_EQ(order.fieldSampleRate_, SampleRate());
    EXPECT_EQ(order.width_, 0);
    EXPECT_EQ(order.height_, 0);
    EXPECT_TRUE(std::has_virtual_destructor_v<DecodeOrder>);
}

TEST(DecodeOrder, CopyAndAssignmentTakeEveryField) {
    SampleCensus census;
    CacheUpdateQueue queue;
    DecodeOrder original = Interlaced(Ms(40), {60000, 1001}, false);
    original.toDecode_ = census.Make();
    original.queue_ = &queue;
    original.width_ = 1920;
    original.height_ = -1080;
    const DecodeOrder copied(original);
    DecodeOrder assigned;
    assigned = original;
    for (const DecodeOrder& order : {copied, assigned}) {
        EXPECT_EQ(order.toDecode_, original.toDecode_);
        EXPECT_EQ(order.orderTp_, Ms(40));
        EXPECT_EQ(order.queue_, &queue);
        EXPECT_FALSE(order.decodeTopField_);
        EXPECT_TRUE(order.isInterlace_);
        EXPECT_EQ(order.fieldSampleRate_, SampleRate(60000, 1001));
        EXPECT_EQ(order.width_, 1920);
        EXPECT_EQ(order.height_, -1080);
    }
}

TEST(DecodeOrder, DestroyingOneLeavesTheCompressedSampleAlone) {
    SampleCensus census;
    Testing::CountedSample* sample = census.Make();
    {
        DecodeOrder order;
        order.toDecode_ = sample;
        const DecodeOrder copied(order);
        EXPECT_EQ(copied.toDecode_, sample);
    }
    EXPECT_EQ(census.NbLive(), 1U);
    EXPECT_TRUE(sample->Calls().empty());
}

TEST(DecodeOrder, ProgressiveSpanIsTheOrdersTimePointAndTheSamplesDuration) {
    SampleCensus census;
    DecodeOrder order;
    order.toDecode_ = census.Make(Ms(1000), Ms(33));
    order.orderTp_ = Ms(1017);
    order.decodeTopField_ = false;
    order.fieldSampleRate_ = SampleRate(50, 1);
    EXPECT_EQ(SpanOf(order).tp_, Ms(1017));
    EXPECT_EQ(SpanOf(order).duration_, Ms(33));
}

TEST(DecodeOrder, ProgressiveOrderWithoutASampleHasNoDuration) {
    DecodeOrder order;
    order.orderTp_ = Ms(40);
    EXPECT_EQ(SpanOf(order).tp_, Ms(40));
    EXPECT_EQ(SpanOf(order).duration_, TimePoint());
}

TEST(DecodeOrder, TopFieldIsTheFieldThatTheTimePointFallsIn) {
    for (const TimePoint& tp : {Ms(200), Ms(213), Ns(219'999'999)}) {
        const Span span = SpanOf(Interlaced(tp, {50, 1}, true));
        EXPECT_EQ(span.tp_, Ms(200)) << tp;
        EXPECT_EQ(span.duration_, Ms(20)) << tp;
    }
}

TEST(DecodeOrder, BottomFieldIsTheFieldAfterTheTopField) {
    for (const TimePoint& tp : {Ms(200), Ms(213), Ns(219'999'999)}) {
        const Span span = SpanOf(Interlaced(tp, {50, 1}, false));
        EXPECT_EQ(span.tp_, Ms(220)) << tp;
        EXPECT_EQ(span.duration_, Ms(20)) << tp;
    }
}

TEST(DecodeOrder, InterlacedOrderDoesNotReadTheSample) {
    SampleCensus census;
    Testing::CountedSample* sample = census.Make(Ms(1000), Ms(33));
    DecodeOrder order = Interlaced(Ms(200), {50, 1}, true);
    order.toDecode_ = sample;
    SpanOf(order);
    EXPECT_TRUE(sample->Calls().empty());
    order.toDecode_ = nullptr;
    EXPECT_EQ(SpanOf(order).tp_, Ms(200));
}

TEST(DecodeOrder, FieldOfAnUnsetRateIsTheOrdersTimePointWithoutDuration) {
    const Span span = SpanOf(Interlaced(Ms(213), SampleRate(), false));
    EXPECT_EQ(span.tp_, Ms(213));
    EXPECT_EQ(span.duration_, TimePoint());
}

TEST(DecodeOrder, FieldAtTheEndOfTimeHasNoDurationAndNothingWraps) {
    const TimePoint highest = TimePoint::GetHighestTimePoint();
    for (const bool top : {true, false}) {
        const Span span = SpanOf(Interlaced(highest, {1'000'000'000, 1}, top));
        EXPECT_EQ(span.tp_, highest);
        EXPECT_EQ(span.duration_, TimePoint());
    }
}

TEST(DecodeOrder, FieldsOfNonIntegerRatesJoinWithoutGapOrOverlap) {
    Testing::Random random(Testing::TestSeed());
    for (int i = 0; i < 2000; ++i) {
        const SampleRate rate(random.Among(std::vector<std::int64_t>{24000, 30000, 60000}), 1001);
        const TimePoint tp = Ns(random.Between(0, 4'000'000'000'000'000'000));
        const std::int64_t number = tp.SampleNumber(rate);
        const Span top = SpanOf(Interlaced(tp, rate, true));
        const Span bottom = SpanOf(Interlaced(tp, rate, false));
        EXPECT_EQ(top.tp_, StartOf(number, rate)) << tp << " at " << rate;
        EXPECT_EQ(top.tp_ + top.duration_, bottom.tp_) << tp << " at " << rate;
        EXPECT_EQ(bottom.tp_ + bottom.duration_, StartOf(number + 2, rate)) << tp << " at " << rate;
    }
}

}  // namespace
}  // namespace Tavrin::Player
