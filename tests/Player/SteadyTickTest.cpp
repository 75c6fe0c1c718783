// A server ticks for weeks: once its windows are full and as many samples go as come, the engine asks the heap for
// nothing more.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/Moments.h"
#include "Player/Support/ScriptedStream.h"
#include "Player/Support/UncountedSample.h"
#include "Player/TrackId.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::ScriptedStream;
using Testing::Sec;
using Testing::StartOf;
using Testing::UncountedSample;
using Time::Ratio;
using Time::TimePoint;

const SampleRate kRate(25, 1);

/// The parts of a tick, in their order.
enum Step { MoveHead, Intake, LookUp, Plan, Ask, PushOrder, Answer, Decode, Evict, NbSteps };

const char* NameOf(Step step) {
    static const std::array<const char*, NbSteps> names{"moving the play head",
                                                        "taking samples in",
                                                        "looking a sample up",
                                                        "planning",
                                                        "asking (pending entries)",
                                                        "pushing and popping preload orders",
                                                        "answering preload orders",
                                                        "decoding",
                                                        "evicting"};
    return names.at(step);
}

/// How often each part of the ticks asked the heap for memory, and how often it did something at all.
class Tally {
public:
    template <typename Action>
    auto Count(Step step, Action action) {
        const std::size_t before = Testing::NbAllocations();
        if constexpr (std::is_void_v<decltype(action())>) {
            action();
            nbAllocations_.at(step) += Testing::NbAllocations() - before;
        } else {
            const auto result = action();
            nbAllocations_.at(step) += Testing::NbAllocations() - before;
            nbDone_.at(step) += static_cast<std::size_t>(result);
            return result;
        }
    }

    std::size_t NbAllocations(Step step) const { return nbAllocations_.at(step); }
    std::size_t NbAllocations() const {
        return std::accumulate(nbAllocations_.begin(), nbAllocations_.end(), std::size_t{0});
    }
    std::size_t NbDone(Step step) const { return nbDone_.at(step); }

private:
    std::array<std::size_t, NbSteps> nbAllocations_{};
    std::array<std::size_t, NbSteps> nbDone_{};
};

/// Storage that has all samples but every thirteenth, and delivers through the registry.
class UncountedPreloader final : public IPreloader {
public:
    PreloadResult Preload(const PreloadOrder& order) override {
        const bool exists = order.tp_.SampleNumber(kRate) % 13 != 0;
        Output output;
        output.tp_ = order.tp_;
        output.sample_ = exists ? new UncountedSample(order.tp_) : nullptr;
        if (!queues_->PushIfExists(order.queue_, output)) {
            delete output.sample_;
            return ERROR;
        }
        return exists ? SUCCESS_EXIST : SUCCESS_MISSING;
    }
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) override { queues_ = queues; }

private:
    ExistingCacheUpdateQueues* queues_ = nullptr;
};

class UncountedDecoder final : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override { return new UncountedSample(order.orderTp_); }
};

struct Scenario {
    std::string name;
    Ratio speed;
    int nbTracks = 4;
    std::int64_t window = 100;
    std::string storage = "10.0.0.2";
    bool jumps = false;
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

/// What a client keeps for one track.
struct Track {
    Cache compressed;
    Cache decoded;
    PreloadTimePointGenerator planner;
    ScriptedStream stream;
    PreloadOrder order;
    TrackId id;
};

/// A client with all its tracks that runs the workers' part itself, on its own thread, so that everything is counted.
class Wall {
public:
    explicit Wall(const Scenario& scenario) : scenario_(scenario) {
        preloader_.SetExistingCacheUpdateQueues(&queues_);
        preloadWorker_.SetPreloader(&preloader_);
        preloadWorker_.SetPreloadOrderQueue(&preloadOrders_);
        decodeWorker_.SetDecoder(&decoder_);
        decodeWorker_.SetExistingUncompressedCacheUpdateQueues(&queues_);
        decodeWorker_.AddDecodeOrderQueue(&decodeOrders_);
        for (int i = 0; i < scenario.nbTracks; ++i) {
            Add(i);
        }
        player_.GoTo(Sec(3600));
        player_.SetSpeed(scenario.speed);
    }
    Wall(const Wall&) = delete;
    Wall& operator=(const Wall&) = delete;

    ~Wall() { player_.DetachAllStreams(); }

    void Tick(Tally& tally) {
        tally.Count(MoveHead, [this] { Move(); });
        for (const auto& track : tracks_) {
            Drive(*track, tally);
        }
        RunWorkers(tally);
        ++nbTicks_;
    }

private:
    void Add(int number) {
        tracks_.push_back(std::make_unique<Track>());
        Track& track = *tracks_.back();
        track.id = TrackId(StorageId(scenario_.storage, 5000), number);
        for (Cache* cache : {&track.compressed, &track.decoded}) {
            cache->SetStreamSampleRate(kRate);
            cache->SetTrackId(track.id);
            queues_.InsertExistingQueue(cache->GetQueue());
        }
        track.planner.SetSampleRate(kRate);
        track.planner.SetDisplayRate(kRate);
        track.planner.SetNumberPreloads(static_cast<std::uint64_t>(scenario_.window));
        track.planner.SetCache(&track.compressed);
        player_.AttachStream(&track.stream);
    }

    void Move() {
        player_.Update(Ms(40));
        if (scenario_.jumps) {
            player_.GoTo(Sec(3600) + Ms(40) * (nbTicks_ % 7 * 3));
        }
        player_.ResetDisplayedCamerasEmptyFlag();
    }

    void Drive(Track& track, Tally& tally) {
        const TimePoint& head = player_.GetCurrentTimePoint();
        tally.Count(Intake, [&] { return track.compressed.Update() + track.decoded.Update(); });
        ISample* sample = nullptr;
        tally.Count(LookUp,
                    [&] { return track.compressed.GetSample(head, kRate, &sample, true) == Cache::Valid; });
        tally.Count(Plan, [&] { track.planner.Update(&player_); });
        TimePoint tp;
        while (tally.Count(Plan, [&] { return track.planner.Get(tp); })) {
            if (tally.Count(Ask, [&] { return !track.compressed.InsertPendingEntry(tp); })) {
                track.order.Set(tp, kRate, track.compressed.GetQueue(), track.id);
                tally.Count(PushOrder, [&] { preloadOrders_.Push(track.order); });
            }
        }
        if (sample != nullptr) {
            tally.Count(Decode, [&] { PushDecodeOrder(track, sample); });
        }
        tally.Count(Evict, [&] { return EvictFrom(track); });
    }

    void PushDecodeOrder(Track& track, ISample* sample) {
        const TimePoint tp = sample->GetTimePoint();
        if (track.decoded.InsertPendingEntry(tp)) {
            return;
        }
        DecodeOrder order;
        order.toDecode_ = sample;
        order.orderTp_ = tp;
        order.queue_ = track.decoded.GetQueue();
        sample->Protect(1);
        decodeOrders_.Push(order);
    }

    std::size_t EvictFrom(Track& track) {
        const std::int64_t head = player_.GetCurrentTimePoint().SampleNumber(kRate);
        const std::int64_t stride = std::max<std::int64_t>(std::abs(scenario_.speed.Numerator()), 1);
        std::int64_t before = (scenario_.window + 5) * stride;
        std::int64_t after = before;
        if (scenario_.speed.Numerator() != 0) {
            (scenario_.speed.Positive() ? before : after) = 5 * stride;
        } else {
            before = after = scenario_.window / 2 + 2;
        }
        std::size_t nb = Keep(track.compressed, head - before, head + after);
        nb += Keep(track.decoded, head - 2 * stride, head + 2 * stride);
        return nb;
    }

    static std::size_t Keep(Cache& cache, std::int64_t first, std::int64_t last) {
        return cache.EraseBefore(StartOf(first, kRate)) +
               cache.EraseAfter(StartOf(last, kRate), Cache::Not_Found);
    }

    void RunWorkers(Tally& tally) {
        while (tally.Count(PushOrder, [this] { return preloadWorker_.Dequeue(taken_); })) {
            tally.Count(Answer, [this] { return preloadWorker_.ProcessOrder(taken_); });
        }
        while (tally.Count(Decode, [this] { return decodeWorker_.Dequeue(takenForDecoding_); })) {
            tally.Count(Decode, [this] { decodeWorker_.ProcessOrder(takenForDecoding_); });
        }
    }

    const Scenario scenario_;
    ExistingCacheUpdateQueues queues_;
    PreloadOrderQueue preloadOrders_;
    DecodeOrderQueue decodeOrders_;
    UncountedPreloader preloader_;
    UncountedDecoder decoder_;
    std::vector<std::unique_ptr<Track>> tracks_;
    PreloadThread preloadWorker_;
    DecodeThread decodeWorker_;
    PreloadOrder taken_;
    DecodeOrder takenForDecoding_;
    Player player_;
    std::int64_t nbTicks_ = 0;
};

class SteadyTick : public ::testing::TestWithParam<Scenario> {};

TEST_P(SteadyTick, AsksTheHeapForNothing) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "this build's operator new cannot be counted";
    }
    constexpr int kNbTicks = 300;
    const auto nbWarmUp = static_cast<int>(2 * GetParam().window + 200);
    Wall wall(GetParam());
    Tally warmUp;
    for (int tick = 0; tick < nbWarmUp; ++tick) {
        wall.Tick(warmUp);
    }
    Tally tally;
    for (int tick = 0; tick < kNbTicks; ++tick) {
        wall.Tick(tally);
    }
    ASSERT_GT(warmUp.NbAllocations(), 0U) << "allocations are not counted";
    for (int i = 0; i < NbSteps; ++i) {
        const auto step = static_cast<Step>(i);
        EXPECT_EQ(tally.NbAllocations(step), 0U)
            << "allocations in " << kNbTicks << " ticks while " << NameOf(step);
    }
    // Nothing is proved by ticks in which nothing comes and goes.
    const auto atLeast = static_cast<std::size_t>(kNbTicks * GetParam().nbTracks / 2);
    for (const Step step : {Intake, LookUp, Plan, Ask, PushOrder, Answer, Decode, Evict}) {
        EXPECT_GE(tally.NbDone(step), atLeast) << NameOf(step);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Playing, SteadyTick,
    ::testing::Values(
        Scenario{.name = "Forward", .speed = Ratio(1, 1)},
        Scenario{.name = "ForwardWithAThousandEntries", .speed = Ratio(1, 1), .nbTracks = 2, .window = 1000},
        Scenario{.name = "ForwardWithOneTrack", .speed = Ratio(1, 1), .nbTracks = 1},
        Scenario{.name = "Backward", .speed = Ratio(-1, 1)},
        Scenario{.name = "BackwardFast", .speed = Ratio(-2, 1)},
        Scenario{.name = "FourTimes", .speed = Ratio(4, 1)},
        Scenario{.name = "StandingStillHereAndThere", .speed = Ratio(0, 1), .window = 60, .jumps = true},
        Scenario{.name = "StorageWithALongName",
                 .speed = Ratio(1, 1),
                 .storage = "recorder-17.hall-3.storage.example.org"}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace Tavrin::Player
