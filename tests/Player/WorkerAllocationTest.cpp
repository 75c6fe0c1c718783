#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakeSample.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/Waiting.h"
#include "Player/Support/WorkerDoubles.h"

// The way of an order through queue, worker and registry, once everything has been used before: it asks for no
// dynamic memory, on neither side. Messages that the level silences are part of it.

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Testing::NbAllocations;
using Testing::ScopedRecorder;

/// Too long for a string to hold without memory of its own, as host names are.
const StorageId kStorage("storage-17.recordings.example.org", 5000);

/// What the worker's thread had allocated when it last called, and how often it has called.
class Calls {
public:
    void Note() {
        nbAllocations_ = NbAllocations();
        calls_.Add();
    }

    [[nodiscard]] bool Reach(int nb) { return calls_.WaitFor(nb); }
    std::size_t NbAllocationsOfThread() const { return nbAllocations_; }

private:
    std::atomic<std::size_t> nbAllocations_ = 0;
    Testing::Counter calls_;
};

class NotingPreloader final : public IPreloader {
public:
    PreloadResult Preload(const PreloadOrder&) override {
        calls_.Note();
        return SUCCESS_EXIST;
    }
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

    Calls calls_;
};

class NotingDecoder final : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder&) override {
        calls_.Note();
        return nullptr;
    }

    Calls calls_;
};

struct Allocations {
    std::size_t ofProducer_ = 0;
    std::size_t ofWorker_ = 0;
};

/// More than any burst below leaves waiting, and whole segments of them.
constexpr int kNbAtFullest = 512;

/// Fills and empties a queue, so that it has been as full as it will be however the threads meet.
template <typename Queue, typename Entry>
void WarmUp(Queue& queue, const Entry& entry) {
    for (int i = 0; i < kNbAtFullest; ++i) {
        queue.Push(entry);
    }
    Entry out;
    while (queue.Pop(out)) {
    }
}

/// What bursts of orders, and orders one by one for each of which the worker wakes up, allocate the second
/// time. `push` pushes one order and `takeAnswers` takes what was delivered.
template <typename Push, typename TakeAnswers>
Allocations OfTheSecondTime(Calls& calls, Push push, TakeAnswers takeAnswers) {
    int nbPushed = 0;
    const auto pushAll = [&] {
        for (const int nbAtOnce : {200, 1, 1, 200, 1, 50}) {
            for (int i = 0; i < nbAtOnce; ++i) {
                push();
            }
            nbPushed += nbAtOnce;
            ASSERT_TRUE(calls.Reach(nbPushed));
            takeAnswers();
        }
    };
    pushAll();
    const Allocations before{NbAllocations(), calls.NbAllocationsOfThread()};
    pushAll();
    return {NbAllocations() - before.ofProducer_, calls.NbAllocationsOfThread() - before.ofWorker_};
}

TEST(WorkerAllocation, APreloadOrderCostsNoneOnEitherSide) {
    ScopedRecorder log("PreloadThread", Level_Warning);
    NotingPreloader preloader;
    CacheUpdateQueue answers;
    PreloadOrderQueue queue;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    worker.SetPreloadOrderQueue(&queue);
    const PreloadOrder order(Time::TimePoint(), SampleRate(25, 1), &answers, TrackId(kStorage, 1));
    WarmUp(queue, order);
    worker.Start();
    const Allocations nb = OfTheSecondTime(
        preloader.calls_, [&] { queue.Push(order); }, [] {});
    worker.Stop();
    EXPECT_EQ(nb.ofProducer_, 0U);
    EXPECT_EQ(nb.ofWorker_, 0U);
    EXPECT_TRUE(log->Take().empty());
}

/// Through the registry, or directly without one.
void ExpectNoneForDecodeOrders(ExistingCacheUpdateQueues* registry) {
    ScopedRecorder log("DecodeThread", Level_NoLog);
    NotingDecoder decoder;
    CacheUpdateQueue answers;
    if (registry != nullptr) {
        registry->InsertExistingQueue(&answers);
    }
    FakeSample compressed{Time::TimePoint(), Time::TimePoint()};
    DecodeOrderQueue queue;
    DecodeThread worker;
    worker.SetDecoder(&decoder);
    worker.SetExistingUncompressedCacheUpdateQueues(registry);
    worker.AddDecodeOrderQueue(&queue);
    DecodeOrder order;
    order.toDecode_ = &compressed;
    order.queue_ = &answers;
    WarmUp(queue, order);
    WarmUp(answers, Output());
    worker.Start();
    int nbTaken = 0;
    const Allocations nb = OfTheSecondTime(
        decoder.calls_, [&] { queue.Push(order); },
        [&] {
            Output output;
            while (answers.Pop(output)) {
                ++nbTaken;
            }
        });
    worker.Stop();
    EXPECT_GT(nbTaken, 0);
    EXPECT_EQ(nb.ofProducer_, 0U);
    EXPECT_EQ(nb.ofWorker_, 0U);
    EXPECT_TRUE(log->Take().empty());
    if (registry != nullptr) {
        registry->RemoveExistingQueue(&answers);
    }
}

TEST(WorkerAllocation, ADecodeOrderCostsNoneOnEitherSide) {
    ExpectNoneForDecodeOrders(nullptr);
}

TEST(WorkerAllocation, ADecodeOrderDeliveredThroughTheRegistryCostsNoneOnEitherSide) {
    ExistingCacheUpdateQueues registry;
    ExpectNoneForDecodeOrders(&registry);
}

/// Beside the worker's thread: what a message costs whose level is not silenced, so that the zeros above mean
/// something.
TEST(WorkerAllocation, AMessageThatIsWrittenCostsSome) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "allocations are not counted in this build";
    }
    ScopedRecorder log("PreloadThread", Level_Trace);
    NotingPreloader preloader;
    CacheUpdateQueue answers;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    const PreloadOrder order(Time::TimePoint(), SampleRate(25, 1), &answers, TrackId(kStorage, 1));
    const std::size_t before = NbAllocations();
    EXPECT_TRUE(worker.ProcessOrder(order));
    EXPECT_GT(NbAllocations(), before);
}

}  // namespace
}  // namespace Tavrin::Player
