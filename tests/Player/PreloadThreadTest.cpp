#include "Player/PreloadThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using namespace qor::kp::logging;
using Testing::AddressText;
using Testing::LetOthersRun;
using Testing::LogLine;
using Testing::MillisecondsIn;
using Testing::Observed;
using Testing::OrderAt;
using Testing::ScopedRecorder;
using Testing::ScopedSilence;
using Testing::ScriptedPreloader;
using Testing::SpendAtLeast;
using Testing::Track;
using Numbers = std::vector<std::int64_t>;

/// The sample numbers of everything that `Dequeue` yields, in its order.
Numbers TakeAll(IPreloadThread& worker) {
    Numbers numbers;
    PreloadOrder order;
    while (worker.Dequeue(order)) {
        numbers.push_back(order.tp_.SampleNumber(order.s_));
    }
    return numbers;
}

void PushNumbers(PreloadOrderQueue& queue, const Numbers& numbers, CacheUpdateQueue* answers = nullptr) {
    for (const std::int64_t number : numbers) {
        queue.Push(OrderAt(number, answers));
    }
}

// ---- The turn of the queues -------------------------------------------------------------------------------

class PreloadThreadTurn : public testing::Test {
protected:
    PreloadOrderQueue a_;
    PreloadOrderQueue b_;
    PreloadOrderQueue c_;
    PreloadThread worker_;
    PreloadOrder order_;
};

TEST_F(PreloadThreadTurn, WithoutAnyQueueDequeueReturnsFalseAndLeavesTheOrderAlone) {
    order_ = OrderAt(7, nullptr);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(order_, OrderAt(7, nullptr));
}

TEST_F(PreloadThreadTurn, WithEmptyQueuesDequeueReturnsFalseAndLeavesTheOrderAlone) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&b_);
    order_ = OrderAt(7, nullptr);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(order_, OrderAt(7, nullptr));
}

TEST_F(PreloadThreadTurn, AfterTheLastQueueIsRemovedDequeueReturnsFalse) {
    worker_.SetPreloadOrderQueue(&a_);
    PushNumbers(a_, {1, 2});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.RemovePreloadOrderQueue(&a_);
    EXPECT_FALSE(worker_.Dequeue(order_));
    EXPECT_EQ(a_.GetSize(), 1u);
}

TEST_F(PreloadThreadTurn, AQueueAttachedAgainAfterAllWereRemovedIsServed) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.RemovePreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&b_);
    PushNumbers(b_, {4});
    EXPECT_EQ(TakeAll(worker_), Numbers({4}));
}

TEST_F(PreloadThreadTurn, ThreeFullQueuesYieldOneOrderEachInTurn) {
    for (PreloadOrderQueue* queue : {&a_, &b_, &c_}) {
        worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(a_, {10, 11, 12});
    PushNumbers(b_, {20, 21, 22});
    PushNumbers(c_, {30, 31, 32});
    EXPECT_EQ(TakeAll(worker_), Numbers({10, 20, 30, 11, 21, 31, 12, 22, 32}));
}

TEST_F(PreloadThreadTurn, IfOnlyTheThirdQueueHoldsOrdersEveryOneComesFromIt) {
    for (PreloadOrderQueue* queue : {&a_, &b_, &c_}) {
        worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(c_, {30, 31, 32});
    EXPECT_EQ(TakeAll(worker_), Numbers({30, 31, 32}));
}

TEST_F(PreloadThreadTurn, AnEmptyQueueIsSkippedAndKeepsItsPlace) {
    for (PreloadOrderQueue* queue : {&a_, &b_, &c_}) {
        worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(a_, {10, 11});
    PushNumbers(c_, {30, 31});
    EXPECT_EQ(TakeAll(worker_), Numbers({10, 30, 11, 31}));
}

TEST_F(PreloadThreadTurn, AttachingTheSameQueueTwiceAttachesItOnce) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&b_);
    PushNumbers(a_, {10, 11});
    PushNumbers(b_, {20});
    EXPECT_EQ(TakeAll(worker_), Numbers({10, 20, 11}));
}

TEST_F(PreloadThreadTurn, AQueueAttachedTwiceIsGoneAfterOneRemoval) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&a_);
    worker_.RemovePreloadOrderQueue(&a_);
    PushNumbers(a_, {10});
    EXPECT_FALSE(worker_.Dequeue(order_));
}

TEST_F(PreloadThreadTurn, RemovingAQueueRestartsTheScanAtTheFirst) {
    for (PreloadOrderQueue* queue : {&a_, &b_, &c_}) {
        worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(a_, {10, 11});
    PushNumbers(b_, {20});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.RemovePreloadOrderQueue(&c_);
    EXPECT_EQ(TakeAll(worker_), Numbers({11, 20}));
}

TEST_F(PreloadThreadTurn, TheOtherQueuesKeepTheirOrderWhenOneIsRemoved) {
    for (PreloadOrderQueue* queue : {&a_, &b_, &c_}) {
        worker_.SetPreloadOrderQueue(queue);
    }
    worker_.RemovePreloadOrderQueue(&a_);
    PushNumbers(c_, {30});
    PushNumbers(b_, {20});
    EXPECT_EQ(TakeAll(worker_), Numbers({20, 30}));
}

TEST_F(PreloadThreadTurn, RemovingAQueueThatIsNotAttachedKeepsTheTurn) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&b_);
    PushNumbers(a_, {10, 11});
    PushNumbers(b_, {20});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.RemovePreloadOrderQueue(&c_);
    EXPECT_EQ(TakeAll(worker_), Numbers({20, 11}));
}

TEST_F(PreloadThreadTurn, ALookInVainKeepsTheTurn) {
    worker_.SetPreloadOrderQueue(&a_);
    worker_.SetPreloadOrderQueue(&b_);
    PushNumbers(a_, {10});
    ASSERT_TRUE(worker_.Dequeue(order_));
    ASSERT_FALSE(worker_.Dequeue(order_));
    PushNumbers(a_, {11});
    PushNumbers(b_, {20});
    EXPECT_EQ(TakeAll(worker_), Numbers({20, 11}));
}

TEST_F(PreloadThreadTurn, AQueueAttachedAfterTheLastOneWasServedIsNext) {
    worker_.SetPreloadOrderQueue(&a_);
    PushNumbers(a_, {10, 11});
    ASSERT_TRUE(worker_.Dequeue(order_));
    worker_.SetPreloadOrderQueue(&b_);
    PushNumbers(b_, {20});
    EXPECT_EQ(TakeAll(worker_), Numbers({20, 11}));
}

// ---- One order --------------------------------------------------------------------------------------------

class PreloadThreadOrder : public testing::Test {
protected:
    PreloadThreadOrder() { worker_.SetPreloader(&preloader_); }

    std::string LineFor(const PreloadOrder& order, const char* result) const {
        return "Thread " + AddressText(&worker_) + ": T" + std::to_string(order.id_.Id()) + ": preload tp " +
               order.tp_.ToString() + " (" + std::to_string(order.tp_.SampleNumber(order.s_)) +
               "): " + result + " in ";
    }

    /// Runs one order whose preload ends as `result`, and expects its one line.
    void ExpectOneLine(IPreloader::PreloadResult result, const char* name) {
        preloader_.Script([&](const PreloadOrder&) { return result; });
        EXPECT_TRUE(worker_.ProcessOrder(order_));
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].text_.rfind(LineFor(order_, name), 0), 0u) << lines[0];
        EXPECT_GE(MillisecondsIn(lines[0].text_), 0) << lines[0];
        EXPECT_EQ(lines[0].level_, Level_Trace);
        EXPECT_EQ(lines[0].file_, "Player/PreloadThread");
        EXPECT_GT(lines[0].line_, 0);
    }

    void ExpectOneWarning(const std::string& text) {
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].text_, text);
        EXPECT_EQ(lines[0].level_, Level_Warning);
        EXPECT_EQ(lines[0].file_, "Player/PreloadThread");
        EXPECT_GT(lines[0].line_, 0);
    }

    ScopedRecorder log_{"PreloadThread"};
    CacheUpdateQueue answers_;
    ScriptedPreloader preloader_;
    PreloadThread worker_;
    PreloadOrder order_ = OrderAt(26, &answers_, 7);
};

TEST_F(PreloadThreadOrder, ThePreloaderGetsTheWholeOrder) {
    order_.SetPriority(3);
    ASSERT_TRUE(worker_.ProcessOrder(order_));
    const PreloadOrder seen = preloader_.Orders().at(0);
    EXPECT_EQ(seen.tp_, order_.tp_);
    EXPECT_EQ(seen.s_, order_.s_);
    EXPECT_EQ(seen.queue_, &answers_);
    EXPECT_EQ(seen.id_, Track(7));
    EXPECT_EQ(seen.Priority(), 3);
}

TEST_F(PreloadThreadOrder, WithoutAQueueItIsDroppedWithAWarning) {
    order_.queue_ = nullptr;
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    ExpectOneWarning("Queue or preloader is NULL for order at 1.040000000");
    EXPECT_TRUE(preloader_.Orders().empty());
}

TEST_F(PreloadThreadOrder, WithoutAPreloaderItIsDroppedWithAWarning) {
    PreloadThread worker;
    EXPECT_FALSE(worker.ProcessOrder(order_));
    ExpectOneWarning("Queue or preloader is NULL for order at 1.040000000");
}

TEST_F(PreloadThreadOrder, ASampleThatExistsIsLogged) {
    ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
}

TEST_F(PreloadThreadOrder, ASampleThatIsMissingIsLogged) {
    ExpectOneLine(IPreloader::SUCCESS_MISSING, "SUCCESS_MISSING");
}

TEST_F(PreloadThreadOrder, AnErrorResultCountsAsProcessedAndIsLoggedLikeAnyOther) {
    ExpectOneLine(IPreloader::ERROR, "ERROR");
}

TEST_F(PreloadThreadOrder, AResultOutsideTheThreeIsCalledUnknown) {
    ExpectOneLine(static_cast<IPreloader::PreloadResult>(3), "Unknown PreloadResult type");
}

TEST_F(PreloadThreadOrder, TheSampleNumberInTheLineIsCountedAtTheOrdersOwnRate) {
    order_.s_ = SampleRate(50, 1);
    ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
    EXPECT_NE(LineFor(order_, "").find("(52)"), std::string::npos);
}

TEST_F(PreloadThreadOrder, WithARateThatNobodySetTheSampleNumberInTheLineIsZero) {
    order_.s_ = SampleRate();
    ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
    EXPECT_NE(LineFor(order_, "").find("(0)"), std::string::npos);
}

TEST_F(PreloadThreadOrder, AStandardExceptionBecomesAWarning) {
    preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult {
        throw std::out_of_range("no such block");
    });
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    ExpectOneWarning("Could not preload aligned order on 10.0.0.2:5000:T7 at 1.040000000: no such block");
}

TEST_F(PreloadThreadOrder, AnythingElseThrownBecomesAWarningToo) {
    preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult { throw 42; });
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    ExpectOneWarning("Could not preload aligned order on 10.0.0.2:5000:T7 at 1.040000000: unknown exception");
}

TEST_F(PreloadThreadOrder, AtADebugLevelTheTraceLineIsNotSent) {
    log_->SetLevel(Level_Debug);
    EXPECT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(PreloadThreadOrder, AtTheWarningLevelWarningsAreStillSent) {
    log_->SetLevel(Level_Warning);
    order_.queue_ = nullptr;
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    EXPECT_EQ(log_->Take().size(), 1u);
}

TEST_F(PreloadThreadOrder, AboveTheWarningLevelNothingIsSent) {
    log_->SetLevel(Level_Error);
    preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult { throw std::logic_error("x"); });
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    order_.queue_ = nullptr;
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(PreloadThreadOrder, WithoutALoggerEverythingStillHappens) {
    const ScopedSilence silence("PreloadThread");
    PreloadThread worker;
    EXPECT_FALSE(worker.ProcessOrder(order_));
    worker.SetPreloader(&preloader_);
    EXPECT_TRUE(worker.ProcessOrder(order_));
    preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult { throw std::logic_error("x"); });
    EXPECT_FALSE(worker.ProcessOrder(order_));
    EXPECT_EQ(preloader_.Orders().size(), 2u);
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(PreloadThreadOrder, TheLoggerIsTheOneOfTheConstruction) {
    const ScopedRecorder later("PreloadThread");
    EXPECT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_TRUE(later->Take().empty());
    EXPECT_EQ(log_->Take().size(), 1u);
}

TEST_F(PreloadThreadOrder, SetPreloaderReturnsTheSameHandleEveryTime) {
    ScriptedPreloader other;
    EXPECT_EQ(worker_.SetPreloader(&other), 1);
    EXPECT_EQ(worker_.SetPreloader(nullptr), 1);
}

TEST_F(PreloadThreadOrder, ASecondPreloaderReplacesTheFirst) {
    ScriptedPreloader other;
    worker_.SetPreloader(&other);
    EXPECT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_EQ(other.Orders().size(), 1u);
    EXPECT_TRUE(preloader_.Orders().empty());
}

TEST_F(PreloadThreadOrder, RemovePreloaderRemovesItWhateverTheHandle) {
    worker_.RemovePreloader(-99);
    EXPECT_FALSE(worker_.ProcessOrder(order_));
    EXPECT_TRUE(preloader_.Orders().empty());
    worker_.SetPreloader(&preloader_);
    EXPECT_TRUE(worker_.ProcessOrder(order_));
}

TEST_F(PreloadThreadOrder, SetStoredPreloadOrderSizeChangesNothing) {
    worker_.SetStoredPreloadOrderSize(0);
    EXPECT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_EQ(preloader_.Orders().size(), 1u);
}

// ---- Statistics -------------------------------------------------------------------------------------------

TEST_F(PreloadThreadOrder, AFreshWorkerReportsZeroTwice) {
    EXPECT_EQ(worker_.GetInformation().averagePreloadTimeMilliseconds_, 0u);
    EXPECT_EQ(worker_.GetInformation().maxPreloadTimeMilliseconds_, 0u);
}

TEST_F(PreloadThreadOrder, TheAverageIsThatOfTheLoggedDurationsTruncated) {
    std::int64_t sum = 0;
    for (const auto span : {1ms, 2ms, 5ms}) {
        preloader_.Script([&](const PreloadOrder&) {
            SpendAtLeast(span);
            return IPreloader::SUCCESS_EXIST;
        });
        ASSERT_TRUE(worker_.ProcessOrder(order_));
        const std::int64_t logged = MillisecondsIn(log_->TakeTexts().at(0));
        EXPECT_GE(logged, span.count());
        sum += logged;
    }
    EXPECT_EQ(worker_.GetInformation().averagePreloadTimeMilliseconds_, sum / 3);
}

TEST_F(PreloadThreadOrder, TheMaximumStaysZero) {
    preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(2ms);
        return IPreloader::SUCCESS_EXIST;
    });
    ASSERT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_EQ(worker_.GetInformation().maxPreloadTimeMilliseconds_, 0u);
}

TEST_F(PreloadThreadOrder, AnErrorResultRecordsItsDuration) {
    preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(3ms);
        return IPreloader::ERROR;
    });
    ASSERT_TRUE(worker_.ProcessOrder(order_));
    EXPECT_GE(worker_.GetInformation().averagePreloadTimeMilliseconds_, 3u);
}

TEST_F(PreloadThreadOrder, AnExceptionRecordsNoDuration) {
    preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult {
        SpendAtLeast(3ms);
        throw std::runtime_error("x");
    });
    ASSERT_FALSE(worker_.ProcessOrder(order_));
    EXPECT_EQ(worker_.GetInformation().averagePreloadTimeMilliseconds_, 0u);
}

TEST_F(PreloadThreadOrder, TheAverageIsOverTheFiftyMostRecentDurations) {
    preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(100ms);
        return IPreloader::SUCCESS_EXIST;
    });
    ASSERT_TRUE(worker_.ProcessOrder(order_));
    preloader_.Script(nullptr);
    log_->Take();
    std::int64_t sum = 0;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(worker_.ProcessOrder(order_));
        sum += MillisecondsIn(log_->TakeTexts().at(0));
    }
    EXPECT_EQ(worker_.GetInformation().averagePreloadTimeMilliseconds_, sum / 50);
}

// ---- The worker's thread ----------------------------------------------------------------------------------

/// A worker with one queue, which answers nothing and is stopped by its destructor.
struct Bench {
    Bench() {
        worker_.SetPreloader(&preloader_);
        worker_.SetPreloadOrderQueue(&queue_);
    }
    // A test that fails while a call is held must not hang in the worker's destructor.
    ~Bench() { preloader_.Calls().Release(); }

    void Push(std::int64_t number) { queue_.Push(OrderAt(number, &answers_)); }

    ScopedRecorder log_{"PreloadThread"};
    CacheUpdateQueue answers_;
    PreloadOrderQueue queue_;
    ScriptedPreloader preloader_;
    Observed<PreloadThread> worker_;
};

TEST(PreloadThread, StopOfAWorkerNeverStartedReturnsAtOnce) {
    PreloadThread worker;
    worker.Stop();
    worker.Stop();
}

TEST(PreloadThread, StopTwiceIsHarmless) {
    Bench bench;
    EXPECT_TRUE(bench.worker_.Start());
    bench.worker_.Stop();
    bench.worker_.Stop();
}

TEST(PreloadThread, ConstructionStartsNoThread) {
    Bench bench;
    bench.Push(1);
    LetOthersRun();
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(PreloadThread, OrdersPushedBeforeTheStartAreServedInOrder) {
    Bench bench;
    for (std::int64_t number = 0; number < 20; ++number) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(20));
    const Numbers numbers = bench.preloader_.Numbers();
    for (std::int64_t number = 0; number < 20; ++number) {
        EXPECT_EQ(numbers[static_cast<std::size_t>(number)], number);
    }
}

TEST(PreloadThread, AnOrderPushedToASleepingWorkerIsServed) {
    Bench bench;
    bench.worker_.Start();
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    bench.Push(5);
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(PreloadThread, AnOrderPushedBetweenALookInVainAndTheSleepIsServed) {
    Bench bench;
    bench.worker_.AfterVainLook().Hold();
    bench.worker_.Start();
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    bench.Push(5);
    bench.worker_.AfterVainLook().Release();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(PreloadThread, OrdersPushedWhileTheWorkerIsBusyAreServed) {
    Bench bench;
    bench.preloader_.Calls().Hold();
    bench.worker_.Start();
    bench.Push(1);
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    bench.Push(2);
    bench.Push(3);
    bench.preloader_.Calls().Release();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(3));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 2, 3}));
}

TEST(PreloadThread, GoesOnWithTheNextOrderAfterAnyException) {
    Bench bench;
    bench.preloader_.Script([](const PreloadOrder& order) -> IPreloader::PreloadResult {
        if (order.tp_ == OrderAt(1, nullptr).tp_) {
            throw std::runtime_error("first");
        }
        if (order.tp_ == OrderAt(2, nullptr).tp_) {
            throw "second";
        }
        return IPreloader::SUCCESS_EXIST;
    });
    for (const std::int64_t number : {1, 2, 3}) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(1));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 2, 3}));
}

TEST(PreloadThread, GoesOnWithTheNextOrderAfterOneWithoutAQueue) {
    Bench bench;
    bench.queue_.Push(OrderAt(1, nullptr));
    bench.Push(2);
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(1));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({2}));
}

TEST(PreloadThread, AnOrderAnsweredWithErrorIsNotRetried) {
    Bench bench;
    bench.preloader_.Script([](const PreloadOrder&) { return IPreloader::ERROR; });
    bench.Push(1);
    bench.Push(2);
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(2));
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 2}));
}

TEST(PreloadThread, StopFinishesTheOrderInProgressAndLeavesTheOthers) {
    Bench bench;
    Observed<PreloadThread> idle;  // sees the units that Stop signals, and so that the stop was asked for
    idle.Start();
    ASSERT_TRUE(idle.VainLooks().WaitFor(1));
    bench.preloader_.Calls().Hold();
    for (const std::int64_t number : {1, 2, 3}) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    const int looksBefore = idle.VainLooks().Value() + 4;  // three pushes may still wake it
    std::thread stopper([&] { bench.worker_.Stop(); });
    EXPECT_TRUE(idle.VainLooks().WaitFor(looksBefore));
    EXPECT_EQ(bench.preloader_.Done().Value(), 0);
    bench.preloader_.Calls().Release();
    stopper.join();
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1}));
    EXPECT_EQ(bench.preloader_.Done().Value(), 1);
    EXPECT_EQ(bench.queue_.GetSize(), 2u);
}

TEST(PreloadThread, ARestartServesTheOrdersThatWaited) {
    Bench bench;
    bench.worker_.Start();
    bench.worker_.Stop();
    bench.Push(1);
    bench.Push(2);
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(2));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 2}));
}

TEST(PreloadThread, ARestartServesOrdersWhoseUnitsWereTakenByAnotherWorker) {
    Bench bench;
    Observed<PreloadThread> other;
    bench.Push(1);
    bench.Push(2);
    other.Start();
    ASSERT_TRUE(other.VainLooks().WaitFor(3));
    bench.worker_.Start();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

TEST(PreloadThread, StartTwiceLeavesExactlyOneThread) {
    Bench bench;
    EXPECT_TRUE(bench.worker_.Start());
    EXPECT_TRUE(bench.worker_.Start());
    bench.preloader_.Calls().Hold();
    bench.Push(1);
    bench.Push(2);
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    LetOthersRun();
    EXPECT_EQ(bench.preloader_.Calls().Entered().Value(), 1);
    bench.preloader_.Calls().Release();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

TEST(PreloadThread, StartStopsThroughTheVirtualOperation) {
    Bench bench;
    bench.worker_.Start();
    EXPECT_EQ(bench.worker_.NbStops(), 1);
    bench.worker_.Start();
    EXPECT_EQ(bench.worker_.NbStops(), 2);
}

TEST(PreloadThread, TheDestructorStopsTheThread) {
    PreloadOrderQueue queue;
    ScriptedPreloader preloader;
    CacheUpdateQueue answers;
    {
        PreloadThread worker;
        worker.SetPreloader(&preloader);
        worker.SetPreloadOrderQueue(&queue);
        worker.Start();
        queue.Push(OrderAt(1, &answers));
        ASSERT_TRUE(preloader.Done().WaitFor(1));
    }
    queue.Push(OrderAt(2, &answers));
    LetOthersRun();
    EXPECT_EQ(preloader.Numbers(), Numbers({1}));
    EXPECT_EQ(queue.GetSize(), 1u);
}

TEST(PreloadThread, AStoppedWorkerServesNothing) {
    Bench bench;
    bench.worker_.Start();
    bench.worker_.Stop();
    bench.Push(1);
    LetOthersRun();
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(PreloadThread, AQueueAttachedWhileItRunsIsServed) {
    Bench bench;
    PreloadOrderQueue late;
    bench.worker_.Start();
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    bench.worker_.SetPreloadOrderQueue(&late);
    late.Push(OrderAt(9, &bench.answers_));
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
    bench.worker_.Stop();  // before the queue goes
}

TEST(PreloadThread, AQueueRemovedWhileItRunsIsNotServed) {
    Bench bench;
    bench.worker_.Start();
    bench.worker_.RemovePreloadOrderQueue(&bench.queue_);
    const int looks = bench.worker_.VainLooks().Value();
    bench.Push(1);
    EXPECT_TRUE(bench.worker_.VainLooks().WaitFor(looks + 1));
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(PreloadThread, NoLockOfTheWorkerIsHeldDuringAPreload) {
    Bench bench;
    PreloadOrderQueue other;
    bench.preloader_.Script([&](const PreloadOrder&) {
        bench.worker_.SetPreloadOrderQueue(&other);
        bench.worker_.RemovePreloadOrderQueue(&other);
        bench.worker_.GetInformation();
        PreloadOrder none;
        bench.worker_.PreloadThread::Dequeue(none);
        bench.queue_.GetSize();
        return IPreloader::SUCCESS_EXIST;
    });
    bench.worker_.Start();
    bench.Push(1);
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(PreloadThread, StopFromItsOwnThreadIsRefusedInsteadOfWaitingForItself) {
    Bench bench;
    bench.preloader_.Script([&](const PreloadOrder& order) {
        if (order.tp_ == OrderAt(1, nullptr).tp_) {
            EXPECT_THROW(bench.worker_.Stop(), std::logic_error);
        }
        return IPreloader::SUCCESS_EXIST;
    });
    bench.worker_.Start();
    bench.Push(1);
    bench.Push(2);
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

// ---- Workers that share the semaphore ---------------------------------------------------------------------

TEST(PreloadThreads, StoppingOneDoesNotStopTheOther) {
    Bench bench;
    Observed<PreloadThread> other;
    other.SetPreloader(&bench.preloader_);
    other.SetPreloadOrderQueue(&bench.queue_);
    bench.worker_.Start();
    other.Start();
    other.Stop();
    bench.Push(1);
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(PreloadThreads, TwoServeTwoOrdersAtTheSameTime) {
    Bench bench;
    Observed<PreloadThread> other;
    other.SetPreloader(&bench.preloader_);
    other.SetPreloadOrderQueue(&bench.queue_);
    bench.worker_.Start();
    other.Start();
    bench.preloader_.Calls().Hold();
    bench.Push(1);
    bench.Push(2);
    EXPECT_TRUE(bench.preloader_.Calls().Entered().WaitFor(2));
    bench.preloader_.Calls().Release();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

TEST(PreloadThreads, StopReturnsWhileManyOthersSleepOnTheSameSemaphore) {
    std::vector<std::unique_ptr<Observed<PreloadThread>>> idle;
    for (int i = 0; i < 4; ++i) {
        idle.push_back(std::make_unique<Observed<PreloadThread>>());
        idle.back()->Start();
    }
    for (int i = 0; i < 25; ++i) {
        Observed<PreloadThread> worker;
        worker.Start();
        ASSERT_TRUE(worker.VainLooks().WaitFor(1));
        worker.Stop();
    }
}

TEST(PreloadThreads, AWorkerWokenForNothingSleepsAgainAndKeepsItsTurn) {
    Bench bench;
    PreloadOrderQueue second;
    bench.worker_.SetPreloadOrderQueue(&second);
    bench.worker_.Start();
    bench.Push(1);  // the turn is now at the second queue
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(1));
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    bench.worker_.AfterVainLook().Hold();
    const int held = bench.worker_.AfterVainLook().Entered().Value();
    PreloadThread::OneSampleReadyForPreload();
    ASSERT_TRUE(bench.worker_.AfterVainLook().Entered().WaitFor(held + 1));
    bench.Push(2);
    second.Push(OrderAt(3, &bench.answers_));
    bench.worker_.AfterVainLook().Release();
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(3));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 3, 2}));
    bench.worker_.Stop();  // before the second queue goes
}

TEST(PreloadThreads, AUnitForAnotherWorkersQueueTakesNoOrder) {
    Bench bench;
    PreloadOrderQueue foreign;
    bench.worker_.Start();
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    const int looks = bench.worker_.VainLooks().Value();
    foreign.Push(OrderAt(1, &bench.answers_));
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(looks + 1));
    EXPECT_EQ(foreign.GetSize(), 1u);
    EXPECT_EQ(bench.worker_.Finds().Value(), 0);
}

TEST(PreloadThreads, HundredsOfQuickStartsAndStopsEnd) {
    Bench bench;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(bench.worker_.Start());
        bench.worker_.Stop();
    }
}

TEST(PreloadThreads, HundredsOfQuickRestartsLoseNoOrderAndServeNoneTwice) {
    Bench bench;
    for (std::int64_t number = 0; number < 300; ++number) {
        bench.Push(number);
        bench.worker_.Start();
    }
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(300));
    Numbers expected;
    for (std::int64_t number = 0; number < 300; ++number) {
        expected.push_back(number);
    }
    EXPECT_EQ(bench.preloader_.Numbers(), expected);
}

}  // namespace
}  // namespace Tavrin::Player
