#include "Player/FakeDecoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakeSample.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using Testing::CountedSample;
using Testing::Drain;
using Testing::Ms;
using Testing::SampleCensus;
using Testing::StartOf;
using Time::TimePoint;

class FakeDecoderTest : public testing::Test {
protected:
    FakeDecoderTest() {
        compressed_->Protect(5);
        order_.toDecode_ = compressed_;
        order_.orderTp_ = Ms(1040);
        order_.queue_ = &answers_;
    }

    void MakeInterlaced(bool top) {
        order_.isInterlace_ = true;
        order_.decodeTopField_ = top;
        order_.fieldSampleRate_ = SampleRate(50, 1);
    }

    std::unique_ptr<ISample> Decode() { return std::unique_ptr<ISample>(decoder_.Decode(order_)); }

    /// Runs the order on a worker's behalf and returns the samples delivered.
    std::vector<std::unique_ptr<ISample>> RunOnAWorker(ExistingCacheUpdateQueues* registry) {
        DecodeThread worker;
        worker.SetDecoder(&decoder_);
        worker.SetExistingUncompressedCacheUpdateQueues(registry);
        if (registry == nullptr) {
            worker.ProcessOrderWithoutExistingQueues(order_);
        } else {
            worker.ProcessOrder(order_);
        }
        std::vector<std::unique_ptr<ISample>> samples;
        for (const Output& answer : Drain(answers_)) {
            samples.emplace_back(answer.sample_);
        }
        return samples;
    }

    SampleCensus census_;
    CountedSample* compressed_ = census_.Make(Ms(999), Ms(33));
    CacheUpdateQueue answers_;
    FakeDecoder decoder_;
    DecodeOrder order_;
};

TEST_F(FakeDecoderTest, AProgressiveSampleHasTheOrdersTimePointAndTheCompressedSamplesDuration) {
    const std::unique_ptr<ISample> decoded = Decode();
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->GetTimePoint(), Ms(1040));
    EXPECT_EQ(decoded->GetDuration(), Ms(33));
}

TEST_F(FakeDecoderTest, TheResultIsANewFakeSampleWithoutProtection) {
    const std::unique_ptr<ISample> first = Decode();
    const std::unique_ptr<ISample> second = Decode();
    EXPECT_NE(dynamic_cast<FakeSample*>(first.get()), nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_NE(first.get(), compressed_);
    EXPECT_EQ(first->GetProtectionCounter(), 0);
}

TEST_F(FakeDecoderTest, ATopFieldStartsWithTheFieldOfTheOrderAndLastsOneFieldPeriod) {
    MakeInterlaced(true);
    const std::unique_ptr<ISample> decoded = Decode();
    EXPECT_EQ(decoded->GetTimePoint(), Ms(1040));
    EXPECT_EQ(decoded->GetDuration(), Ms(20));
}

TEST_F(FakeDecoderTest, ABottomFieldIsOneFieldPeriodLaterThanTheTopField) {
    MakeInterlaced(true);
    const std::unique_ptr<ISample> top = Decode();
    MakeInterlaced(false);
    const std::unique_ptr<ISample> bottom = Decode();
    EXPECT_EQ(bottom->GetTimePoint(), top->GetTimePoint() + Ms(20));
    EXPECT_EQ(bottom->GetDuration(), Ms(20));
}

TEST_F(FakeDecoderTest, AnOrderInsideAFieldYieldsTheStartOfThatField) {
    MakeInterlaced(true);
    order_.orderTp_ = Ms(1055);
    EXPECT_EQ(Decode()->GetTimePoint(), Ms(1040));
}

TEST_F(FakeDecoderTest, FieldsOfAnUnevenRateReachToTheNextField) {
    MakeInterlaced(false);
    const SampleRate rate(60000, 1001);
    order_.fieldSampleRate_ = rate;
    order_.orderTp_ = StartOf(14, rate);
    const std::unique_ptr<ISample> decoded = Decode();
    EXPECT_EQ(decoded->GetTimePoint(), StartOf(15, rate));
    EXPECT_EQ(decoded->GetTimePoint() + decoded->GetDuration(), StartOf(16, rate));
}

TEST_F(FakeDecoderTest, ReleasesOneProtectionOfTheCompressedSample) {
    Decode();
    EXPECT_EQ(compressed_->Counter(), 4);
    MakeInterlaced(true);
    Decode();
    EXPECT_EQ(compressed_->Counter(), 3);
}

TEST_F(FakeDecoderTest, ReadsNothingOfTheCompressedSampleAfterTheRelease) {
    Decode();
    EXPECT_EQ(compressed_->Calls().back(), "Unprotect");
}

TEST_F(FakeDecoderTest, NeverDeletesTheCompressedSample) {
    Decode();
    EXPECT_FALSE(compressed_->Deleted());
}

TEST_F(FakeDecoderTest, OnAWorkerTwoProtectionsAreReleasedOneByEach) {
    RunOnAWorker(nullptr);
    EXPECT_EQ(compressed_->Counter(), 3);
}

TEST_F(FakeDecoderTest, OnAWorkerWithARegistryTwoProtectionsAreReleasedOneByEach) {
    ExistingCacheUpdateQueues registry;
    registry.InsertExistingQueue(&answers_);
    RunOnAWorker(&registry);
    EXPECT_EQ(compressed_->Counter(), 3);
}

TEST_F(FakeDecoderTest, ForASingleOrderTheSecondReleaseStopsAtZero) {
    compressed_->Unprotect(4);
    EXPECT_EQ(RunOnAWorker(nullptr).size(), 1u);
    EXPECT_EQ(compressed_->Counter(), 0);
}

TEST_F(FakeDecoderTest, TwoFieldOrdersOfOneSampleNeedTwoProtectionsEach) {
    compressed_->Unprotect(1);  // four left
    MakeInterlaced(true);
    ASSERT_EQ(RunOnAWorker(nullptr).size(), 1u);
    EXPECT_EQ(compressed_->Counter(), 2) << "still protected for the second order";
    MakeInterlaced(false);
    ASSERT_EQ(RunOnAWorker(nullptr).size(), 1u);
    EXPECT_EQ(compressed_->Counter(), 0);
}

TEST_F(FakeDecoderTest, TheWorkersAnswerIsForTheTimePointOfTheSample) {
    MakeInterlaced(false);
    DecodeThread worker;
    worker.SetDecoder(&decoder_);
    worker.ProcessOrderWithoutExistingQueues(order_);
    const std::vector<Output> answers = Drain(answers_);
    ASSERT_EQ(answers.size(), 1u);
    const std::unique_ptr<ISample> sample(answers[0].sample_);
    EXPECT_EQ(answers[0].tp_, Ms(1060));
    EXPECT_EQ(sample->GetTimePoint(), Ms(1060));
}

}  // namespace
}  // namespace Tavrin::Player
