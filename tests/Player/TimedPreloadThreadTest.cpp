#include "Player/TimedPreloadThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/PreloadThread.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using namespace qor::kp::logging;
using Testing::kFailureBound;
using Testing::LetOthersRun;
using Testing::LogLine;
using Testing::MillisecondsIn;
using Testing::Observed;
using Testing::OrderAt;
using Testing::ScopedRecorder;
using Testing::ScriptedPreloader;
using Testing::SpendAtLeast;
using Testing::Track;
using Clock = std::chrono::steady_clock;
using Numbers = std::vector<std::int64_t>;

constexpr std::size_t kNbSlots = 50;

/// The slot of 20 ms of the steady clock's second that this moment falls in.
std::size_t SlotNow() {
    const auto nanoseconds = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    return static_cast<std::size_t>(nanoseconds % 1'000'000'000 / 20'000'000);
}

/// A pass of `SendAwaitingOrders` and the slot it ran in; `certain_` unless a slot ended meanwhile.
struct Pass {
    std::size_t nbSent_ = 0;
    std::size_t slot_ = 0;
    bool certain_ = false;
};

Pass SendNow(TimedPreloadThread& worker) {
    const std::size_t before = SlotNow();
    const std::size_t nbSent = worker.SendAwaitingOrders();
    return {nbSent, before, SlotNow() == before};
}

/// Sends again and again until `done`; false when that takes implausibly long.
template <typename Done>
bool SendUntil(TimedPreloadThread& worker, Done done) {
    const auto bound = Clock::now() + kFailureBound;
    while (Clock::now() < bound) {
        if (done(SendNow(worker))) {
            return true;
        }
    }
    return false;
}

std::string ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

/// The number of slots that exist, seen from outside: those that a track can be registered in.
std::size_t NbSlots(TimedPreloadThread& worker) {
    for (std::size_t slot = 0;; ++slot) {
        try {
            worker.RegisterOrder(Track(1), slot);
        } catch (const std::runtime_error&) {
            return slot;
        }
    }
}

void RegisterInAllSlots(TimedPreloadThread& worker, std::int64_t track) {
    for (std::size_t slot = 0; slot < kNbSlots; ++slot) {
        worker.RegisterOrder(Track(track), slot);
    }
}

// ---- Slots ------------------------------------------------------------------------------------------------

TEST(TimedPreloadThreadSlots, FiftyUnitsHaveAPeriodOfTwentyMillisecondsAndFiftySlots) {
    TimedPreloadThread worker;
    EXPECT_EQ(worker.SetSendingUnitPeriod(50), 20u);
    EXPECT_EQ(NbSlots(worker), 50u);
}

TEST(TimedPreloadThreadSlots, TwentyFiveUnitsHaveAPeriodOfFortyMillisecondsAndTwentyFiveSlots) {
    TimedPreloadThread worker;
    EXPECT_EQ(worker.SetSendingUnitPeriod(25), 40u);
    EXPECT_EQ(NbSlots(worker), 25u);
}

TEST(TimedPreloadThreadSlots, OneUnitHasAPeriodOfASecondAndOneSlot) {
    TimedPreloadThread worker;
    EXPECT_EQ(worker.SetSendingUnitPeriod(1), 1000u);
    EXPECT_EQ(NbSlots(worker), 1u);
}

TEST(TimedPreloadThreadSlots, ThreeUnitsHaveAPeriodOfAThirdOfASecondAndFourSlots) {
    TimedPreloadThread worker;
    EXPECT_EQ(worker.SetSendingUnitPeriod(3), 333u);
    EXPECT_EQ(NbSlots(worker), 4u);
}

TEST(TimedPreloadThreadSlots, EveryNumberOfUnitsFromOneToAThousandCoversTheSecond) {
    for (int n = 1; n <= 1000; ++n) {
        TimedPreloadThread worker;
        const std::size_t period = worker.SetSendingUnitPeriod(n);
        ASSERT_EQ(period, 1000u / static_cast<unsigned>(n)) << n;
        std::size_t nbSlots = 0;
        for (std::size_t t = 0; t <= 999; t += period) {
            ++nbSlots;
        }
        EXPECT_NO_THROW(worker.RegisterOrder(Track(1), nbSlots - 1)) << n;
        EXPECT_THROW(worker.RegisterOrder(Track(1), nbSlots), std::runtime_error) << n;
    }
}

TEST(TimedPreloadThreadSlots, NumbersOutsideOneToAThousandAreRefusedAndCreateNoSlot) {
    for (const int n : {0, -1, 1001, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        TimedPreloadThread worker;
        EXPECT_THROW(worker.SetSendingUnitPeriod(n), std::runtime_error) << n;
        EXPECT_EQ(NbSlots(worker), 0u) << n;
        EXPECT_EQ(worker.SetSendingUnitPeriod(50), 20u) << n;
    }
}

TEST(TimedPreloadThreadSlots, ASecondSetSendingUnitPeriodThrowsAlsoWithNoTrackRegistered) {
    TimedPreloadThread worker;
    worker.SetSendingUnitPeriod(50);
    EXPECT_EQ(ErrorOf([&] { worker.SetSendingUnitPeriod(25); }), "You called RegisterOrder before this");
    EXPECT_EQ(NbSlots(worker), 50u);
}

TEST(TimedPreloadThreadSlots, RegisteringInASlotThatDoesNotExistThrowsItsNumber) {
    TimedPreloadThread worker;
    EXPECT_EQ(ErrorOf([&] { worker.RegisterOrder(Track(1), 0); }), "Slot 0 not found");
    worker.SetSendingUnitPeriod(50);
    EXPECT_EQ(ErrorOf([&] { worker.RegisterOrder(Track(1), 50); }), "Slot 50 not found");
    EXPECT_EQ(ErrorOf([&] { worker.RegisterOrder(Track(1), std::numeric_limits<std::size_t>::max()); }),
              "Slot 18446744073709551615 not found");
}

TEST(TimedPreloadThreadSlots, ErrorsOfTheSetUpAreThrownAndNotLogged) {
    const ScopedRecorder log("TimedPreloadThread");
    TimedPreloadThread worker;
    EXPECT_THROW(worker.RegisterOrder(Track(1), 0), std::runtime_error);
    EXPECT_THROW(worker.SetSendingUnitPeriod(0), std::runtime_error);
    worker.SetSendingUnitPeriod(50);
    EXPECT_THROW(worker.SetSendingUnitPeriod(50), std::runtime_error);
    EXPECT_TRUE(log->Take().empty());
}

// ---- Sending, driven by hand on a stopped worker ----------------------------------------------------------

/// A worker that has collected orders but sent none: it ran before it had any slot.
class TimedPreloadThreadSending : public testing::Test {
protected:
    TimedPreloadThreadSending() {
        worker_.SetPreloader(&preloader_);
        worker_.SetPreloadOrderQueue(&queue_);
    }

    void Push(std::int64_t number, std::int64_t track = 1) { queue_.Push(OrderAt(number, &answers_, track)); }

    /// Has the worker take in everything pushed so far.
    void Collect() {
        const int looks = worker_.VainLooks().Value();
        worker_.Start();
        ASSERT_TRUE(worker_.VainLooks().WaitFor(looks + 1));
        worker_.Stop();
        ASSERT_EQ(queue_.GetSize(), 0u);
        log_->Take();
    }

    void CreateSlotsFor(std::int64_t track) {
        worker_.SetSendingUnitPeriod(50);
        RegisterInAllSlots(worker_, track);
    }

    ScopedRecorder log_{"TimedPreloadThread"};
    CacheUpdateQueue answers_;
    CacheUpdateQueue otherAnswers_;
    PreloadOrderQueue queue_;
    ScriptedPreloader preloader_;
    Observed<TimedPreloadThread> worker_;
};

TEST_F(TimedPreloadThreadSending, ACollectedOrderIsSentOnce) {
    Push(1);
    Collect();
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 1u);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 0u);
    EXPECT_EQ(preloader_.Numbers(), Numbers({1}));
}

TEST_F(TimedPreloadThreadSending, WithoutAwaitingOrdersNothingIsSent) {
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 0u);
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(TimedPreloadThreadSending, AnOrderWhoseTrackIsInNoSlotStays) {
    Push(1);
    Collect();
    worker_.SetSendingUnitPeriod(50);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 0u);
    RegisterInAllSlots(worker_, 1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 1u);
}

TEST_F(TimedPreloadThreadSending, OrdersOfOtherTracksAreLeftInPlace) {
    Push(1, 1);
    Push(2, 2);
    Push(3, 3);
    Collect();
    CreateSlotsFor(2);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 1u);
    EXPECT_EQ(preloader_.Numbers(), Numbers({2}));
    RegisterInAllSlots(worker_, 1);
    RegisterInAllSlots(worker_, 3);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 2u);
    EXPECT_EQ(preloader_.Numbers(), Numbers({2, 1, 3}));
}

TEST_F(TimedPreloadThreadSending, OrdersAreSentByTrackAndThenByTimePoint) {
    Push(4, 2);
    Push(7, 1);
    Push(3, 2);
    Push(5, 1);
    Collect();
    CreateSlotsFor(1);
    RegisterInAllSlots(worker_, 2);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 4u);
    EXPECT_EQ(preloader_.Numbers(), Numbers({5, 7, 3, 4}));
}

TEST_F(TimedPreloadThreadSending, TheSameRequestTwiceCausesOnePreloadAndTheFirstOneWins) {
    PreloadOrder first = OrderAt(1, &answers_);
    first.SetPriority(1);
    PreloadOrder second = OrderAt(1, &answers_);
    second.SetPriority(2);
    second.s_ = SampleRate(50, 1);
    queue_.Push(first);
    queue_.Push(second);
    Collect();
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 1u);
    ASSERT_EQ(preloader_.Orders().size(), 1u);
    EXPECT_EQ(preloader_.Orders()[0].Priority(), 1);
}

TEST_F(TimedPreloadThreadSending, TheSameRequestFromTwoQueuesCausesOnePreload) {
    PreloadOrderQueue other;
    worker_.SetPreloadOrderQueue(&other);
    Push(1);
    other.Push(OrderAt(1, &answers_));
    Collect();
    worker_.RemovePreloadOrderQueue(&other);
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 1u);
}

TEST_F(TimedPreloadThreadSending, TheSameTimePointForTwoDestinationsCausesTwoPreloads) {
    queue_.Push(OrderAt(1, &answers_));
    queue_.Push(OrderAt(1, &otherAnswers_));
    Collect();
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 2u);
}

TEST_F(TimedPreloadThreadSending, FailedPreloadsCountAsSentAndAreNotRepeated) {
    preloader_.Script([](const PreloadOrder& order) -> IPreloader::PreloadResult {
        if (order.tp_ == OrderAt(1, nullptr).tp_) {
            throw std::runtime_error("unreadable");
        }
        if (order.tp_ == OrderAt(2, nullptr).tp_) {
            throw 1;
        }
        return IPreloader::ERROR;
    });
    queue_.Push(OrderAt(0, nullptr));
    for (const std::int64_t number : {1, 2, 3}) {
        Push(number);
    }
    Collect();
    CreateSlotsFor(1);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 4u);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 0u);
    EXPECT_EQ(preloader_.Numbers(), Numbers({1, 2, 3}));
}

TEST_F(TimedPreloadThreadSending, AwaitingOrdersAreDroppedByTheDestructor) {
    {
        Observed<TimedPreloadThread> worker;
        worker.SetPreloader(&preloader_);
        worker.SetPreloadOrderQueue(&queue_);
        Push(1);
        worker.Start();
        ASSERT_TRUE(worker.VainLooks().WaitFor(1));
    }
    EXPECT_TRUE(preloader_.Orders().empty());
    EXPECT_EQ(queue_.GetSize(), 0u);
}

TEST_F(TimedPreloadThreadSending, AwaitingOrdersSurviveStopAndAreSentAfterTheNextStart) {
    Push(1);
    Push(2);
    Collect();
    Collect();
    CreateSlotsFor(1);
    worker_.Start();
    ASSERT_TRUE(preloader_.Done().WaitFor(2));
    EXPECT_EQ(preloader_.Numbers(), Numbers({1, 2}));
}

TEST_F(TimedPreloadThreadSending, WithoutSlotsEveryPassWarnsOfTheSlotItMissesAndSendsNothing) {
    Push(1);
    Collect();
    for (int nbCertain = 0; nbCertain < 3;) {
        const Pass pass = SendNow(worker_);
        EXPECT_EQ(pass.nbSent_, 0u);
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level_, Level_Warning);
        EXPECT_EQ(lines[0].file_, "Player/TimedPreloadThread");
        EXPECT_GT(lines[0].line_, 0);
        if (pass.certain_) {
            ++nbCertain;
            EXPECT_EQ(lines[0].text_, "Could not find slot " + std::to_string(pass.slot_) + " in slots");
        }
    }
    EXPECT_TRUE(preloader_.Orders().empty());
}

TEST_F(TimedPreloadThreadSending, AboveTheWarningLevelAMissingSlotIsNotReported) {
    log_->SetLevel(Level_Error);
    EXPECT_EQ(worker_.SendAwaitingOrders(), 0u);
    EXPECT_TRUE(log_->Take().empty());
}

TEST_F(TimedPreloadThreadSending, ATrackIsSentInItsOwnSlotOnly) {
    Push(1);
    Collect();
    worker_.SetSendingUnitPeriod(50);
    const std::size_t own = (SlotNow() + 3) % kNbSlots;
    worker_.RegisterOrder(Track(1), own);
    EXPECT_TRUE(SendUntil(worker_, [&](const Pass& pass) {
        if (pass.certain_) {
            EXPECT_EQ(pass.nbSent_, pass.slot_ == own ? 1u : 0u) << pass.slot_;
        }
        return pass.nbSent_ > 0;
    }));
}

TEST_F(TimedPreloadThreadSending, ATrackInTwoSlotsIsSentInWhicheverComesFirst) {
    Push(1);
    Collect();
    worker_.SetSendingUnitPeriod(50);
    const std::size_t now = SlotNow();
    const std::set<std::size_t> own = {(now + 2) % kNbSlots, (now + 40) % kNbSlots};
    for (const std::size_t slot : own) {
        worker_.RegisterOrder(Track(1), slot);
    }
    EXPECT_TRUE(SendUntil(worker_, [&](const Pass& pass) {
        if (pass.certain_) {
            EXPECT_EQ(pass.nbSent_, own.count(pass.slot_)) << pass.slot_;
        }
        return pass.nbSent_ > 0;
    }));
}

TEST_F(TimedPreloadThreadSending, WithTwentyFiveUnitsTheSecondHalfOfTheSecondHasNoSlotsAndSlotsStayTwentyMs) {
    Push(1);
    Collect();
    worker_.SetSendingUnitPeriod(25);
    worker_.RegisterOrder(Track(1), 7);
    std::set<std::size_t> seen;
    EXPECT_TRUE(SendUntil(worker_, [&](const Pass& pass) {
        const std::vector<std::string> texts = log_->TakeTexts();
        if (!pass.certain_) {
            return false;
        }
        seen.insert(pass.slot_);
        if (pass.slot_ >= 25) {
            EXPECT_EQ(texts, std::vector<std::string>{"Could not find slot " + std::to_string(pass.slot_) +
                                                      " in slots"});
        } else if (pass.slot_ != 7) {
            EXPECT_TRUE(texts.empty()) << pass.slot_;
            EXPECT_EQ(pass.nbSent_, 0u) << pass.slot_;
        }
        return seen.size() == kNbSlots;
    }));
    EXPECT_EQ(preloader_.Numbers(), Numbers({1}));
}

// ---- Slow preloads ----------------------------------------------------------------------------------------

class TimedPreloadThreadSlow : public testing::Test {
protected:
    TimedPreloadThreadSlow() { worker_.SetPreloader(&preloader_); }

    /// The lines of one order whose preload takes at least `span`.
    std::vector<LogLine> LinesOfAPreloadOf(std::chrono::nanoseconds span) {
        preloader_.Script([&](const PreloadOrder&) {
            SpendAtLeast(span);
            return IPreloader::SUCCESS_EXIST;
        });
        EXPECT_TRUE(worker_.ProcessOrder(OrderAt(26, &answers_, 7)));
        return log_->Take();
    }

    ScopedRecorder log_{"TimedPreloadThread"};
    CacheUpdateQueue answers_;
    ScriptedPreloader preloader_;
    TimedPreloadThread worker_;
};

TEST_F(TimedPreloadThreadSlow, APreloadOfMoreThanAHundredMillisecondsIsLoggedAgainAsAWarning) {
    const std::vector<LogLine> lines = LinesOfAPreloadOf(101ms);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_GE(MillisecondsIn(lines[0].text_), 101);
    EXPECT_EQ(lines[0].level_, Level_Trace);
    EXPECT_EQ(lines[1].level_, Level_Warning);
    EXPECT_EQ(lines[1].text_, lines[0].text_);
    EXPECT_EQ(lines[1].file_, "Player/TimedPreloadThread");
    EXPECT_GT(lines[1].line_, 0);
}

TEST_F(TimedPreloadThreadSlow, APreloadOfExactlyAHundredMillisecondsIsNoWarning) {
    bool isSeen = false;
    for (int attempt = 0; attempt < 50 && !isSeen; ++attempt) {
        const std::vector<LogLine> lines = LinesOfAPreloadOf(100ms);
        ASSERT_FALSE(lines.empty());
        const std::int64_t milliseconds = MillisecondsIn(lines[0].text_);
        EXPECT_EQ(lines.size(), milliseconds > 100 ? 2u : 1u) << milliseconds;
        isSeen = milliseconds == 100;
    }
    if (!isSeen) {
        GTEST_SKIP() << "this machine is too busy: no preload took exactly 100 ms";
    }
}

TEST_F(TimedPreloadThreadSlow, AtTheWarningLevelOnlyTheWarningIsSent) {
    log_->SetLevel(Level_Warning);
    const std::vector<LogLine> lines = LinesOfAPreloadOf(101ms);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level_, Level_Warning);
}

TEST_F(TimedPreloadThreadSlow, AboveTheWarningLevelNothingIsSent) {
    log_->SetLevel(Level_Error);
    EXPECT_TRUE(LinesOfAPreloadOf(101ms).empty());
}

// ---- The worker's thread ----------------------------------------------------------------------------------

/// A worker whose track 1 may be sent at any time, and which is stopped by its destructor.
struct Bench {
    Bench() {
        worker_.SetSendingUnitPeriod(50);
        RegisterInAllSlots(worker_, 1);
        worker_.SetPreloader(&preloader_);
        worker_.SetPreloadOrderQueue(&queue_);
    }
    // A test that fails while a call is held must not hang in the worker's destructor.
    ~Bench() { preloader_.Calls().Release(); }

    void Push(std::int64_t number) { queue_.Push(OrderAt(number, &answers_)); }

    ScopedRecorder log_{"TimedPreloadThread"};
    CacheUpdateQueue answers_;
    PreloadOrderQueue queue_;
    ScriptedPreloader preloader_;
    Observed<TimedPreloadThread> worker_;
};

TEST(TimedPreloadThread, StopOfAWorkerNeverStartedReturnsAtOnce) {
    TimedPreloadThread worker;
    worker.Stop();
    worker.Stop();
}

TEST(TimedPreloadThread, OrdersPushedBeforeAndAfterTheStartAreServed) {
    Bench bench;
    bench.Push(1);
    EXPECT_TRUE(bench.worker_.Start());
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(1));
    bench.Push(2);
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(2));
    EXPECT_EQ(bench.preloader_.Numbers(), Numbers({1, 2}));
}

TEST(TimedPreloadThread, GoesOnAfterAnyException) {
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
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(TimedPreloadThread, AnOrderIsNotSentBeforeItsSlotBegins) {
    Bench bench;
    constexpr std::int64_t kTrack = 2;
    const std::size_t own = (SlotNow() + 15) % kNbSlots;
    bench.worker_.RegisterOrder(Track(kTrack), own);
    std::atomic<std::size_t> slotOfTheCall = kNbSlots;
    bench.preloader_.Script([&](const PreloadOrder&) {
        slotOfTheCall = SlotNow();
        return IPreloader::SUCCESS_EXIST;
    });
    bench.worker_.Start();
    bench.queue_.Push(OrderAt(1, &bench.answers_, kTrack));
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(1));
    // The worker looked at the clock a moment before; a busy machine may make that moment long.
    const std::size_t slotsLate = (slotOfTheCall + kNbSlots - own) % kNbSlots;
    EXPECT_LT(slotsLate, 25u);
}

TEST(TimedPreloadThread, StartTwiceLeavesExactlyOneThread) {
    Bench bench;
    EXPECT_TRUE(bench.worker_.Start());
    EXPECT_TRUE(bench.worker_.Start());
    bench.preloader_.Calls().Hold();
    bench.Push(1);
    bench.Push(2);
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    LetOthersRun(50ms);
    EXPECT_EQ(bench.preloader_.Calls().Entered().Value(), 1);
    bench.preloader_.Calls().Release();
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(2));
}

TEST(TimedPreloadThread, StartStopsThroughTheVirtualOperation) {
    Bench bench;
    bench.worker_.Start();
    EXPECT_EQ(bench.worker_.NbStops(), 1);
    bench.worker_.Start();
    EXPECT_EQ(bench.worker_.NbStops(), 2);
}

TEST(TimedPreloadThread, StopWaitsForTheOrderInProgress) {
    Bench bench;
    bench.preloader_.Calls().Hold();
    bench.Push(1);
    bench.worker_.Start();
    ASSERT_TRUE(bench.preloader_.Calls().Entered().WaitFor(1));
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        bench.worker_.Stop();
        stopped = true;
    });
    LetOthersRun(50ms);
    EXPECT_FALSE(stopped);
    bench.preloader_.Calls().Release();
    stopper.join();
    EXPECT_EQ(bench.preloader_.Done().Value(), 1);
}

TEST(TimedPreloadThread, ManyQuickStartsAndStopsEndAndLoseNoOrder) {
    Bench bench;
    for (std::int64_t number = 0; number < 100; ++number) {
        bench.Push(number);
        bench.worker_.Start();
    }
    ASSERT_TRUE(bench.preloader_.Done().WaitFor(100));
    bench.worker_.Stop();
    Numbers expected;
    for (std::int64_t number = 0; number < 100; ++number) {
        expected.push_back(number);
    }
    EXPECT_EQ(bench.preloader_.Numbers(), expected);
}

// ---- Semaphores -------------------------------------------------------------------------------------------

TEST(TimedPreloadThread, PushingIntoItsQueueAddsAUnitForThePlainWorkers) {
    Bench bench;
    Observed<PreloadThread> plain;
    plain.Start();
    ASSERT_TRUE(plain.VainLooks().WaitFor(1));
    const int looks = plain.VainLooks().Value();
    bench.Push(1);
    EXPECT_TRUE(plain.VainLooks().WaitFor(looks + 1));
    EXPECT_EQ(bench.queue_.GetSize(), 1u);
}

TEST(TimedPreloadThread, NeedsNoUnitToServeAnOrder) {
    Bench bench;
    Observed<PreloadThread> greedy;  // takes every unit there is
    greedy.Start();
    bench.worker_.Start();
    ASSERT_TRUE(bench.worker_.VainLooks().WaitFor(1));
    bench.Push(1);
    EXPECT_TRUE(bench.preloader_.Done().WaitFor(1));
}

TEST(TimedPreloadThread, ItsWakeFunctionWakesNoPlainWorker) {
    Observed<PreloadThread> plain;
    plain.Start();
    ASSERT_TRUE(plain.VainLooks().WaitFor(1));
    LetOthersRun();  // units left over by whatever ran before in this process
    const int looks = plain.VainLooks().Value();
    TimedPreloadThread::OneSampleReadyForPreload();
    LetOthersRun();
    EXPECT_EQ(plain.VainLooks().Value(), looks);
}

TEST(TimedPreloadThread, ItsStopWakesNoPlainWorker) {
    Bench bench;
    Observed<PreloadThread> plain;
    plain.Start();
    ASSERT_TRUE(plain.VainLooks().WaitFor(1));
    LetOthersRun();
    const int looks = plain.VainLooks().Value();
    bench.worker_.Start();
    bench.worker_.Stop();
    LetOthersRun();
    EXPECT_EQ(plain.VainLooks().Value(), looks);
}

}  // namespace
}  // namespace Tavrin::Player
