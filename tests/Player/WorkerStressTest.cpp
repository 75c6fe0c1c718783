#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadThread.h"
#include "Player/Support/Random.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/Support/WorkerLedger.h"
#include "Player/Support/WorkerStorm.h"
#include "Player/TimedPreloadThread.h"

// Many threads at once, for a second or two each. What a test proves by itself is that every order is
// answered, that nothing is leaked or deleted twice and that everything ends; the sanitizers see the rest.

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using Testing::JoinAll;
using Testing::Ledger;
using Testing::LedgerSample;
using Testing::LetOthersRun;
using Testing::Observed;
using Testing::OrderAt;
using Testing::Random;
using Testing::ScriptedPreloader;
using Testing::SpendAtLeast;
using Testing::StartOf;
using Testing::StormClient;
using Testing::StormDecoder;
using Testing::StormPreloader;
using Testing::StormSilence;
using Testing::StormWorkers;
using Testing::TestSeed;

const SampleRate kRate(25, 1);

// ---- Everything at once -----------------------------------------------------------------------------------

/// A client that comes and goes: its queues live for a moment, and orders that point at them outlive them.
void ComeAndGo(StormWorkers& workers, ExistingCacheUpdateQueues& registry, LedgerSample& compressed,
               const std::atomic<bool>& over) {
    while (!over) {
        auto answers = std::make_unique<CacheUpdateQueue>();
        auto preloads = std::make_unique<PreloadOrderQueue>();
        auto decodes = std::make_unique<DecodeOrderQueue>();
        registry.InsertExistingQueue(answers.get());
        workers.Attach(*preloads, *decodes);
        for (std::int64_t number = 0; number < 10; ++number) {
            // The shared sample outlives every order, so it needs no protection.
            preloads->Push(OrderAt(number, answers.get(), 7));
            DecodeOrder order;
            order.toDecode_ = &compressed;
            order.orderTp_ = StartOf(number, kRate);
            order.queue_ = answers.get();
            decodes->Push(order);
        }
        LetOthersRun(1ms);
        workers.Detach(*preloads, *decodes);
        registry.RemoveExistingQueue(answers.get());
    }
}

TEST(WorkerStress, EveryOrderIsAnsweredOnceAndEverySampleDeletedOnceWhileWorkersAndQueuesComeAndGo) {
    const StormSilence silence;
    constexpr std::size_t kNbSamples = 600;
    Ledger ledger(200'000);
    LedgerSample* const shared = ledger.Make(StartOf(1, kRate));
    ExistingCacheUpdateQueues registry;
    StormPreloader preloader(ledger, registry);
    StormDecoder decoder(ledger);
    std::vector<std::unique_ptr<StormClient>> clients;
    std::atomic<int> nbUnfinished = 0;
    {
        StormWorkers workers(preloader, decoder, registry);
        for (std::int64_t track = 0; track < 4; ++track) {
            clients.push_back(std::make_unique<StormClient>(track, kNbSamples));
            clients.back()->Register(registry, workers);
        }
        workers.StartAll();
        std::atomic<bool> over = false;
        std::vector<std::thread> storms;
        workers.AddStorms(storms, over);
        storms.emplace_back([&] { ComeAndGo(workers, registry, *shared, over); });
        std::vector<std::thread> drivers;
        for (auto& client : clients) {
            drivers.emplace_back([&] { nbUnfinished += client->Run() ? 0 : 1; });
        }
        JoinAll(drivers);
        over = true;
        JoinAll(storms);
        workers.StopAll();
    }
    EXPECT_EQ(nbUnfinished, 0);
    for (const auto& client : clients) {
        EXPECT_TRUE(client->EverythingWasAnsweredOnce());
    }
    clients.clear();
    delete shared;
    EXPECT_FALSE(ledger.Overflowed());
    EXPECT_EQ(ledger.NbLeaked(), 0u);
    EXPECT_EQ(ledger.NbDeletedTwice(), 0u);
    EXPECT_EQ(ledger.NbUsedLate(), 0u);
}

// ---- A stop takes no order with it ------------------------------------------------------------------------

/// Between nothing and a little longer than a stop takes to be noticed.
void WaitALittle(Random& random) {
    SpendAtLeast(std::chrono::microseconds(random.Between(0, 400)));
}

TEST(WorkerStress, AnOrderPushedWhileOneWorkerStopsIsServedByItsIdlePeer) {
    const StormSilence silence;
    Random random(TestSeed());
    CacheUpdateQueue answers;
    PreloadOrderQueue queue;
    ScriptedPreloader preloader;
    Observed<PreloadThread> peer;
    Observed<PreloadThread> leaving;
    for (Observed<PreloadThread>* worker : {&peer, &leaving}) {
        worker->SetPreloader(&preloader);
        worker->SetPreloadOrderQueue(&queue);
    }
    peer.Start();
    for (int round = 1; round <= 150; ++round) {
        const int looks = leaving.VainLooks().Value();
        leaving.Start();
        ASSERT_TRUE(leaving.VainLooks().WaitFor(looks + 1));
        std::thread stopper([&] { leaving.Stop(); });
        WaitALittle(random);
        queue.Push(OrderAt(round, &answers));
        stopper.join();
        ASSERT_TRUE(preloader.Done().WaitFor(round)) << "stranded in round " << round;
    }
}

TEST(WorkerStress, AnOrderPushedWhileAllPeersButOneStopIsServed) {
    const StormSilence silence;
    Random random(TestSeed());
    CacheUpdateQueue answers;
    PreloadOrderQueue queue;
    ScriptedPreloader preloader;
    std::vector<std::unique_ptr<Observed<PreloadThread>>> workers;
    for (int i = 0; i < 4; ++i) {
        workers.push_back(std::make_unique<Observed<PreloadThread>>());
        workers.back()->SetPreloader(&preloader);
        workers.back()->SetPreloadOrderQueue(&queue);
        workers.back()->Start();
    }
    for (int round = 1; round <= 60; ++round) {
        std::vector<std::thread> stoppers;
        for (std::size_t i = 0; i < 3; ++i) {
            stoppers.emplace_back([&, i] { workers[i]->Stop(); });
        }
        WaitALittle(random);
        queue.Push(OrderAt(round, &answers));
        JoinAll(stoppers);
        ASSERT_TRUE(preloader.Done().WaitFor(round)) << "stranded in round " << round;
        for (std::size_t i = 0; i < 3; ++i) {
            const int looks = workers[i]->VainLooks().Value();
            workers[i]->Start();
            ASSERT_TRUE(workers[i]->VainLooks().WaitFor(looks + 1));
        }
    }
}

TEST(WorkerStress, AnOrderOfAStoppingWorkerIsServedByItsPeerAlsoAmongIdleWorkersOfOtherQueues) {
    const StormSilence silence;
    Random random(TestSeed());
    CacheUpdateQueue answers;
    PreloadOrderQueue queue;
    ScriptedPreloader preloader;
    Observed<PreloadThread> peer;
    Observed<PreloadThread> leaving;
    for (Observed<PreloadThread>* worker : {&peer, &leaving}) {
        worker->SetPreloader(&preloader);
        worker->SetPreloadOrderQueue(&queue);
    }
    peer.Start();
    PreloadOrderQueue foreign;
    std::vector<std::unique_ptr<PreloadThread>> others;
    for (int i = 0; i < 3; ++i) {
        others.push_back(std::make_unique<PreloadThread>());
        others.back()->SetPreloadOrderQueue(&foreign);
        others.back()->Start();
    }
    for (int round = 1; round <= 100; ++round) {
        const int looks = leaving.VainLooks().Value();
        leaving.Start();
        ASSERT_TRUE(leaving.VainLooks().WaitFor(looks + 1));
        std::thread stopper([&] { leaving.Stop(); });
        WaitALittle(random);
        queue.Push(OrderAt(round, &answers));
        stopper.join();
        ASSERT_TRUE(preloader.Done().WaitFor(round)) << "stranded in round " << round;
    }
}

/// Answers nothing but counts the orders it was called for.
class CountingDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder&) override {
        decodes_.Add();
        return nullptr;
    }

    Testing::Counter& Decodes() { return decodes_; }

private:
    Testing::Counter decodes_;
};

TEST(WorkerStress, ADecodeOrderPushedWhileOneWorkerStopsIsServedByItsIdlePeer) {
    const StormSilence silence;
    Random random(TestSeed());
    Ledger ledger(1);
    DecodeOrder order;
    CacheUpdateQueue answers;
    order.toDecode_ = ledger.Make(StartOf(1, kRate));
    order.queue_ = &answers;
    DecodeOrderQueue queue;
    CountingDecoder decoder;
    DecodeThread peer;
    DecodeThread leaving;
    for (DecodeThread* worker : {&peer, &leaving}) {
        worker->SetDecoder(&decoder);
        worker->AddDecodeOrderQueue(&queue);
    }
    peer.Start();
    for (int round = 1; round <= 150; ++round) {
        leaving.Start();
        LetOthersRun(1ms);  // for both to fall asleep
        std::thread stopper([&] { leaving.Stop(); });
        WaitALittle(random);
        queue.Push(order);
        stopper.join();
        ASSERT_TRUE(decoder.Decodes().WaitFor(round)) << "stranded in round " << round;
    }
}

// ---- Starts and stops -------------------------------------------------------------------------------------

TEST(WorkerStress, WorkersOfAllKindsStartAndStopAtTheSameTimeWithoutEnd) {
    const StormSilence silence;
    std::vector<std::thread> storms;
    for (int i = 0; i < 3; ++i) {
        storms.emplace_back([] {
            PreloadThread worker;
            for (int round = 0; round < 80; ++round) {
                worker.Start();
                worker.Stop();
            }
        });
        storms.emplace_back([] {
            DecodeThread worker;
            for (int round = 0; round < 80; ++round) {
                worker.Start();
                worker.Stop();
            }
        });
    }
    storms.emplace_back([] {
        TimedPreloadThread worker;
        for (int round = 0; round < 40; ++round) {
            worker.Start();
            worker.Stop();
        }
    });
    JoinAll(storms);
}

TEST(WorkerStress, OneWorkerStartedAndStoppedBySeveralThreadsServesItsOrdersAfterwards) {
    const StormSilence silence;
    CacheUpdateQueue answers;
    PreloadOrderQueue queue;
    ScriptedPreloader preloader;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    worker.SetPreloadOrderQueue(&queue);
    std::vector<std::thread> storms;
    for (int i = 0; i < 3; ++i) {
        storms.emplace_back([&, i] {
            for (int round = 0; round < 40; ++round) {
                queue.Push(OrderAt(i * 1000 + round, &answers));
                worker.Start();
                worker.Stop();
            }
        });
    }
    JoinAll(storms);
    worker.Start();
    EXPECT_TRUE(preloader.Done().WaitFor(120));
    worker.Stop();
    EXPECT_EQ(preloader.Done().Value(), 120);
}

}  // namespace
}  // namespace Tavrin::Player
