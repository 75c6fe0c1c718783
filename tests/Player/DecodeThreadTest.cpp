#include "Player/DecodeThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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
using Numbers = std::vector<std::int64_t>;

const SampleRate kRate(25, 1);

DecodeOrder OrderAt(std::int64_t number, ISample* toDecode, CacheUpdateQueue* queue) {
    DecodeOrder order;
    order.toDecode_ = toDecode;
    order.orderTp_ = StartOf(number, kRate);
    order.queue_ = queue;
    return order;
}

// ---- The turn of the queues -------------------------------------------------------------------------------

class DecodeThreadTurn : public testing::Test {
protected:
    static void Push(DecodeOrderQueue& queue, const Numbers& numbers) {
        for (const std::int64_t number : numbers) {
            queue.Push(OrderAt(number, nullptr, nullptr));
        }
    }

    void AttachAll() {
        for (DecodeOrderQueue* queue : {&a_, &b_, &c_}) {
            worker_.AddDecodeOrderQueue(queue);
        }
    }

    Numbers TakeAll() {
        Numbers numbers;
        while (worker_.Dequeue(order_)) {
            numbers.push_back(order_.orderTp_.SampleNumber(kRate));
        }
        return numbers;
    }

    DecodeOrderQueue a_;
    DecodeOrderQueue b_;
    DecodeOrderQueue c_;
    DecodeThread worker_;
    DecodeOrder order_;
};

TEST_F(DecodeThreadTurn, WithoutAnyQueueDequeueReturnsFalseAndLeavesTheOrderAlone) {
    order_.orderTp_ = Ms(7);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(order_.orderTp_, Ms(7));
}

TEST_F(DecodeThreadTurn, WithEmptyQueuesDequeueReturnsFalseAndLeavesTheOrderAlone) {
    AttachAll();
    order_.orderTp_ = Ms(7);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(order_.orderTp_, Ms(7));
}

TEST_F(DecodeThreadTurn, ThreeFullQueuesYieldOneOrderEachInTurn) {
    AttachAll();
    Push(a_, {10, 11});
    Push(b_, {20, 21});
    Push(c_, {30, 31});
    EXPECT_EQ(TakeAll(), Numbers({10, 20, 30, 11, 21, 31}));
}

TEST_F(DecodeThreadTurn, AnEmptyQueueIsSkippedAndAfterTheLastTheFirstIsNext) {
    AttachAll();
    Push(a_, {10, 11});
    Push(c_, {30, 31});
    EXPECT_EQ(TakeAll(), Numbers({10, 30, 11, 31}));
}

TEST_F(DecodeThreadTurn, ALookInVainKeepsTheTurn) {
    AttachAll();
    Push(a_, {10});
    ASSERT_EQ(TakeAll(), Numbers({10}));
    Push(a_, {11});
    Push(b_, {20});
    EXPECT_EQ(TakeAll(), Numbers({20, 11}));
}

TEST_F(DecodeThreadTurn, RemovingAnyQueueRestartsAtTheFirst) {
    AttachAll();
    Push(a_, {10, 11});
    Push(b_, {20});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.RemoveDecodeOrderQueue(&c_);
    EXPECT_EQ(TakeAll(), Numbers({11, 20}));
}

TEST_F(DecodeThreadTurn, RemovingAQueueThatIsNotAttachedChangesNothing) {
    worker_.AddDecodeOrderQueue(&a_);
    worker_.AddDecodeOrderQueue(&b_);
    Push(a_, {10, 11});
    Push(b_, {20});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.RemoveDecodeOrderQueue(&c_);
    EXPECT_EQ(TakeAll(), Numbers({20, 11}));
}

TEST_F(DecodeThreadTurn, AfterTheLastQueueIsRemovedDequeueReturnsFalse) {
    worker_.AddDecodeOrderQueue(&a_);
    Push(a_, {10});
    worker_.RemoveDecodeOrderQueue(&a_);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(a_.GetSize(), 1u);
}

TEST_F(DecodeThreadTurn, AQueueAttachedToAnEmptyListIsServed) {
    worker_.AddDecodeOrderQueue(&a_);
    worker_.RemoveDecodeOrderQueue(&a_);
    worker_.AddDecodeOrderQueue(&b_);
    Push(b_, {20});
    EXPECT_EQ(TakeAll(), Numbers({20}));
}

TEST_F(DecodeThreadTurn, AttachingAQueueTwiceKeepsOneEntry) {
    worker_.AddDecodeOrderQueue(&a_);
    worker_.AddDecodeOrderQueue(&a_);
    worker_.AddDecodeOrderQueue(&b_);
    Push(a_, {10, 11});
    Push(b_, {20});
    EXPECT_EQ(TakeAll(), Numbers({10, 20, 11}));
}

TEST_F(DecodeThreadTurn, AQueueAttachedTwiceIsGoneAfterOneRemoval) {
    worker_.AddDecodeOrderQueue(&a_);
    worker_.AddDecodeOrderQueue(&a_);
    worker_.RemoveDecodeOrderQueue(&a_);
    Push(a_, {10});
    EXPECT_FALSE(worker_.Dequeue(order_));
}

// ---- One order --------------------------------------------------------------------------------------------

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

// ---- The worker's thread ----------------------------------------------------------------------------------

/// A worker with one queue, which delivers directly and is stopped by its destructor.
struct Bench {
    Bench() {
        worker_.SetDecoder(&decoder_);
        worker_.AddDecodeOrderQueue(&queue_);
    }
    // A test that fails while a call is held must not hang in the worker's destructor.
    ~Bench() { decoder_.Calls().Release(); }

    void Push(std::int64_t number) { queue_.Push(OrderAt(number, compressed_, &answers_)); }

    /// Waits for the answers to so many orders.
    [[nodiscard]] bool WaitForAnswers(std::size_t nb) {
        const auto bound = std::chrono::steady_clock::now() + Testing::kFailureBound;
        while (answered_.size() < nb && std::chrono::steady_clock::now() < bound) {
            for (const Output& output : Drain(answers_)) {
                answered_.push_back(output.tp_.SampleNumber(kRate));
            }
            std::this_thread::yield();
        }
        return answered_.size() == nb;
    }

    ScopedRecorder log_{"DecodeThread"};
    SampleCensus census_;
    CountedSample* compressed_ = census_.Make(Ms(0), Ms(40));
    CacheUpdateQueue answers_;
    DecodeOrderQueue queue_;
    ScriptedDecoder decoder_;
    Numbers answered_;
    DecodeThread worker_;
};

Numbers UpTo(std::int64_t end) {
    Numbers numbers;
    for (std::int64_t number = 0; number < end; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

TEST(DecodeThread, StopOfAWorkerNeverStartedReturnsAtOnce) {
    DecodeThread worker;
    worker.Stop();
    worker.Stop();
}

TEST(DecodeThread, StopTwiceIsHarmless) {
    Bench bench;
    EXPECT_TRUE(bench.worker_.Start());
    bench.worker_.Stop();
    bench.worker_.Stop();
}

TEST(DecodeThread, ConstructionStartsNoThread) {
    Bench bench;
    bench.Push(1);
    LetOthersRun();
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(DecodeThread, OrdersPushedBeforeTheStartAreServedInOrder) {
    Bench bench;
    for (const std::int64_t number : UpTo(20)) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.WaitForAnswers(20));
    EXPECT_EQ(bench.answered_, UpTo(20));
}

TEST(DecodeThread, OrdersPushedOneByOneAreServed) {
    Bench bench;
    bench.worker_.Start();
    for (const std::int64_t number : UpTo(20)) {
        bench.Push(number);
        ASSERT_TRUE(bench.WaitForAnswers(static_cast<std::size_t>(number) + 1));
    }
}

TEST(DecodeThread, OrdersPushedWhileTheWorkerIsBusyAreServed) {
    Bench bench;
    bench.decoder_.Calls().Hold();
    bench.worker_.Start();
    bench.Push(0);
    ASSERT_TRUE(bench.decoder_.Calls().Entered().WaitFor(1));
    bench.Push(1);
    bench.Push(2);
    bench.decoder_.Calls().Release();
    ASSERT_TRUE(bench.WaitForAnswers(3));
    EXPECT_EQ(bench.answered_, UpTo(3));
}

TEST(DecodeThread, GoesOnAfterARuntimeErrorAndAfterAnOrderWithoutAQueue) {
    Bench bench;
    bench.decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::runtime_error("x"); });
    bench.Push(0);
    bench.queue_.Push(OrderAt(1, bench.compressed_, nullptr));
    bench.Push(2);
    bench.worker_.Start();
    ASSERT_TRUE(bench.WaitForAnswers(2));
    EXPECT_EQ(bench.answered_, Numbers({0, 2}));
}

TEST(DecodeThread, WithARegistryTheWorkerDeliversThroughIt) {
    Bench bench;
    CacheUpdateQueue gone;
    ExistingCacheUpdateQueues registry;
    registry.InsertExistingQueue(&bench.answers_);
    bench.worker_.SetExistingUncompressedCacheUpdateQueues(&registry);
    bench.queue_.Push(OrderAt(0, bench.compressed_, &gone));
    bench.Push(1);
    bench.worker_.Start();
    ASSERT_TRUE(bench.WaitForAnswers(1));
    bench.worker_.Stop();
    EXPECT_EQ(bench.decoder_.Numbers(), Numbers({1}));
    EXPECT_TRUE(Drain(gone).empty());
}

TEST(DecodeThread, TheModeOfDeliveryIsThatOfTheMomentAnOrderIsTaken) {
    Bench bench;
    ExistingCacheUpdateQueues empty;
    bench.worker_.SetExistingUncompressedCacheUpdateQueues(&empty);
    bench.Push(0);
    bench.worker_.Start();
    while (bench.queue_.GetSize() > 0) {
        std::this_thread::yield();
    }
    bench.worker_.Stop();
    bench.worker_.SetExistingUncompressedCacheUpdateQueues(nullptr);
    bench.Push(1);
    bench.worker_.Start();
    ASSERT_TRUE(bench.WaitForAnswers(1));
    EXPECT_EQ(bench.answered_, Numbers({1}));
}

TEST(DecodeThread, StopFinishesTheOrderInProgressAndLeavesTheOthers) {
    Bench bench;
    bench.decoder_.Calls().Hold();
    for (const std::int64_t number : UpTo(3)) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.decoder_.Calls().Entered().WaitFor(1));
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        bench.worker_.Stop();
        stopped = true;
    });
    LetOthersRun(100ms);  // for the stop to be asked for
    EXPECT_FALSE(stopped);
    bench.decoder_.Calls().Release();
    stopper.join();
    EXPECT_TRUE(bench.WaitForAnswers(1));
    EXPECT_EQ(bench.queue_.GetSize(), 2u);
}

TEST(DecodeThread, ARestartServesTheOrdersThatWaited) {
    Bench bench;
    bench.worker_.Start();
    bench.worker_.Stop();
    bench.Push(0);
    bench.Push(1);
    bench.worker_.Start();
    ASSERT_TRUE(bench.WaitForAnswers(2));
    EXPECT_EQ(bench.answered_, UpTo(2));
}

TEST(DecodeThread, StartTwiceLeavesExactlyOneThread) {
    Bench bench;
    EXPECT_TRUE(bench.worker_.Start());
    EXPECT_TRUE(bench.worker_.Start());
    bench.decoder_.Calls().Hold();
    bench.Push(0);
    bench.Push(1);
    ASSERT_TRUE(bench.decoder_.Calls().Entered().WaitFor(1));
    LetOthersRun();
    EXPECT_EQ(bench.decoder_.Calls().Entered().Value(), 1);
    bench.decoder_.Calls().Release();
    EXPECT_TRUE(bench.WaitForAnswers(2));
}

TEST(DecodeThread, TheDestructorStopsTheThread) {
    Bench bench;
    {
        DecodeThread worker;
        worker.SetDecoder(&bench.decoder_);
        worker.AddDecodeOrderQueue(&bench.queue_);
        worker.Start();
        bench.Push(0);
        ASSERT_TRUE(bench.WaitForAnswers(1));
    }
    bench.Push(1);
    LetOthersRun();
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(DecodeThread, AQueueAttachedWhileItRunsIsServed) {
    Bench bench;
    DecodeOrderQueue late;
    bench.worker_.Start();
    bench.worker_.AddDecodeOrderQueue(&late);
    late.Push(OrderAt(9, bench.compressed_, &bench.answers_));
    EXPECT_TRUE(bench.WaitForAnswers(1));
    bench.worker_.Stop();  // before the queue goes
}

TEST(DecodeThread, AQueueRemovedWhileItRunsIsNotServed) {
    Bench bench;
    bench.worker_.Start();
    bench.Push(0);
    ASSERT_TRUE(bench.WaitForAnswers(1));
    bench.worker_.RemoveDecodeOrderQueue(&bench.queue_);
    bench.Push(1);
    LetOthersRun();
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(DecodeThread, NoLockOfTheWorkerIsHeldDuringADecode) {
    Bench bench;
    DecodeOrderQueue other;
    bench.decoder_.Script([&](const DecodeOrder&) -> ISample* {
        bench.worker_.AddDecodeOrderQueue(&other);
        bench.worker_.RemoveDecodeOrderQueue(&other);
        bench.worker_.GetInformation();
        DecodeOrder none;
        bench.worker_.Dequeue(none);
        bench.queue_.GetSize();
        return nullptr;
    });
    bench.worker_.Start();
    bench.Push(0);
    EXPECT_TRUE(bench.WaitForAnswers(1));
}

TEST(DecodeThreadDeathTest, AnExceptionThatIsNoRuntimeErrorEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            Bench bench;
            bench.decoder_.Script([](const DecodeOrder&) -> ISample* { throw std::logic_error("a bug"); });
            bench.Push(0);
            bench.worker_.Start();
            static_cast<void>(bench.WaitForAnswers(1));
        },
        "a bug");
}

// ---- Workers that share the semaphore ---------------------------------------------------------------------

/// A bench with a second worker for the same queue.
struct PairBench : Bench {
    PairBench() {
        second_.SetDecoder(&decoder_);
        second_.AddDecodeOrderQueue(&queue_);
    }
    ~PairBench() { decoder_.Calls().Release(); }

    DecodeThread second_;
};

TEST(DecodeThreads, StoppingOneDoesNotStopTheOther) {
    PairBench bench;
    bench.worker_.Start();
    bench.second_.Start();
    bench.second_.Stop();
    bench.Push(0);
    EXPECT_TRUE(bench.WaitForAnswers(1));
}

TEST(DecodeThreads, TwoDecodeAtTheSameTimeAlsoThroughOneRegistry) {
    PairBench bench;
    ExistingCacheUpdateQueues registry;
    registry.InsertExistingQueue(&bench.answers_);
    bench.worker_.SetExistingUncompressedCacheUpdateQueues(&registry);
    bench.second_.SetExistingUncompressedCacheUpdateQueues(&registry);
    bench.worker_.Start();
    bench.second_.Start();
    bench.decoder_.Calls().Hold();
    bench.Push(0);
    bench.Push(1);
    EXPECT_TRUE(bench.decoder_.Calls().Entered().WaitFor(2));
    bench.decoder_.Calls().Release();
    EXPECT_TRUE(bench.WaitForAnswers(2));
    bench.worker_.Stop();  // before the registry goes
    bench.second_.Stop();
}

TEST(DecodeThreads, StopReturnsWhileManyOthersSleepOnTheSameSemaphore) {
    std::vector<std::unique_ptr<DecodeThread>> idle;
    for (int i = 0; i < 4; ++i) {
        idle.push_back(std::make_unique<DecodeThread>());
        idle.back()->Start();
    }
    LetOthersRun();
    for (int i = 0; i < 25; ++i) {
        Bench bench;
        bench.worker_.Start();
        bench.Push(0);
        DecodeThread::OneSampleReadyForDecoding();  // the idle ones may take the push's unit
        bench.worker_.Stop();
    }
}

TEST(DecodeThreads, AUnitForAnotherWorkersQueueTakesNoOrder) {
    Bench bench;
    DecodeOrderQueue foreign;
    bench.worker_.Start();
    foreign.Push(OrderAt(0, bench.compressed_, &bench.answers_));
    LetOthersRun();
    EXPECT_EQ(foreign.GetSize(), 1u);
    bench.Push(1);
    ASSERT_TRUE(bench.WaitForAnswers(1));
    EXPECT_EQ(bench.answered_, Numbers({1}));
}

TEST(DecodeThreads, HundredsOfQuickStartsAndStopsEnd) {
    Bench bench;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(bench.worker_.Start());
        bench.worker_.Stop();
    }
}

TEST(DecodeThreads, HundredsOfQuickRestartsLoseNoOrderAndServeNoneTwice) {
    Bench bench;
    for (const std::int64_t number : UpTo(300)) {
        bench.Push(number);
        bench.worker_.Start();
    }
    ASSERT_TRUE(bench.WaitForAnswers(300));
    EXPECT_EQ(bench.answered_, UpTo(300));
}

}  // namespace
}  // namespace Tavrin::Player
