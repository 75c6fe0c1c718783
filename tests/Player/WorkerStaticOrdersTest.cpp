#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "Player/DecodeThread.h"
#include "Player/FakeSample.h"
#include "Player/PreloadThread.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

// A client whose static objects push orders before `main` begins and after it has returned. What happens
// after `main` cannot be an expectation any more: a failure there ends the program with a status of its own.

namespace Tavrin::Player {
namespace {

using Testing::LetOthersRun;
using Testing::Observed;
using Testing::OrderAt;
using Testing::ScriptedPreloader;

constexpr int kNbOrders = 5;

class CountingDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override {
        decodes_.Add();
        return new FakeSample(order.orderTp_, Time::TimePoint());
    }

    Testing::Counter& Decodes() { return decodes_; }

private:
    Testing::Counter decodes_;
};

/// The compressed sample of all decode orders here.
class Compressed : public ISample {
public:
    Time::TimePoint GetTimePoint() const override { return {}; }
    Time::TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }
};

/// What lives as long as the program, and longer than most of its static objects.
class StaticClient {
public:
    StaticClient() { PushAll(); }

    ~StaticClient() {
        PushAll();
        PreloadThread preloadWorker;
        DecodeThread decodeWorker;
        Serve(preloadWorker, decodeWorker);
        if (!preloader_.Done().WaitFor(2 * kNbOrders) || !decoder_.Decodes().WaitFor(2 * kNbOrders)) {
            std::fputs("orders pushed after main were not served\n", stderr);
            std::_Exit(EXIT_FAILURE);
        }
        preloadWorker.Stop();
        decodeWorker.Stop();
        TimedPreloadThread::OneSampleReadyForPreload();
    }

    void Serve(PreloadThread& preloadWorker, DecodeThread& decodeWorker) {
        preloadWorker.SetPreloader(&preloader_);
        preloadWorker.SetPreloadOrderQueue(&preloads_);
        preloadWorker.Start();
        decodeWorker.SetDecoder(&decoder_);
        decodeWorker.AddDecodeOrderQueue(&decodes_);
        decodeWorker.Start();
    }

    ScriptedPreloader& Preloader() { return preloader_; }
    CountingDecoder& Decoder() { return decoder_; }

private:
    void PushAll() {
        DecodeOrder decode;
        decode.toDecode_ = &compressed_;
        decode.queue_ = &answers_;
        for (int number = 0; number < kNbOrders; ++number) {
            preloads_.Push(OrderAt(number, &answers_));
            decodes_.Push(decode);
        }
    }

    CacheUpdateQueue answers_;
    Compressed compressed_;
    PreloadOrderQueue preloads_;
    DecodeOrderQueue decodes_;
    ScriptedPreloader preloader_;
    CountingDecoder decoder_;
};

// Before every other static object of this program, and so destroyed after them.
[[gnu::init_priority(101)]] StaticClient client;

TEST(StaticOrders, ThoseOfAStaticInitialiserAreServedLaterAndEachHasLeftOneUnit) {
    Observed<PreloadThread> preloadWorker;
    DecodeThread decodeWorker;
    client.Serve(preloadWorker, decodeWorker);
    EXPECT_TRUE(client.Preloader().Done().WaitFor(kNbOrders));
    EXPECT_TRUE(client.Decoder().Decodes().WaitFor(kNbOrders));
    EXPECT_EQ(preloadWorker.Finds().Value(), kNbOrders);
    // All orders are taken without waiting for a unit. Then there is one look in vain before the worker waits
    // for the first, and one for each.
    EXPECT_TRUE(preloadWorker.VainLooks().WaitFor(1 + kNbOrders));
    LetOthersRun();
    EXPECT_EQ(preloadWorker.VainLooks().Value(), 1 + kNbOrders);
}

}  // namespace
}  // namespace Tavrin::Player
