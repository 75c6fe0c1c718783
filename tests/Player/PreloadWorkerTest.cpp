#include "Player/PreloadWorker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Player/PreloadThread.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

// What both kinds of preload workers do alike; each has a test of its own for the rest.

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using namespace qor::kp::logging;
using Testing::AddressText;
using Testing::LogLine;
using Testing::MillisecondsIn;
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

template <typename Worker>
constexpr const char* kName = nullptr;
template <>
constexpr const char* kName<PreloadThread> = "PreloadThread";
template <>
constexpr const char* kName<TimedPreloadThread> = "TimedPreloadThread";

struct WorkerName {
    template <typename Worker>
    static std::string GetName(int) {
        return kName<Worker>;
    }
};

using Workers = testing::Types<PreloadThread, TimedPreloadThread>;

// ---- The turn of the queues -------------------------------------------------------------------------------

template <typename Worker>
class PreloadWorkerTurn : public testing::Test {
protected:
    PreloadOrderQueue a_;
    PreloadOrderQueue b_;
    PreloadOrderQueue c_;
    Worker worker_;
    PreloadOrder order_;
};

TYPED_TEST_SUITE(PreloadWorkerTurn, Workers, WorkerName);

TYPED_TEST(PreloadWorkerTurn, WithoutAnyQueueDequeueReturnsFalseAndLeavesTheOrderAlone) {
    this->order_ = OrderAt(7, nullptr);
    EXPECT_FALSE(this->worker_.Dequeue(this->order_));
    EXPECT_EQ(this->order_, OrderAt(7, nullptr));
}

TYPED_TEST(PreloadWorkerTurn, WithEmptyQueuesDequeueReturnsFalseAndLeavesTheOrderAlone) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->b_);
    this->order_ = OrderAt(7, nullptr);
    EXPECT_FALSE(this->worker_.Dequeue(this->order_));
    EXPECT_EQ(this->order_, OrderAt(7, nullptr));
}

TYPED_TEST(PreloadWorkerTurn, AfterTheLastQueueIsRemovedDequeueReturnsFalse) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    PushNumbers(this->a_, {1, 2});
    ASSERT_TRUE(this->worker_.Dequeue(this->order_));
    this->worker_.RemovePreloadOrderQueue(&this->a_);
    EXPECT_FALSE(this->worker_.Dequeue(this->order_));
    EXPECT_EQ(this->a_.GetSize(), 1u);
}

TYPED_TEST(PreloadWorkerTurn, AQueueAttachedAgainAfterAllWereRemovedIsServed) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.RemovePreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->b_);
    PushNumbers(this->b_, {4});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({4}));
}

TYPED_TEST(PreloadWorkerTurn, ThreeFullQueuesYieldOneOrderEachInTurn) {
    for (PreloadOrderQueue* queue : {&this->a_, &this->b_, &this->c_}) {
        this->worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(this->a_, {10, 11, 12});
    PushNumbers(this->b_, {20, 21, 22});
    PushNumbers(this->c_, {30, 31, 32});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({10, 20, 30, 11, 21, 31, 12, 22, 32}));
}

TYPED_TEST(PreloadWorkerTurn, IfOnlyTheThirdQueueHoldsOrdersEveryOneComesFromIt) {
    for (PreloadOrderQueue* queue : {&this->a_, &this->b_, &this->c_}) {
        this->worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(this->c_, {30, 31, 32});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({30, 31, 32}));
}

TYPED_TEST(PreloadWorkerTurn, AnEmptyQueueIsSkippedAndKeepsItsPlace) {
    for (PreloadOrderQueue* queue : {&this->a_, &this->b_, &this->c_}) {
        this->worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(this->a_, {10, 11});
    PushNumbers(this->c_, {30, 31});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({10, 30, 11, 31}));
}

TYPED_TEST(PreloadWorkerTurn, AttachingTheSameQueueTwiceAttachesItOnce) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->b_);
    PushNumbers(this->a_, {10, 11});
    PushNumbers(this->b_, {20});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({10, 20, 11}));
}

TYPED_TEST(PreloadWorkerTurn, AQueueAttachedTwiceIsGoneAfterOneRemoval) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.RemovePreloadOrderQueue(&this->a_);
    PushNumbers(this->a_, {10});
    EXPECT_FALSE(this->worker_.Dequeue(this->order_));
}

TYPED_TEST(PreloadWorkerTurn, RemovingAQueueRestartsTheScanAtTheFirst) {
    for (PreloadOrderQueue* queue : {&this->a_, &this->b_, &this->c_}) {
        this->worker_.SetPreloadOrderQueue(queue);
    }
    PushNumbers(this->a_, {10, 11});
    PushNumbers(this->b_, {20});
    ASSERT_TRUE(this->worker_.Dequeue(this->order_));
    this->worker_.RemovePreloadOrderQueue(&this->c_);
    EXPECT_EQ(TakeAll(this->worker_), Numbers({11, 20}));
}

TYPED_TEST(PreloadWorkerTurn, TheOtherQueuesKeepTheirOrderWhenOneIsRemoved) {
    for (PreloadOrderQueue* queue : {&this->a_, &this->b_, &this->c_}) {
        this->worker_.SetPreloadOrderQueue(queue);
    }
    this->worker_.RemovePreloadOrderQueue(&this->a_);
    PushNumbers(this->c_, {30});
    PushNumbers(this->b_, {20});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({20, 30}));
}

TYPED_TEST(PreloadWorkerTurn, RemovingAQueueThatIsNotAttachedKeepsTheTurn) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->b_);
    PushNumbers(this->a_, {10, 11});
    PushNumbers(this->b_, {20});
    ASSERT_TRUE(this->worker_.Dequeue(this->order_));
    this->worker_.RemovePreloadOrderQueue(&this->c_);
    EXPECT_EQ(TakeAll(this->worker_), Numbers({20, 11}));
}

TYPED_TEST(PreloadWorkerTurn, ALookInVainKeepsTheTurn) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    this->worker_.SetPreloadOrderQueue(&this->b_);
    PushNumbers(this->a_, {10});
    ASSERT_TRUE(this->worker_.Dequeue(this->order_));
    ASSERT_FALSE(this->worker_.Dequeue(this->order_));
    PushNumbers(this->a_, {11});
    PushNumbers(this->b_, {20});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({20, 11}));
}

TYPED_TEST(PreloadWorkerTurn, AQueueAttachedAfterTheLastOneWasServedIsNext) {
    this->worker_.SetPreloadOrderQueue(&this->a_);
    PushNumbers(this->a_, {10, 11});
    ASSERT_TRUE(this->worker_.Dequeue(this->order_));
    this->worker_.SetPreloadOrderQueue(&this->b_);
    PushNumbers(this->b_, {20});
    EXPECT_EQ(TakeAll(this->worker_), Numbers({20, 11}));
}

// ---- One order --------------------------------------------------------------------------------------------

template <typename Worker>
class PreloadWorkerOrder : public testing::Test {
protected:
    PreloadWorkerOrder() { worker_.SetPreloader(&preloader_); }

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
        EXPECT_EQ(lines[0].file_, std::string("Player/") + kName<Worker>);
        EXPECT_GT(lines[0].line_, 0);
    }

    void ExpectOneWarning(const std::string& text) {
        const std::vector<LogLine> lines = log_->Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].text_, text);
        EXPECT_EQ(lines[0].level_, Level_Warning);
        EXPECT_EQ(lines[0].file_, std::string("Player/") + kName<Worker>);
        EXPECT_GT(lines[0].line_, 0);
    }

    ScopedRecorder log_{kName<Worker>};
    CacheUpdateQueue answers_;
    ScriptedPreloader preloader_;
    Worker worker_;
    PreloadOrder order_ = OrderAt(26, &answers_, 7);
};

TYPED_TEST_SUITE(PreloadWorkerOrder, Workers, WorkerName);

TYPED_TEST(PreloadWorkerOrder, ThePreloaderGetsTheWholeOrder) {
    this->order_.SetPriority(3);
    ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
    const PreloadOrder seen = this->preloader_.Orders().at(0);
    EXPECT_EQ(seen.tp_, this->order_.tp_);
    EXPECT_EQ(seen.s_, this->order_.s_);
    EXPECT_EQ(seen.queue_, &this->answers_);
    EXPECT_EQ(seen.id_, Track(7));
    EXPECT_EQ(seen.Priority(), 3);
}

TYPED_TEST(PreloadWorkerOrder, WithoutAQueueItIsDroppedWithAWarning) {
    this->order_.queue_ = nullptr;
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    this->ExpectOneWarning("Queue or preloader is NULL for order at 1.040000000");
    EXPECT_TRUE(this->preloader_.Orders().empty());
}

TYPED_TEST(PreloadWorkerOrder, WithoutAPreloaderItIsDroppedWithAWarning) {
    TypeParam worker;
    EXPECT_FALSE(worker.ProcessOrder(this->order_));
    this->ExpectOneWarning("Queue or preloader is NULL for order at 1.040000000");
}

TYPED_TEST(PreloadWorkerOrder, ASampleThatExistsIsLogged) {
    this->ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
}

TYPED_TEST(PreloadWorkerOrder, ASampleThatIsMissingIsLogged) {
    this->ExpectOneLine(IPreloader::SUCCESS_MISSING, "SUCCESS_MISSING");
}

TYPED_TEST(PreloadWorkerOrder, AnErrorResultCountsAsProcessedAndIsLoggedLikeAnyOther) {
    this->ExpectOneLine(IPreloader::ERROR, "ERROR");
}

TYPED_TEST(PreloadWorkerOrder, AResultOutsideTheThreeIsCalledUnknown) {
    this->ExpectOneLine(static_cast<IPreloader::PreloadResult>(3), "Unknown PreloadResult type");
}

TYPED_TEST(PreloadWorkerOrder, TheSampleNumberInTheLineIsCountedAtTheOrdersOwnRate) {
    this->order_.s_ = SampleRate(50, 1);
    this->ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
    EXPECT_NE(this->LineFor(this->order_, "").find("(52)"), std::string::npos);
}

TYPED_TEST(PreloadWorkerOrder, WithARateThatNobodySetTheSampleNumberInTheLineIsZero) {
    this->order_.s_ = SampleRate();
    this->ExpectOneLine(IPreloader::SUCCESS_EXIST, "SUCCESS_EXIST");
    EXPECT_NE(this->LineFor(this->order_, "").find("(0)"), std::string::npos);
}

TYPED_TEST(PreloadWorkerOrder, AStandardExceptionBecomesAWarning) {
    this->preloader_.Script(
        [](const PreloadOrder&) -> IPreloader::PreloadResult { throw std::out_of_range("no such block"); });
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    this->ExpectOneWarning(
        "Could not preload aligned order on 10.0.0.2:5000:T7 at 1.040000000: no such block");
}

TYPED_TEST(PreloadWorkerOrder, AnythingElseThrownBecomesAWarningToo) {
    this->preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult { throw 42; });
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    this->ExpectOneWarning(
        "Could not preload aligned order on 10.0.0.2:5000:T7 at 1.040000000: unknown exception");
}

TYPED_TEST(PreloadWorkerOrder, AtADebugLevelTheTraceLineIsNotSent) {
    this->log_->SetLevel(Level_Debug);
    EXPECT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_TRUE(this->log_->Take().empty());
}

TYPED_TEST(PreloadWorkerOrder, AtTheWarningLevelWarningsAreStillSent) {
    this->log_->SetLevel(Level_Warning);
    this->order_.queue_ = nullptr;
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    EXPECT_EQ(this->log_->Take().size(), 1u);
}

TYPED_TEST(PreloadWorkerOrder, AboveTheWarningLevelNothingIsSent) {
    this->log_->SetLevel(Level_Error);
    this->preloader_.Script(
        [](const PreloadOrder&) -> IPreloader::PreloadResult { throw std::logic_error("x"); });
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    this->order_.queue_ = nullptr;
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    EXPECT_TRUE(this->log_->Take().empty());
}

TYPED_TEST(PreloadWorkerOrder, WithoutALoggerEverythingStillHappens) {
    const ScopedSilence silence(kName<TypeParam>);
    TypeParam worker;
    EXPECT_FALSE(worker.ProcessOrder(this->order_));
    worker.SetPreloader(&this->preloader_);
    EXPECT_TRUE(worker.ProcessOrder(this->order_));
    this->preloader_.Script(
        [](const PreloadOrder&) -> IPreloader::PreloadResult { throw std::logic_error("x"); });
    EXPECT_FALSE(worker.ProcessOrder(this->order_));
    EXPECT_EQ(this->preloader_.Orders().size(), 2u);
    EXPECT_TRUE(this->log_->Take().empty());
}

TYPED_TEST(PreloadWorkerOrder, TheLoggerIsTheOneOfTheConstruction) {
    const ScopedRecorder later(kName<TypeParam>);
    EXPECT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_TRUE(later->Take().empty());
    EXPECT_EQ(this->log_->Take().size(), 1u);
}

TYPED_TEST(PreloadWorkerOrder, SetPreloaderReturnsTheSameHandleEveryTime) {
    ScriptedPreloader other;
    EXPECT_EQ(this->worker_.SetPreloader(&other), 1);
    EXPECT_EQ(this->worker_.SetPreloader(nullptr), 1);
}

TYPED_TEST(PreloadWorkerOrder, ASecondPreloaderReplacesTheFirst) {
    ScriptedPreloader other;
    this->worker_.SetPreloader(&other);
    EXPECT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_EQ(other.Orders().size(), 1u);
    EXPECT_TRUE(this->preloader_.Orders().empty());
}

TYPED_TEST(PreloadWorkerOrder, RemovePreloaderRemovesItWhateverTheHandle) {
    this->worker_.RemovePreloader(-99);
    EXPECT_FALSE(this->worker_.ProcessOrder(this->order_));
    EXPECT_TRUE(this->preloader_.Orders().empty());
    this->worker_.SetPreloader(&this->preloader_);
    EXPECT_TRUE(this->worker_.ProcessOrder(this->order_));
}

TYPED_TEST(PreloadWorkerOrder, SetStoredPreloadOrderSizeChangesNothing) {
    this->worker_.SetStoredPreloadOrderSize(0);
    EXPECT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_EQ(this->preloader_.Orders().size(), 1u);
}

// ---- Statistics -------------------------------------------------------------------------------------------

TYPED_TEST(PreloadWorkerOrder, AFreshWorkerReportsZeroTwice) {
    EXPECT_EQ(this->worker_.GetInformation().averagePreloadTimeMilliseconds_, 0u);
    EXPECT_EQ(this->worker_.GetInformation().maxPreloadTimeMilliseconds_, 0u);
}

TYPED_TEST(PreloadWorkerOrder, TheAverageIsThatOfTheLoggedDurationsTruncated) {
    std::int64_t sum = 0;
    for (const auto span : {1ms, 2ms, 5ms}) {
        this->preloader_.Script([&](const PreloadOrder&) {
            SpendAtLeast(span);
            return IPreloader::SUCCESS_EXIST;
        });
        ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
        const std::int64_t logged = MillisecondsIn(this->log_->TakeTexts().at(0));
        EXPECT_GE(logged, span.count());
        sum += logged;
    }
    EXPECT_EQ(this->worker_.GetInformation().averagePreloadTimeMilliseconds_, sum / 3);
}

TYPED_TEST(PreloadWorkerOrder, TheMaximumStaysZero) {
    this->preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(2ms);
        return IPreloader::SUCCESS_EXIST;
    });
    ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_EQ(this->worker_.GetInformation().maxPreloadTimeMilliseconds_, 0u);
}

TYPED_TEST(PreloadWorkerOrder, AnErrorResultRecordsItsDuration) {
    this->preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(3ms);
        return IPreloader::ERROR;
    });
    ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
    EXPECT_GE(this->worker_.GetInformation().averagePreloadTimeMilliseconds_, 3u);
}

TYPED_TEST(PreloadWorkerOrder, AnExceptionRecordsNoDuration) {
    this->preloader_.Script([](const PreloadOrder&) -> IPreloader::PreloadResult {
        SpendAtLeast(3ms);
        throw std::runtime_error("x");
    });
    ASSERT_FALSE(this->worker_.ProcessOrder(this->order_));
    EXPECT_EQ(this->worker_.GetInformation().averagePreloadTimeMilliseconds_, 0u);
}

TYPED_TEST(PreloadWorkerOrder, TheAverageIsOverTheFiftyMostRecentDurations) {
    this->preloader_.Script([](const PreloadOrder&) {
        SpendAtLeast(100ms);
        return IPreloader::SUCCESS_EXIST;
    });
    ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
    this->preloader_.Script(nullptr);
    this->log_->Take();
    std::int64_t sum = 0;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(this->worker_.ProcessOrder(this->order_));
        sum += MillisecondsIn(this->log_->TakeTexts().at(0));
    }
    EXPECT_EQ(this->worker_.GetInformation().averagePreloadTimeMilliseconds_, sum / 50);
}

}  // namespace
}  // namespace Tavrin::Player
