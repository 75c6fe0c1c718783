// What a client's preloader and decoder may do wrong, one fault at a time, on the whole road from the order to the cache.
// Sample 1 meets the fault; sample 2, ordered after it, must come as if nothing had happened.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

namespace Tavrin::Player {
namespace {

using Testing::CountedSample;
using Testing::Gate;
using Testing::OrderAt;
using Testing::SampleCensus;
using Testing::ScopedSilence;
using Testing::ScriptedDecoder;
using Testing::ScriptedPreloader;
using Testing::StartOf;
using Testing::Track;

constexpr std::int64_t kFaulty = 1;
constexpr std::int64_t kNext = 2;

const SampleRate& Rate() {
    static const SampleRate rate(25, 1);
    return rate;
}

/// A cache whose queue is registered, and what is asked of it while workers deliver into it.
class Road {
public:
    Road() {
        cache_.emplace();
        cache_->SetStreamSampleRate(Rate());
        registry_.InsertExistingQueue(cache_->GetQueue());
    }

    Cache& Samples() { return *cache_; }
    CacheUpdateQueue* Queue() { return cache_->GetQueue(); }
    ExistingCacheUpdateQueues& Registry() { return registry_; }
    SampleCensus& Census() { return census_; }

    /// As a client that closes a track: nothing is delivered any more, and then the cache goes.
    void CloseTrack() {
        registry_.RemoveExistingQueue(cache_->GetQueue());
        cache_.reset();
    }

    /// Files what has come; answers that nobody waits for are counted.
    void Intake() {
        for (bool isMore = true; isMore;) {
            try {
                isMore = cache_->Update() > 0;
            } catch (const std::runtime_error&) {
                ++nbRefused_;
            }
        }
    }

    Cache::EntryType TypeOf(std::int64_t number) {
        Intake();
        ISample* sample = nullptr;
        return cache_->GetSample(StartOf(number, Rate()), Rate(), &sample, false);
    }

    /// Whether the sample's entry became one of that type within the bound.
    [[nodiscard]] bool Becomes(std::int64_t number, Cache::EntryType type) {
        return WaitUntil([&] { return TypeOf(number) == type; });
    }

    [[nodiscard]] bool RefusesAnAnswer() {
        return WaitUntil([this] {
            Intake();
            return nbRefused_ == 1;
        });
    }

    int NbRefused() const { return nbRefused_; }

    Output MakeOutput(const Time::TimePoint& tp) {
        Output output;
        output.tp_ = tp;
        output.sample_ = census_.Make(tp, StartOf(1, Rate()));
        return output;
    }

    /// As a preloader must: through the registry, and what is refused there is deleted.
    bool Deliver(const PreloadOrder& order, bool withSample = true) {
        Output output = MakeOutput(order.tp_);
        if (!withSample) {
            delete output.sample_;
            output.sample_ = nullptr;
        }
        const bool isTaken = registry_.PushIfExists(order.queue_, output);
        if (!isTaken) {
            delete output.sample_;
        }
        return isTaken;
    }

private:
    static bool WaitUntil(const std::function<bool()>& holds) {
        const auto end = std::chrono::steady_clock::now() + Testing::kFailureBound;
        while (!holds()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    const ScopedSilence silence_{"Cache"};
    SampleCensus census_;
    ExistingCacheUpdateQueues registry_;
    std::optional<Cache> cache_;
    int nbRefused_ = 0;
};

// ---- Preloaders -------------------------------------------------------------------------------------------

void Prepare(PreloadThread&) {
}

/// In every slot, so that nothing waits for its own.
void Prepare(TimedPreloadThread& worker) {
    const std::size_t nbSlots = worker.SetSendingUnitPeriod(50);
    for (std::size_t slot = 0; slot < nbSlots; ++slot) {
        worker.RegisterOrder(Track(1), slot);
    }
}

template <typename Worker>
class PreloaderFault : public testing::Test {
protected:
    PreloaderFault() {
        for (Worker* worker : {&worker_, &peer_}) {
            Prepare(*worker);
            worker->SetPreloader(&preloader_);
            worker->SetPreloadOrderQueue(&orders_);
        }
    }

    void TearDown() override {
        worker_.Stop();
        peer_.Stop();
        EXPECT_EQ(orders_.GetSize(), 0U);
        road_.Intake();
        road_.CloseTrack();
        EXPECT_EQ(road_.Census().NbLive(), 0U);
        EXPECT_EQ(road_.Census().NbAbused(), 0U);
    }

    /// What the preloader does when it is asked for the first sample; the others it delivers.
    void Break(std::function<IPreloader::PreloadResult(const PreloadOrder&)> fault) {
        preloader_.Script([this, fault](const PreloadOrder& order) {
            if (order.tp_ == StartOf(kFaulty, Rate())) {
                return fault(order);
            }
            road_.Deliver(order);
            return IPreloader::SUCCESS_EXIST;
        });
    }

    void Order(std::int64_t number) {
        ASSERT_FALSE(road_.Samples().InsertPendingEntry(StartOf(number, Rate())));
        orders_.Push(OrderAt(number, road_.Queue()));
    }

    /// Runs one worker, whose first order meets the fault; the second must be served.
    void MeetTheFault() {
        Order(kFaulty);
        Order(kNext);
        worker_.Start();
        EXPECT_TRUE(road_.Becomes(kNext, Cache::Valid)) << "the worker did not go on";
    }

    const ScopedSilence plain_{"PreloadThread"};
    const ScopedSilence timed_{"TimedPreloadThread"};
    Road road_;
    PreloadOrderQueue orders_;
    ScriptedPreloader preloader_;
    Worker worker_;
    Worker peer_;
};

struct WorkerName {
    template <typename Worker>
    static std::string GetName(int) {
        return std::is_same_v<Worker, PreloadThread> ? "PreloadThread" : "TimedPreloadThread";
    }
};
using PreloadWorkers = testing::Types<PreloadThread, TimedPreloadThread>;
TYPED_TEST_SUITE(PreloaderFault, PreloadWorkers, WorkerName);

TYPED_TEST(PreloaderFault, OneThatHangsHoldsItsWorkerOnlyAndItsAnswerIsFiledWhenItComes) {
    Gate storageIsBack;
    this->Break([&](const PreloadOrder& order) {
        EXPECT_TRUE(storageIsBack.Wait());
        this->road_.Deliver(order);
        return IPreloader::SUCCESS_EXIST;
    });
    this->Order(kFaulty);
    this->worker_.Start();
    EXPECT_TRUE(this->preloader_.Calls().Entered().WaitFor(1));
    this->Order(kNext);
    this->peer_.Start();
    EXPECT_TRUE(this->road_.Becomes(kNext, Cache::Valid)) << "the peer was held as well";
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Pending);
    storageIsBack.Open();
    EXPECT_TRUE(this->road_.Becomes(kFaulty, Cache::Valid));
}

TYPED_TEST(PreloaderFault, OneThatFailsAndSaysSoLeavesAMissingSample) {
    this->Break([this](const PreloadOrder& order) {
        this->road_.Deliver(order, false);
        return IPreloader::ERROR;
    });
    this->MeetTheFault();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Missing);
}

TYPED_TEST(PreloaderFault, OneThatAnswersWithNullLeavesAMissingSample) {
    this->Break([this](const PreloadOrder& order) {
        this->road_.Deliver(order, false);
        return IPreloader::SUCCESS_EXIST;
    });
    this->MeetTheFault();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Missing);
}

TYPED_TEST(PreloaderFault, OneThatFailsWithoutAnAnswerIsNotAskedAgainAndTheEntryKeepsWaiting) {
    this->Break([](const PreloadOrder&) { return IPreloader::ERROR; });
    this->MeetTheFault();
    this->worker_.Stop();
    EXPECT_EQ(this->preloader_.Calls().Entered().Value(), 2);
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Pending);
    // Whoever knows better may still answer.
    this->road_.Deliver(OrderAt(kFaulty, this->road_.Queue()), false);
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Missing);
}

TYPED_TEST(PreloaderFault, OneThatThrowsIsNotAskedAgainAndTheEntryKeepsWaiting) {
    this->Break([](const PreloadOrder&) -> IPreloader::PreloadResult {
        throw std::runtime_error("the disk is gone");
    });
    this->MeetTheFault();
    this->worker_.Stop();
    EXPECT_EQ(this->preloader_.Calls().Entered().Value(), 2);
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Pending);
}

TYPED_TEST(PreloaderFault, OneThatThrowsWhatIsNoStandardExceptionIsNotAskedAgainAndTheEntryKeepsWaiting) {
    this->Break([](const PreloadOrder&) -> IPreloader::PreloadResult { throw "the disk is gone"; });
    this->MeetTheFault();
    this->worker_.Stop();
    EXPECT_EQ(this->preloader_.Calls().Entered().Value(), 2);
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Pending);
}

TYPED_TEST(PreloaderFault, OneThatThrowsAfterItsAnswerHasAnswered) {
    this->Break([this](const PreloadOrder& order) -> IPreloader::PreloadResult {
        this->road_.Deliver(order);
        throw std::runtime_error("could not close the file");
    });
    this->MeetTheFault();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Valid);
}

TYPED_TEST(PreloaderFault, OneThatAnswersLongAfterItHasReturnedIsFiledThen) {
    std::optional<PreloadOrder> late;
    this->Break([&late](const PreloadOrder& order) {
        late = order;
        return IPreloader::SUCCESS_EXIST;
    });
    this->MeetTheFault();
    this->worker_.Stop();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Pending);
    ASSERT_TRUE(late.has_value());
    std::thread([&] { EXPECT_TRUE(this->road_.Deliver(*late)); }).join();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Valid);
}

TYPED_TEST(PreloaderFault, AnAnswerThatNobodyWaitsForAnyMoreIsRefusedAndItsSampleDeleted) {
    Gate cacheIsCleared;
    this->Break([&](const PreloadOrder& order) {
        EXPECT_TRUE(cacheIsCleared.Wait());
        this->road_.Deliver(order);
        return IPreloader::SUCCESS_EXIST;
    });
    this->Order(kFaulty);
    this->worker_.Start();
    EXPECT_TRUE(this->preloader_.Calls().Entered().WaitFor(1));
    this->road_.Samples().Clear();
    cacheIsCleared.Open();
    EXPECT_TRUE(this->road_.RefusesAnAnswer());
    EXPECT_EQ(this->road_.Census().NbLive(), 0U);
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Not_Found);
    this->Order(kNext);
    EXPECT_TRUE(this->road_.Becomes(kNext, Cache::Valid));
}

TYPED_TEST(PreloaderFault, OfOneThatAnswersTwiceTheSecondAnswerIsRefusedAndItsSampleDeleted) {
    this->Break([this](const PreloadOrder& order) {
        this->road_.Deliver(order);
        this->road_.Deliver(order);
        return IPreloader::SUCCESS_EXIST;
    });
    this->MeetTheFault();
    EXPECT_EQ(this->road_.TypeOf(kFaulty), Cache::Valid);
    EXPECT_EQ(this->road_.NbRefused(), 1);
    EXPECT_EQ(this->road_.Census().NbMade(), 3U);
    EXPECT_EQ(this->road_.Census().NbLive(), 2U);
}

TYPED_TEST(PreloaderFault, AnAnswerForAQueueThatIsGoneStaysWithThePreloader) {
    Gate queueIsGone;
    CacheUpdateQueue gone;
    this->road_.Registry().InsertExistingQueue(&gone);
    this->Break([&](const PreloadOrder& order) {
        EXPECT_TRUE(queueIsGone.Wait());
        EXPECT_FALSE(this->road_.Deliver(order)) << "delivered into a queue that is gone";
        return IPreloader::SUCCESS_EXIST;
    });
    this->orders_.Push(OrderAt(kFaulty, &gone));
    this->worker_.Start();
    EXPECT_TRUE(this->preloader_.Calls().Entered().WaitFor(1));
    this->road_.Registry().RemoveExistingQueue(&gone);
    queueIsGone.Open();
    this->Order(kNext);
    EXPECT_TRUE(this->road_.Becomes(kNext, Cache::Valid));
    EXPECT_TRUE(Testing::Drain(gone).empty());
}

// ---- Decoders ---------------------------------------------------------------------------------------------

/// Directly into the order's queue, or through the registry.
enum class Delivery { Direct, Registry };

class DecoderBench {
public:
    explicit DecoderBench(Delivery delivery) {
        compressed_->Protect(1 + kNbOrders);
        for (DecodeThread* worker : {&worker_, &peer_}) {
            worker->SetDecoder(&decoder_);
            worker->AddDecodeOrderQueue(&orders_);
            if (delivery == Delivery::Registry) {
                worker->SetExistingUncompressedCacheUpdateQueues(&road_.Registry());
            }
        }
    }

    /// What the decoder does with the first sample; the others it decodes.
    void Break(std::function<ISample*(const DecodeOrder&)> fault) {
        decoder_.Script([this, fault](const DecodeOrder& order) -> ISample* {
            if (order.orderTp_ == StartOf(kFaulty, Rate())) {
                return fault(order);
            }
            return MakeDecoded(order);
        });
    }

    CountedSample* MakeDecoded(const DecodeOrder& order) {
        return road_.Census().Make(order.orderTp_, StartOf(1, Rate()));
    }

    void Push(std::int64_t number, CacheUpdateQueue* queue) {
        DecodeOrder order;
        order.orderTp_ = StartOf(number, Rate());
        order.toDecode_ = compressed_;
        order.queue_ = queue;
        orders_.Push(order);
    }

    void Order(std::int64_t number) {
        ASSERT_FALSE(road_.Samples().InsertPendingEntry(StartOf(number, Rate())));
        Push(number, road_.Queue());
    }

    void MeetTheFault() {
        Order(kFaulty);
        Order(kNext);
        worker_.Start();
        EXPECT_TRUE(road_.Becomes(kNext, Cache::Valid)) << "the worker did not go on";
        worker_.Stop();
        EXPECT_EQ(compressed_->Counter(), 1) << "each delivery releases one protection";
    }

    void Finish() {
        worker_.Stop();
        peer_.Stop();
        EXPECT_EQ(orders_.GetSize(), 0U);
        road_.Intake();
        road_.CloseTrack();
        EXPECT_FALSE(compressed_->Deleted());
        delete static_cast<ISample*>(compressed_);
        EXPECT_EQ(road_.Census().NbLive(), 0U);
        EXPECT_EQ(road_.Census().NbAbused(), 0U);
    }

    static constexpr std::int64_t kNbOrders = 2;

    const ScopedSilence silence_{"DecodeThread"};
    Road road_;
    DecodeOrderQueue orders_;
    ScriptedDecoder decoder_;
    CountedSample* const compressed_ = road_.Census().Make(StartOf(kFaulty, Rate()));
    DecodeThread worker_;
    DecodeThread peer_;
};

class DecoderFault : public testing::TestWithParam<Delivery> {
protected:
    void TearDown() override { bench_.Finish(); }

    DecoderBench bench_{GetParam()};
    Road& road_ = bench_.road_;
};

std::string DeliveryName(const testing::TestParamInfo<Delivery>& info) {
    return info.param == Delivery::Direct ? "Direct" : "Registry";
}
INSTANTIATE_TEST_SUITE_P(Deliveries, DecoderFault, testing::Values(Delivery::Direct, Delivery::Registry),
                         DeliveryName);

TEST_P(DecoderFault, OneThatHangsHoldsItsWorkerOnlyAndItsSampleIsFiledWhenItComes) {
    Gate isDecoded;
    bench_.Break([&](const DecodeOrder& order) {
        EXPECT_TRUE(isDecoded.Wait());
        return bench_.MakeDecoded(order);
    });
    bench_.Order(kFaulty);
    bench_.worker_.Start();
    EXPECT_TRUE(bench_.decoder_.Calls().Entered().WaitFor(1));
    bench_.Order(kNext);
    bench_.peer_.Start();
    EXPECT_TRUE(road_.Becomes(kNext, Cache::Valid)) << "the peer was held as well";
    EXPECT_EQ(road_.TypeOf(kFaulty), Cache::Pending);
    isDecoded.Open();
    EXPECT_TRUE(road_.Becomes(kFaulty, Cache::Valid));
}

TEST_P(DecoderFault, OneThatReturnsNullLeavesAMissingSample) {
    bench_.Break([](const DecodeOrder&) -> ISample* { return nullptr; });
    bench_.MeetTheFault();
    EXPECT_EQ(road_.TypeOf(kFaulty), Cache::Missing);
}

TEST_P(DecoderFault, OneThatThrowsARuntimeErrorLeavesAMissingSample) {
    bench_.Break([](const DecodeOrder&) -> ISample* { throw std::runtime_error("a damaged packet"); });
    bench_.MeetTheFault();
    EXPECT_EQ(road_.TypeOf(kFaulty), Cache::Missing);
}

TEST_P(DecoderFault, ASampleThatNobodyWaitsForAnyMoreIsRefusedAndDeleted) {
    Gate cacheIsCleared;
    bench_.Break([&](const DecodeOrder& order) {
        EXPECT_TRUE(cacheIsCleared.Wait());
        return bench_.MakeDecoded(order);
    });
    bench_.Order(kFaulty);
    bench_.worker_.Start();
    EXPECT_TRUE(bench_.decoder_.Calls().Entered().WaitFor(1));
    road_.Samples().Clear();
    cacheIsCleared.Open();
    EXPECT_TRUE(road_.RefusesAnAnswer());
    bench_.Order(kNext);
    EXPECT_TRUE(road_.Becomes(kNext, Cache::Valid));
    EXPECT_EQ(road_.TypeOf(kFaulty), Cache::Not_Found);
}

TEST_P(DecoderFault, OfOneThatDeliversByItselfAsWellTheSecondAnswerIsRefusedAndItsSampleDeleted) {
    bench_.Break([&](const DecodeOrder& order) {
        order.queue_->Push(road_.MakeOutput(order.orderTp_));
        return bench_.MakeDecoded(order);
    });
    bench_.MeetTheFault();
    EXPECT_EQ(road_.TypeOf(kFaulty), Cache::Valid);
    EXPECT_EQ(road_.NbRefused(), 1);
    EXPECT_EQ(road_.Census().NbMade(), 4U);
    EXPECT_EQ(road_.Census().NbLive(), 3U);
}

// Without a registry a queue outlives its orders.
TEST(DecoderFaultWithARegistry, ForAQueueThatIsGoneNothingIsDecodedAndTheProtectionStays) {
    DecoderBench bench(Delivery::Registry);
    CacheUpdateQueue gone;
    bench.Break([](const DecodeOrder&) -> ISample* {
        ADD_FAILURE() << "decoded for a queue that is gone";
        return nullptr;
    });
    bench.Push(kFaulty, &gone);
    bench.Order(kNext);
    bench.worker_.Start();
    EXPECT_TRUE(bench.road_.Becomes(kNext, Cache::Valid));
    bench.worker_.Stop();
    EXPECT_EQ(bench.compressed_->Counter(), 2);
    EXPECT_TRUE(Testing::Drain(gone).empty());
    bench.Finish();
}

using DecoderFaultDeathTest = DecoderFault;
INSTANTIATE_TEST_SUITE_P(Deliveries, DecoderFaultDeathTest,
                         testing::Values(Delivery::Direct, Delivery::Registry), DeliveryName);

/// Starts the worker on an order that its decoder breaks on, in the process that is to end.
void RunUntilTheEnd(DecoderBench& bench) {
    bench.Order(kFaulty);
    bench.worker_.Start();
    static_cast<void>(bench.road_.Becomes(kFaulty, Cache::Missing));
}

TEST_P(DecoderFaultDeathTest, OneThatThrowsAnotherStandardExceptionEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    bench_.Break([](const DecodeOrder&) -> ISample* { throw std::logic_error("a bug of the decoder"); });
    EXPECT_DEATH(RunUntilTheEnd(bench_), "a bug of the decoder");
}

TEST_P(DecoderFaultDeathTest, OneThatThrowsWhatIsNoStandardExceptionEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    bench_.Break([](const DecodeOrder&) -> ISample* { throw "a bug of the decoder"; });
    EXPECT_DEATH(RunUntilTheEnd(bench_), "terminate");
}

}  // namespace
}  // namespace Tavrin::Player
