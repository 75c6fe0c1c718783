#include "Player/FakePreloader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakeSample.h"
#include "Player/PreloadThread.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Testing::Drain;
using Testing::LogLine;
using Testing::Ms;
using Testing::Ns;
using Testing::ScopedRecorder;
using Testing::ScopedSilence;
using Testing::StartOf;
using Testing::Track;
using Time::TimePoint;

class FakePreloaderTest : public testing::Test {
protected:
    PreloadOrder OrderFor(const TimePoint& tp) {
        return PreloadOrder(tp, SampleRate(25, 1), &answers_, Track(1));
    }

    /// The one answer that waits; its sample is kept alive by the fixture.
    Output TheAnswer() {
        const std::vector<Output> answers = Drain(answers_);
        for (const Output& answer : answers) {
            samples_.emplace_back(answer.sample_);
        }
        EXPECT_EQ(answers.size(), 1u);
        return answers.empty() ? Output() : answers[0];
    }

    void ExpectSample(const TimePoint& at, const TimePoint& from, const TimePoint& duration) {
        EXPECT_EQ(preloader_.Preload(OrderFor(at)), IPreloader::SUCCESS_EXIST);
        const Output answer = TheAnswer();
        EXPECT_EQ(answer.tp_, at);
        ASSERT_NE(answer.sample_, nullptr);
        EXPECT_EQ(answer.sample_->GetTimePoint(), from);
        EXPECT_EQ(answer.sample_->GetDuration(), duration);
    }

    void ExpectOneLine(Level level, const std::string& text) {
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level_, level);
        EXPECT_EQ(lines[0].text_, text);
        EXPECT_EQ(lines[0].file_, "Player/FakePreloader");
        EXPECT_GT(lines[0].line_, 0);
    }

    ScopedRecorder log_{"FakePreloader"};
    CacheUpdateQueue answers_;
    std::vector<std::unique_ptr<ISample>> samples_;
    FakePreloader preloader_;
};

TEST_F(FakePreloaderTest, AtTheDefaultRateAnOrderInsideASampleYieldsThatSampleForTheOrdersTimePoint) {
    ExpectSample(Ms(1010), Ms(1000), Ms(40));
}

TEST_F(FakePreloaderTest, AnOrderAtTheStartOfASampleYieldsThatSample) {
    ExpectSample(Ms(1040), Ms(1040), Ms(40));
}

TEST_F(FakePreloaderTest, AtARateWithUnevenSamplesEachReachesToTheNext) {
    const SampleRate rate(30000, 1001);
    preloader_.SetSampleRate(rate);
    for (const std::int64_t number : {0, 1, 2, 29, 1001}) {
        const TimePoint start = StartOf(number, rate);
        ExpectSample(start, start, StartOf(number + 1, rate) - start);
    }
}

TEST_F(FakePreloaderTest, TheOrdersOwnRatePlaysNoPart) {
    PreloadOrder order = OrderFor(Ms(1010));
    order.s_ = SampleRate(1, 1);
    EXPECT_EQ(preloader_.Preload(order), IPreloader::SUCCESS_EXIST);
    EXPECT_EQ(TheAnswer().sample_->GetDuration(), Ms(40));
}

TEST_F(FakePreloaderTest, TheSampleIsAFakeSampleWithoutProtection) {
    preloader_.Preload(OrderFor(Ms(80)));
    ISample* sample = TheAnswer().sample_;
    EXPECT_NE(dynamic_cast<FakeSample*>(sample), nullptr);
    EXPECT_EQ(sample->GetProtectionCounter(), 0);
}

TEST_F(FakePreloaderTest, TwoOrdersForTheSameTimePointYieldTwoSamples) {
    preloader_.Preload(OrderFor(Ms(80)));
    const ISample* first = TheAnswer().sample_;
    preloader_.Preload(OrderFor(Ms(80)));
    EXPECT_NE(TheAnswer().sample_, first);
}

TEST_F(FakePreloaderTest, LogsTheStartOfTheSampleItPreloaded) {
    preloader_.Preload(OrderFor(Ms(1010)));
    TheAnswer();
    ExpectOneLine(Level_Trace, "Preloaded sample at 1.000000000");
}

TEST_F(FakePreloaderTest, WithoutValidSamplesEveryOrderIsAnsweredWithANullSampleAndAnError) {
    preloader_.ReturnValidSample(false);
    for (const std::int64_t ms : {0, 40, 1010}) {
        EXPECT_EQ(preloader_.Preload(OrderFor(Ms(ms))), IPreloader::ERROR);
        const Output answer = TheAnswer();
        EXPECT_EQ(answer.sample_, nullptr);
        EXPECT_EQ(answer.tp_, Ms(ms));
    }
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(FakePreloaderTest, ValidSamplesCanBeSwitchedOnAgain) {
    preloader_.ReturnValidSample(false);
    preloader_.ReturnValidSample(true);
    ExpectSample(Ms(40), Ms(40), Ms(40));
}

TEST_F(FakePreloaderTest, AnOrderWithoutAQueueYieldsAnErrorAndOneWarningAndNothingElse) {
    PreloadOrder order = OrderFor(Ms(1010));
    order.queue_ = nullptr;
    EXPECT_EQ(preloader_.Preload(order), IPreloader::ERROR);
    ExpectOneLine(Level_Warning, "Queue not set for order at 1.010000000");
    EXPECT_TRUE(Drain(answers_).empty());
}

TEST_F(FakePreloaderTest, AnOrderWithoutAQueueIsAnErrorAlsoWithoutValidSamples) {
    preloader_.ReturnValidSample(false);
    PreloadOrder order = OrderFor(Ms(1010));
    order.queue_ = nullptr;
    EXPECT_EQ(preloader_.Preload(order), IPreloader::ERROR);
    ExpectOneLine(Level_Warning, "Queue not set for order at 1.010000000");
}

TEST_F(FakePreloaderTest, WithARateOfZeroEveryOrderIsAnsweredWithANullSampleAndAnError) {
    preloader_.SetSampleRate(SampleRate());
    EXPECT_EQ(preloader_.Preload(OrderFor(Ms(1010))), IPreloader::ERROR);
    const Output answer = TheAnswer();
    EXPECT_EQ(answer.sample_, nullptr);
    EXPECT_EQ(answer.tp_, Ms(1010));
}

TEST_F(FakePreloaderTest, AnOrderBeforeTheOriginIsAnsweredWithTheSampleThere) {
    ExpectSample(Ns(-1), Ms(-40), Ms(40));
}

TEST_F(FakePreloaderTest, TheRegistryIsIgnored) {
    ExistingCacheUpdateQueues empty;
    preloader_.SetExistingCacheUpdateQueues(&empty);
    ExpectSample(Ms(40), Ms(40), Ms(40));
    preloader_.SetExistingCacheUpdateQueues(nullptr);
    ExpectSample(Ms(80), Ms(80), Ms(40));
}

TEST_F(FakePreloaderTest, AtADebugLevelTheTraceLineIsNotSent) {
    log_->SetLevel(Level_Debug);
    preloader_.Preload(OrderFor(Ms(40)));
    TheAnswer();
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(FakePreloaderTest, AtTheWarningLevelAMissingQueueIsStillReported) {
    log_->SetLevel(Level_Warning);
    PreloadOrder order = OrderFor(Ms(40));
    order.queue_ = nullptr;
    preloader_.Preload(order);
    EXPECT_EQ(log_->Take().size(), 1u);
}

TEST_F(FakePreloaderTest, AboveTheWarningLevelNothingIsSent) {
    log_->SetLevel(Level_Error);
    PreloadOrder order = OrderFor(Ms(40));
    order.queue_ = nullptr;
    EXPECT_EQ(preloader_.Preload(order), IPreloader::ERROR);
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(FakePreloaderTest, WithoutALoggerItAnswersAllTheSame) {
    const ScopedSilence silence("FakePreloader");
    FakePreloader silent;
    EXPECT_EQ(silent.Preload(OrderFor(Ms(40))), IPreloader::SUCCESS_EXIST);
    EXPECT_NE(TheAnswer().sample_, nullptr);
    PreloadOrder order = OrderFor(Ms(40));
    order.queue_ = nullptr;
    EXPECT_EQ(silent.Preload(order), IPreloader::ERROR);
}

TEST_F(FakePreloaderTest, SeveralThreadsAreAnsweredOnceEach) {
    constexpr int kNbThreads = 4;
    constexpr std::int64_t kNbOrders = 250;
    std::vector<std::thread> threads;
    for (int t = 0; t < kNbThreads; ++t) {
        threads.emplace_back([this] {
            for (std::int64_t number = 0; number < kNbOrders; ++number) {
                preloader_.Preload(OrderFor(StartOf(number, SampleRate(25, 1))));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<int> nbAnswers(kNbOrders, 0);
    for (const Output& answer : Drain(answers_)) {
        samples_.emplace_back(answer.sample_);
        ASSERT_NE(answer.sample_, nullptr);
        EXPECT_EQ(answer.sample_->GetTimePoint(), answer.tp_);
        ++nbAnswers[static_cast<std::size_t>(answer.tp_.SampleNumber(SampleRate(25, 1)))];
    }
    EXPECT_EQ(nbAnswers, std::vector<int>(kNbOrders, kNbThreads));
}

TEST_F(FakePreloaderTest, APreloadThreadNamesItsResult) {
    const ScopedRecorder log("PreloadThread");
    PreloadThread worker;
    worker.SetPreloader(&preloader_);
    EXPECT_TRUE(worker.ProcessOrder(OrderFor(Ms(1040))));
    TheAnswer();
    EXPECT_NE(log->TakeTexts().at(0).find("(26): SUCCESS_EXIST in "), std::string::npos);
    preloader_.ReturnValidSample(false);
    EXPECT_TRUE(worker.ProcessOrder(OrderFor(Ms(1040))));
    TheAnswer();
    EXPECT_NE(log->TakeTexts().at(0).find("(26): ERROR in "), std::string::npos);
}

}  // namespace
}  // namespace Tavrin::Player
