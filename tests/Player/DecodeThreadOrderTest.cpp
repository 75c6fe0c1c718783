#include "Player/DecodeThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/Support/CountedSample.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using namespace qor::kp::logging;
using Testing::AddressText;
using Testing::CountedSample;
using Testing::Drain;
using Testing::LetOthersRun;
using Testing::LogLine;
using Testing::MillisecondsIn;
using Testing::Ms;
using Testing::SampleCensus;
using Testing::ScopedRecorder;
using Testing::ScopedSilence;
using Testing::ScriptedDecoder;
using Testing::SpendAtLeast;
using Testing::StartOf;

const SampleRate kRate(25, 1);

DecodeOrder OrderAt(std::int64_t number, ISample* toDecode, CacheUpdateQueue* queue) {
    DecodeOrder order;
    order.toDecode_ = toDecode;
    order.orderTp_ = StartOf(number, kRate);
    order.queue_ = queue;
    return order;
}

// ---- One order --------------------------------------------------------------------------------------------

/// A compressed sample that looks at the answers at the moment of its release.
class ReleaseWatcher : public ISample {
public:
    explicit ReleaseWatcher(CacheUpdateQueue& answers) : answers_(answers) {}

    Time::TimePoint GetTimePoint() const override { return Ms(1040); }
    Time::TimePoint GetDuration() const override { return Ms(40); }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }
    std::int64_t Unprotect(std::int64_t protection) override {
        nbAnswersAtRelease_ = Drain(answers_).size();
        return ISample::Unprotect(protection);
    }

    std::optional<std::size_t> NbAnswersAtRelease() const { return nbAnswersAtRelease_; }

private:
    CacheUpdateQueue& answers_;
    std::optional<std::size_t> nbAnswersAtRelease_;
};

/// How an order is run: directly, or through a registry that knows the order's queue.
enum class Delivery { Direct, Registry };

class DecodeThreadOrder : public testing::Test {
protected:
    DecodeThreadOrder() {
        compressed_->Protect(3);
        registry_.InsertExistingQueue(&answers_);
        worker_.SetDecoder(&decoder_);
    }

    // The answers' samples only count their deletion, so they may also be deleted here.
    ~DecodeThreadOrder() override { EXPECT_EQ(census_.NbAbused(), 0u); }

    void Process(Delivery delivery) {
        if (delivery == Delivery::Registry) {
            worker_.SetExistingUncompressedCacheUpdateQueues(&registry_);
            worker_.ProcessOrder(order_);
        } else {
            worker_.ProcessOrderWithoutExistingQueues(order_);
        }
    }

    void ScriptASample() {
        decoder_.Script([this](const DecodeOrder&) { return decoded_; });
    }

    void ExpectOneLine(Level level, const std::string& text) {
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level_, level);
        EXPECT_EQ(lines[0].text_, text);
        EXPECT_EQ(lines[0].file_, "Player/DecodeThread");
        EXPECT_GT(lines[0].line_, 0);
    }

    /// Expects the line of a decode that was delivered, whatever its duration, which it returns.
    std::int64_t ExpectDecodedLine() {
        const std::vector<LogLine> lines = log_->Take();
        if (lines.size() != 1u) {
            ADD_FAILURE() << lines.size() << " lines";
            return -1;
        }
        const std::int64_t milliseconds = MillisecondsIn(lines[0].text_);
        EXPECT_EQ(lines[0].text_, "Thread " + AddressText(&worker_) + ": decoded sample at 1.040000000: in " +
                                      std::to_string(milliseconds) + " ms");
        EXPECT_EQ(lines[0].level_, Level_Trace);
        EXPECT_EQ(lines[0].file_, "Player/DecodeThread");
        EXPECT_GT(lines[0].line_, 0);
        return milliseconds;
    }

    std::string CouldNotDecode() const {
        return "Thread " + AddressText(&worker_) + ": could NOT decode sample at 1.040000000";
    }

    /// Expects that one answer for the order's time point waits, and that one protection was released.
    void ExpectAnswered(ISample* sample) {
        const std::vector<Output> answers = Drain(answers_);
        ASSERT_EQ(answers.size(), 1u);
        EXPECT_EQ(answers[0].sample_, sample);
        EXPECT_EQ(answers[0].tp_, order_.orderTp_);
        EXPECT_EQ(compressed_->Counter(), 2);
    }

    void ExpectUntouched() {
        EXPECT_TRUE(Drain(answers_).empty());
        EXPECT_EQ(compressed_->Counter(), 3);
    }

    ScopedRecorder log_{"DecodeThread"};
    SampleCensus census_;
    CountedSample* compressed_ = census_.Make(Ms(1040), Ms(40));
    CountedSample* decoded_ = census_.Make(Ms(1040), Ms(40));
    CacheUpdateQueue answers_;
    ExistingCacheUpdateQueues registry_;
    ScriptedDecoder decoder_;
    DecodeThread worker_;
    DecodeOrder order_ = OrderAt(26, compressed_, &answers_);
};

class DecodeThreadEitherWay : public DecodeThreadOrder, public testing::WithParamInterface<Delivery> {};

std::string NameOf(const testing::TestParamInfo<Delivery>& test) {
    return test.param == Delivery::Direct ? "Direct" : "Registry";
}

INSTANTIATE_TEST_SUITE_P(Delivered, DecodeThreadEitherWay,
                         testing::Values(Delivery::Direct, Delivery::Registry), NameOf);

TEST_P(DecodeThreadEitherWay, TheDecodedSampleIsDeliveredForTheOrdersTimePoint) {
    ScriptASample();
    Process(GetParam());
    ExpectAnswered(decoded_);
    ExpectDecodedLine();
}

TEST_P(DecodeThreadEitherWay, TheDecoderGetsTheWholeOrder) {
    order_.width_ = 640;
    order_.height_ = 360;
    order_.decodeTopField_ = false;
    order_.fieldSampleRate_ = SampleRate(50, 1);
    Process(GetParam());
    const DecodeOrder seen = decoder_.Orders().at(0);
    EXPECT_EQ(seen.toDecode_, compressed_);
    EXPECT_EQ(seen.orderTp_, order_.orderTp_);
    EXPECT_EQ(seen.queue_, &answers_);
    EXPECT_EQ(seen.width_, 640);
    EXPECT_EQ(seen.height_, 360);
    EXPECT_FALSE(seen.decodeTopField_);
    EXPECT_FALSE(seen.isInterlace_);
    EXPECT_EQ(seen.fieldSampleRate_, SampleRate(50, 1));
}

TEST_P(DecodeThreadEitherWay, TheCompressedSampleIsProtectedDuringTheDecode) {
    decoder_.Script([this](const DecodeOrder&) {
        EXPECT_EQ(compressed_->Counter(), 3);
        return decoded_;
    });
    Process(GetParam());
    EXPECT_EQ(compressed_->Counter(), 2);
}

TEST_P(DecodeThreadEitherWay, OneProtectionTooManyReleasedStopsAtZero) {
    compressed_->Unprotect(3);
    Process(GetParam());
    EXPECT_EQ(compressed_->Counter(), 0);
}

TEST_P(DecodeThreadEitherWay, NothingReadsTheCompressedSampleAfterItsRelease) {
    ScriptASample();
    Process(GetParam());
    EXPECT_EQ(compressed_->Calls().back(), "Unprotect");
    EXPECT_EQ(compressed_->NbCalls("Unprotect"), 1u);
}

TEST_P(DecodeThreadEitherWay,
       TheAnswerIsDeliveredAfterTheReleaseSoThatWhoGetsItMayDeleteTheCompressedSample) {
    ReleaseWatcher watcher(answers_);
    watcher.Protect(1);
    order_.toDecode_ = &watcher;
    Process(GetParam());
    EXPECT_EQ(watcher.NbAnswersAtRelease(), 0u);
    EXPECT_EQ(Drain(answers_).size(), 1u);
}

TEST_P(DecodeThreadEitherWay, TheCompressedSampleIsNeverDeleted) {
    ScriptASample();
    Process(GetParam());
    EXPECT_FALSE(compressed_->Deleted());
}

TEST_P(DecodeThreadEitherWay, ATopFieldIsDeliveredForItsOwnField) {
    order_.isInterlace_ = true;
    order_.fieldSampleRate_ = SampleRate(50, 1);
    order_.orderTp_ = StartOf(10, order_.fieldSampleRate_);
    Process(GetParam());
    EXPECT_EQ(Drain(answers_).at(0).tp_, Ms(200));
}

TEST_P(DecodeThreadEitherWay, ABottomFieldIsDeliveredForTheFieldAfter) {
    order_.isInterlace_ = true;
    order_.decodeTopField_ = false;
    order_.fieldSampleRate_ = SampleRate(50, 1);
    order_.orderTp_ = StartOf(10, order_.fieldSampleRate_);
    Process(GetParam());
    EXPECT_EQ(Drain(answers_).at(0).tp_, Ms(220));
}

TEST_P(DecodeThreadEitherWay, WithoutAQueueTheOrderIsDroppedWithAnError) {
    order_.queue_ = nullptr;
    Process(GetParam());
    ExpectOneLine(Level_Error, "Decode order queue or decoder_ is NULL");
    EXPECT_TRUE(decoder_.Orders().empty());
    ExpectUntouched();
}

TEST_P(DecodeThreadEitherWay, WithoutADecoderTheOrderIsDroppedWithAnError) {
    worker_.SetDecoder(nullptr);
    Process(GetParam());
    ExpectOneLine(Level_Error, "Decode order queue or decoder_ is NULL");
    ExpectUntouched();
}

TEST_P(DecodeThreadEitherWay, ADroppedOrderRecordsNoDuration) {
    decoder_.Script([this](const DecodeOrder&) {
        SpendAtLeast(4ms);
        return decoded_;
    });
    Process(GetParam());
    const std::uint32_t average = worker_.GetInformation().averageDecodeTimeMilliseconds_;
    order_.queue_ = nullptr;
    Process(GetParam());
    EXPECT_GE(average, 4u);
    EXPECT_EQ(worker_.GetInformation().averageDecodeTimeMilliseconds_, average);
}

TEST_P(DecodeThreadEitherWay, AnExceptionThatIsNoRuntimeErrorLeavesWithNothingDeliveredOrReleased) {
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::logic_error("a bug"); });
    EXPECT_THROW(Process(GetParam()), std::logic_error);
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw 42; });
    EXPECT_THROW(Process(GetParam()), int);
    ExpectUntouched();
}

TEST_P(DecodeThreadEitherWay, AfterSuchAnExceptionTheNextOrderIsDecoded) {
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw 42; });
    EXPECT_THROW(Process(GetParam()), int);
    ScriptASample();
    Process(GetParam());
    ExpectAnswered(decoded_);
    registry_.RemoveExistingQueue(&answers_);  // its lock is free
}

TEST_P(DecodeThreadEitherWay, AtADebugLevelTheTraceLineIsNotSent) {
    log_->SetLevel(Level_Debug);
    ScriptASample();
    Process(GetParam());
    EXPECT_TRUE(log_->Take().empty());
    ExpectAnswered(decoded_);
}

TEST_P(DecodeThreadEitherWay, AboveTheErrorLevelNothingIsSent) {
    log_->SetLevel(Level_Fatal);
    order_.queue_ = nullptr;
    Process(GetParam());
    EXPECT_TRUE(log_->Take().empty());
}

TEST_P(DecodeThreadEitherWay, WithoutALoggerEverythingStillHappens) {
    const ScopedSilence silence("DecodeThread");
    DecodeThread worker;
    worker.SetExistingUncompressedCacheUpdateQueues(&registry_);
    const auto process = [&] {
        if (GetParam() == Delivery::Registry) {
            worker.ProcessOrder(order_);
        } else {
            worker.ProcessOrderWithoutExistingQueues(order_);
        }
    };
    process();  // no decoder
    worker.SetDecoder(&decoder_);
    process();  // null
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::runtime_error("x"); });
    process();
    ScriptASample();
    process();
    EXPECT_EQ(Drain(answers_).size(), 3u);
    EXPECT_TRUE(log_->Take().empty());
}

TEST_P(DecodeThreadEitherWay, TheAverageIsThatOfTheDurationsTruncated) {
    for (const auto span : {1ms, 2ms, 4ms}) {
        decoder_.Script([this, span](const DecodeOrder&) {
            SpendAtLeast(span);
            return decoded_;
        });
        Process(GetParam());
        EXPECT_GE(ExpectDecodedLine(), span.count());
    }
    // The lines' durations end a moment later than those recorded, so only a lower bound is certain.
    EXPECT_GE(worker_.GetInformation().averageDecodeTimeMilliseconds_, (1u + 2u + 4u) / 3u);
}

TEST_P(DecodeThreadEitherWay, TheAverageIsOverTheTwentyFiveMostRecentDurations) {
    decoder_.Script([this](const DecodeOrder&) {
        SpendAtLeast(250ms);
        return decoded_;
    });
    Process(GetParam());
    EXPECT_GE(worker_.GetInformation().averageDecodeTimeMilliseconds_, 250u);
    ScriptASample();
    log_->Take();
    std::int64_t sum = 0;
    for (int i = 0; i < 24; ++i) {
        Process(GetParam());
        sum += ExpectDecodedLine();
    }
    EXPECT_GE(worker_.GetInformation().averageDecodeTimeMilliseconds_, 10u) << "the first is among 25";
    Process(GetParam());
    sum += ExpectDecodedLine();
    // A duration is recorded a moment before or after it is logged.
    EXPECT_LE(worker_.GetInformation().averageDecodeTimeMilliseconds_, sum / 25 + 1) << "the first is gone";
}

TEST_F(DecodeThreadOrder, AFreshWorkerReportsZero) {
    EXPECT_EQ(worker_.GetInformation().averageDecodeTimeMilliseconds_, 0u);
}

// ---- One order, delivered directly ------------------------------------------------------------------------

TEST_F(DecodeThreadOrder, DirectlyANullResultIsDeliveredWithAWarning) {
    Process(Delivery::Direct);
    ExpectOneLine(Level_Warning, CouldNotDecode());
    ExpectAnswered(nullptr);
}

TEST_F(DecodeThreadOrder, DirectlyARuntimeErrorIsDeliveredAsANullSampleWithAWarning) {
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::runtime_error("broken slice"); });
    Process(Delivery::Direct);
    ExpectOneLine(Level_Warning, "Could not decode order at 1.040000000: broken slice");
    ExpectAnswered(nullptr);
}

TEST_F(DecodeThreadOrder, DirectlyAnErrorDerivedFromRuntimeErrorCountsAsOne) {
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::overflow_error("too big"); });
    Process(Delivery::Direct);
    ExpectOneLine(Level_Warning, "Could not decode order at 1.040000000: too big");
    ExpectAnswered(nullptr);
}

TEST_F(DecodeThreadOrder, DirectlyAnExceptionRecordsNoDuration) {
    decoder_.Script([](const DecodeOrder&) -> ISample* {
        SpendAtLeast(3ms);
        throw std::runtime_error("x");
    });
    Process(Delivery::Direct);
    EXPECT_EQ(worker_.GetInformation().averageDecodeTimeMilliseconds_, 0u);
}

TEST_F(DecodeThreadOrder, DirectlyANullResultRecordsItsDuration) {
    decoder_.Script([](const DecodeOrder&) -> ISample* {
        SpendAtLeast(3ms);
        return nullptr;
    });
    Process(Delivery::Direct);
    EXPECT_GE(worker_.GetInformation().averageDecodeTimeMilliseconds_, 3u);
}

TEST_F(DecodeThreadOrder, DirectlyAnUnregisteredQueueIsServedAllTheSame) {
    registry_.RemoveExistingQueue(&answers_);
    ScriptASample();
    Process(Delivery::Direct);
    ExpectAnswered(decoded_);
}

TEST_F(DecodeThreadOrder, DirectlyWarningsAreSilencedAboveTheirLevel) {
    log_->SetLevel(Level_Error);
    Process(Delivery::Direct);
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::runtime_error("x"); });
    Process(Delivery::Direct);
    EXPECT_TRUE(log_->Take().empty());
}

// ---- One order, delivered through the registry ------------------------------------------------------------

TEST_F(DecodeThreadOrder, ThroughTheRegistryANullResultIsDeliveredAndLoggedAsDecoded) {
    Process(Delivery::Registry);
    ExpectDecodedLine();
    ExpectAnswered(nullptr);
}

TEST_F(DecodeThreadOrder, ThroughTheRegistryARuntimeErrorIsDeliveredAsNullAndLoggedAsDecoded) {
    decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::range_error("x"); });
    Process(Delivery::Registry);
    ExpectDecodedLine();
    ExpectAnswered(nullptr);
}

TEST_F(DecodeThreadOrder, ThroughTheRegistryNothingIsDecodedForAnUnregisteredQueue) {
    registry_.RemoveExistingQueue(&answers_);
    Process(Delivery::Registry);
    ExpectOneLine(Level_Warning, CouldNotDecode());
    EXPECT_TRUE(decoder_.Orders().empty());
    ExpectUntouched();
}

TEST_F(DecodeThreadOrder, ThroughTheRegistryAnUnregisteredQueueStillRecordsADuration) {
    decoder_.Script([this](const DecodeOrder&) {
        SpendAtLeast(20ms);
        return decoded_;
    });
    Process(Delivery::Registry);
    const std::uint32_t average = worker_.GetInformation().averageDecodeTimeMilliseconds_;
    registry_.RemoveExistingQueue(&answers_);
    Process(Delivery::Registry);
    EXPECT_LT(worker_.GetInformation().averageDecodeTimeMilliseconds_, average);
}

TEST_F(DecodeThreadOrder, ThroughTheRegistryAnExceptionRecordsItsDuration) {
    decoder_.Script([](const DecodeOrder&) -> ISample* {
        SpendAtLeast(3ms);
        throw std::runtime_error("x");
    });
    Process(Delivery::Registry);
    EXPECT_GE(worker_.GetInformation().averageDecodeTimeMilliseconds_, 3u);
}

TEST_F(DecodeThreadOrder, ThroughTheRegistryAQueueIsRemovedOnlyAfterTheResultWasPushed) {
    ScriptASample();
    decoder_.Calls().Hold();
    std::thread worker([this] { Process(Delivery::Registry); });
    EXPECT_TRUE(decoder_.Calls().Entered().WaitFor(1));
    std::optional<std::size_t> nbAnswersAtRemoval;
    std::atomic<bool> removed = false;
    std::thread owner([&] {
        registry_.RemoveExistingQueue(&answers_);
        removed = true;
        nbAnswersAtRemoval = Drain(answers_).size();
    });
    LetOthersRun();
    EXPECT_FALSE(removed);
    decoder_.Calls().Release();
    owner.join();
    worker.join();
    EXPECT_EQ(nbAnswersAtRemoval, 1u);
}

}  // namespace
}  // namespace Tavrin::Player
