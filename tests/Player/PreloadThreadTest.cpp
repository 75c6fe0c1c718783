#include "Player/PreloadThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using namespace qor::kp::logging;
using Testing::LetOthersRun;
using Testing::LogLine;
using Testing::Observed;
using Testing::OrderAt;
using Testing::ScopedRecorder;
using Testing::ScriptedPreloader;
using Testing::SpendAtLeast;
using Numbers = std::vector<std::int64_t>;

// ---- The worker's thread ----------------------------------------------------------------------------------

/// A worker with one queue, which answers nothing and is stopped by its destructor.
struct Bench {
    Bench() {
        worker_.SetPreloader(&preloader_);
        worker_.SetPreloadOrderQueue(&queue_);
    }
    // A test that fails while a call is held must not hang in the worker's destructor.
    ~Bench() {
        preloader_.Calls().Release();
        worker_.AfterVainLook().Release();
    }

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
    ASSERT_TRUE(bench.worker_.AfterVainLook().WaitUntilHeld());
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
    bench.preloader_.Calls().Hold();
    for (const std::int64_t number : {1, 2, 3}) {
        bench.Push(number);
    }
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    std::thread stopper([&] { bench.worker_.Stop(); });
    while (!bench.worker_.AskedToStop()) {
        std::this_thread::yield();
    }
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
    ASSERT_TRUE(other.VainLooks().WaitFor(2));  // it has slept, and taken a unit
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
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
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

TEST(PreloadThread, ASlowPreloadIsLoggedOnceOnly) {
    Bench bench;
    bench.preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(101ms);
        return IPreloader::SUCCESS_EXIST;
    });
    ASSERT_TRUE(bench.worker_.ProcessOrder(OrderAt(1, &bench.answers_)));
    const std::vector<LogLine> lines = bench.log_->Take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level_, Level_Trace);
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
    bench.worker_.AfterVainLook().Hold();
    PreloadThread::OneSampleReadyForPreload();
    ASSERT_TRUE(bench.worker_.AfterVainLook().WaitUntilHeld());
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

TEST(PreloadThreads, AnOrderWhoseUnitWokeAWorkerOfAnotherQueueIsServedWhenItsOwnComesBack) {
    Bench bench;
    Observed<PreloadThread> foreign;
    foreign.Start();
    bench.preloader_.Calls().Hold();
    bench.worker_.Start();
    bench.Push(1);
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    ASSERT_TRUE(foreign.VainLooks().WaitFor(1));
    const int looks = foreign.VainLooks().Value();
    bench.Push(2);
    ASSERT_TRUE(foreign.VainLooks().WaitFor(looks + 1));
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
    bench.preloader_.Calls().Release();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

TEST(PreloadThreads, AnOrderIsServedAlthoughManyWorkersOfOtherQueuesSleepToo) {
    Bench bench;
    PreloadOrderQueue empty;
    std::vector<std::unique_ptr<Observed<PreloadThread>>> foreign;
    for (int i = 0; i < 4; ++i) {
        foreign.push_back(std::make_unique<Observed<PreloadThread>>());
        foreign.back()->SetPreloadOrderQueue(&empty);
        foreign.back()->Start();
    }
    bench.worker_.Start();
    for (int number = 1; number <= 200; ++number) {
        bench.Push(number);
        ASSERT_TRUE(bench.preloader_.Done().WaitFor(number)) << "nobody came for order " << number;
    }
    foreign.clear();
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
