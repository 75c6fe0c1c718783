#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/Support/WorkerLedger.h"
#include "Player/Support/WorkerStorm.h"

// The registry of live queues while workers decode and deliver through it as fast as they can.

namespace Tavrin::Player {
namespace {

using namespace std::chrono_literals;
using Testing::JoinAll;
using Testing::Ledger;
using Testing::LedgerSample;
using Testing::LetOthersRun;
using Testing::OrderAt;
using Testing::SpendAtLeast;
using Testing::StartOf;
using Testing::StormDecoder;
using Testing::StormPreloader;
using Testing::StormSilence;
using Testing::StormWorkers;
using Clock = std::chrono::steady_clock;

const SampleRate kRate(25, 1);

/// Keeps every worker inside `Decode` nearly all the time.
class BusyDecoder : public ISampleDecoder {
public:
    explicit BusyDecoder(Ledger& ledger) : ledger_(ledger) {}

    ISample* Decode(const DecodeOrder& order) override {
        nbEntered_.fetch_add(1);
        SpendAtLeast(500us);
        return ledger_.Make(order.orderTp_);
    }

    std::int64_t NbEntered() const { return nbEntered_; }

private:
    Ledger& ledger_;
    std::atomic<std::int64_t> nbEntered_ = 0;
};

/// Workers that come back to the registry at once, for as long as this lives.
class Saturation {
public:
    static constexpr std::size_t kNbWorkers = 4;

    Saturation(Ledger& ledger, ExistingCacheUpdateQueues& registry)
        : registry_(registry), decoder_(ledger), compressed_(ledger.Make(StartOf(1, kRate))) {
        registry_.InsertExistingQueue(&answers_);
        for (std::size_t i = 0; i < kNbWorkers; ++i) {
            workers_.push_back(std::make_unique<DecodeThread>());
            workers_.back()->SetDecoder(&decoder_);
            workers_.back()->SetExistingUncompressedCacheUpdateQueues(&registry_);
            workers_.back()->AddDecodeOrderQueue(&orders_);
            workers_.back()->Start();
        }
        client_ = std::thread([this] { KeepBusy(); });
    }

    ~Saturation() {
        over_ = true;
        client_.join();
        workers_.clear();
        registry_.RemoveExistingQueue(&answers_);
        delete compressed_;
    }

    BusyDecoder& Decoder() { return decoder_; }

private:
    void KeepBusy() {
        DecodeOrder order;
        order.toDecode_ = compressed_;
        order.queue_ = &answers_;
        while (!over_) {
            while (orders_.GetSize() < 4 * kNbWorkers) {
                orders_.Push(order);
            }
            for (const Output& output : Testing::Drain(answers_)) {
                delete output.sample_;
            }
            std::this_thread::yield();
        }
    }

    ExistingCacheUpdateQueues& registry_;
    BusyDecoder decoder_;
    LedgerSample* compressed_;
    CacheUpdateQueue answers_;
    DecodeOrderQueue orders_;
    std::vector<std::unique_ptr<DecodeThread>> workers_;
    std::atomic<bool> over_ = false;
    std::thread client_;
};

TEST(RegistryStress, AQueueIsRemovedFromTheRegistryPromptlyHoweverBusyTheDecodersAre) {
    const StormSilence silence;
    Ledger ledger(500'000);
    ExistingCacheUpdateQueues registry;
    std::vector<std::int64_t> nbOvertakes;
    {
        Saturation saturation(ledger, registry);
        for (int round = 0; round < 40; ++round) {
            CacheUpdateQueue other;
            registry.InsertExistingQueue(&other);
            SpendAtLeast(2ms);
            const std::int64_t before = saturation.Decoder().NbEntered();
            const auto begin = Clock::now();
            registry.RemoveExistingQueue(&other);
            EXPECT_LT(Clock::now() - begin, 3s);
            nbOvertakes.push_back(saturation.Decoder().NbEntered() - before);
        }
    }
    // Some decodes may enter before the removal waits, and after it is done but not yet back here. What must not happen is
    // that the workers come back while it waits: that makes hundreds. The median forgives a thread that lost its processor.
    constexpr std::size_t kFew = 10;
    std::sort(nbOvertakes.begin(), nbOvertakes.end());
    EXPECT_LE(nbOvertakes[nbOvertakes.size() / 2], static_cast<std::int64_t>(kFew * Saturation::kNbWorkers));
    EXPECT_FALSE(ledger.Overflowed());
    EXPECT_EQ(ledger.NbLeaked(), 0u);
    EXPECT_EQ(ledger.NbDeletedTwice(), 0u);
}

/// A decoder that lets the first order out at one gate and all others at another.
class GatedDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder&) override {
        const int number = nbEntered_.fetch_add(1);
        entered_.Add();
        EXPECT_TRUE((number == 0 ? first_ : others_).Wait());
        return nullptr;
    }

    Testing::Counter& Entered() { return entered_; }
    Testing::Gate& First() { return first_; }
    Testing::Gate& Others() { return others_; }

private:
    std::atomic<int> nbEntered_ = 0;
    Testing::Counter entered_;
    Testing::Gate first_;
    Testing::Gate others_;
};

/// Has a removal wait for one decode while others come after it; true when it returned before any of those
/// was let out.
bool RemovalGoesBeforeLaterDecodes() {
    constexpr int kNbLater = 4;
    ExistingCacheUpdateQueues registry;
    CacheUpdateQueue answers;
    CacheUpdateQueue other;
    registry.InsertExistingQueue(&answers);
    registry.InsertExistingQueue(&other);
    GatedDecoder decoder;
    Ledger ledger(1);
    DecodeOrder order;
    order.toDecode_ = ledger.Make(StartOf(1, kRate));
    order.queue_ = &answers;
    const auto decode = [&] { registry.DecodeIfExists(&answers, &decoder, order); };
    std::vector<std::thread> threads;
    threads.emplace_back(decode);
    EXPECT_TRUE(decoder.Entered().WaitFor(1));
    Testing::Gate removed;
    threads.emplace_back([&] {
        registry.RemoveExistingQueue(&other);
        removed.Open();
    });
    LetOthersRun(5ms);  // for the removal to wait
    for (int i = 0; i < kNbLater; ++i) {
        threads.emplace_back(decode);
    }
    LetOthersRun(5ms);  // for these to wait behind it
    decoder.First().Open();
    const bool goesBefore = removed.Wait(300ms);
    decoder.Others().Open();
    JoinAll(threads);
    return goesBefore;
}

TEST(RegistryStress, ARemovalThatWaitsGoesBeforeTheDecodesThatCameAfterIt) {
    // On a busy machine the decodes may come before the removal now and then, in spite of the order of the
    // calls.
    int nbBefore = 0;
    for (int round = 0; round < 20; ++round) {
        nbBefore += RemovalGoesBeforeLaterDecodes() ? 1 : 0;
    }
    EXPECT_GE(nbBefore, 15);
}

/// Registers `answers`, sends orders whose answers go there, and takes it off the registry while they are
/// served.
void SendAndRemove(CacheUpdateQueue& answers, ExistingCacheUpdateQueues& registry,
                   PreloadOrderQueue& preloads, DecodeOrderQueue& decodes, LedgerSample& compressed) {
    registry.InsertExistingQueue(&answers);
    DecodeOrder order;
    order.toDecode_ = &compressed;
    order.queue_ = &answers;
    for (std::int64_t number = 0; number < 20; ++number) {
        order.orderTp_ = StartOf(number, kRate);
        decodes.Push(order);
        preloads.Push(OrderAt(number, &answers, 7));
    }
    registry.RemoveExistingQueue(&answers);
}

TEST(RegistryStress, NothingIsDeliveredIntoAQueueAfterItsRemoval) {
    const StormSilence silence;
    Ledger ledger(500'000);
    LedgerSample* const compressed = ledger.Make(StartOf(1, kRate));
    ExistingCacheUpdateQueues registry;
    StormDecoder decoder(ledger);
    StormPreloader preloader(ledger, registry);
    std::size_t nbLate = 0;
    {
        PreloadOrderQueue preloads;
        DecodeOrderQueue decodes;
        StormWorkers workers(preloader, decoder, registry);
        workers.Attach(preloads, decodes);
        workers.StartAll();
        for (int round = 0; round < 400; ++round) {
            auto answers = std::make_unique<CacheUpdateQueue>();
            SendAndRemove(*answers, registry, preloads, decodes, *compressed);
            if (round % 8 == 0) {
                for (const Output& output : Testing::Drain(*answers)) {
                    delete output.sample_;
                }
                LetOthersRun(1ms);
                nbLate += Testing::Drain(*answers).size();
            }
            // The queue goes at once otherwise: who still pushed into it would use freed memory.
        }
    }
    EXPECT_EQ(nbLate, 0u);
    delete compressed;
    EXPECT_FALSE(ledger.Overflowed());
    EXPECT_EQ(ledger.NbLeaked(), 0u);
    EXPECT_EQ(ledger.NbDeletedTwice(), 0u);
}

}  // namespace
}  // namespace Tavrin::Player
