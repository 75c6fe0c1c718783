#include "Player/DecodeThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Player/Support/CountedSample.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using Testing::CountedSample;
using Testing::Drain;
using Testing::LetOthersRun;
using Testing::Ms;
using Testing::SampleCensus;
using Testing::ScopedRecorder;
using Testing::ScriptedDecoder;
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

/// Stops a worker that is inside the decode of the first of three orders, and returns how many are left.
std::size_t NbLeftByAStop() {
    Bench bench;
    bench.decoder_.Calls().Hold();
    for (const std::int64_t number : UpTo(3)) {
        bench.Push(number);
    }
    bench.worker_.Start();
    EXPECT_TRUE(bench.decoder_.Calls().Entered().WaitFor(1));
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        bench.worker_.Stop();
        stopped = true;
    });
    LetOthersRun();
    EXPECT_FALSE(stopped) << "before the decode ended";
    bench.decoder_.Calls().Release();
    stopper.join();
    const std::size_t nbLeft = bench.queue_.GetSize();
    EXPECT_TRUE(bench.WaitForAnswers(3 - nbLeft));
    return nbLeft;
}

TEST(DecodeThread, StopFinishesTheOrderInProgressAndLeavesTheOthers) {
    // From outside it cannot be seen when the stop has been asked for. Where that came late, more is served.
    std::size_t nbLeft = 0;
    for (int attempt = 0; attempt < 20 && nbLeft < 2; ++attempt) {
        nbLeft = NbLeftByAStop();
    }
    EXPECT_EQ(nbLeft, 2u);
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
