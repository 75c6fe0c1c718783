#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakeDecoder.h"
#include "Player/FakePreloader.h"
#include "Player/IPlayer.h"
#include "Player/IStream.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

namespace Tavrin::Player::Testing {

/// What a simulated track is like and how far around the play head it is kept ready, in samples of the rate
/// that is needed at the current speed.
struct SimulatedTrack {
    std::int64_t track_ = 1;
    SampleRate rate_ = SampleRate(25, 1);
    SampleRate display_ = SampleRate(25, 1);
    Time::TimePoint end_ = Sec(60);
    std::int64_t nbDecoded_ = 6;
    std::int64_t nbCompressed_ = 10;
    std::int64_t nbBehind_ = 3;
    bool isBroken_ = false;  ///< Storage cannot deliver any sample.
    /// Of a sample while it is decoded: the worker releases one, and so does the fake decoder.
    std::int64_t nbProtections_ = 2;
};

/// A client's stream on the library's doubles: a cache of compressed and one of decoded samples, a planner
/// for each, and the orders for what they lack.
///
/// *Threads:* bound to one thread.
/// *Ownership:* its queues are registered while it lives; no worker may serve its order queues when it goes.
class SimulatedStream final : public Stream {
public:
    SimulatedStream(const SimulatedTrack& settings, ExistingCacheUpdateQueues& registry)
        : Stream(settings.track_), settings_(settings), registry_(registry), end_(settings.end_) {
        StreamParameters parameters;
        parameters.type_ = "simulated";
        parameters.compressedSampleRate_ = settings.rate_;
        parameters.uncompressedSampleRate_ = settings.rate_;
        parameters.displayRate_ = settings.display_;
        parameters.trackId_ = Testing::Track(settings.track_);
        parameters.nbPreloading_ = static_cast<std::size_t>(settings.nbCompressed_);
        parameters.nbDecoding_ = static_cast<std::size_t>(settings.nbDecoded_);
        SimulatedStream::SetStreamParameters(parameters);
        registry_.InsertExistingQueue(compressed_.GetQueue());
        registry_.InsertExistingQueue(decoded_.GetQueue());
    }

    ~SimulatedStream() override {
        registry_.RemoveExistingQueue(compressed_.GetQueue());
        registry_.RemoveExistingQueue(decoded_.GetQueue());
    }

    Time::TimePoint Begin() override { return begin_; }
    void SetBegin(const Time::TimePoint& tp) override { begin_ = tp; }
    Time::TimePoint End() override { return end_; }
    void SetEnd(const Time::TimePoint& tp) override { end_ = tp; }
    bool Exists(const Time::TimePoint& tp) override { return begin_ <= tp && tp < end_; }
    Time::TimePoint Next(const Time::TimePoint& tp) override {
        return Time::TimePoint::StartOfSample(tp.SampleNumber(settings_.rate_) + 1, settings_.rate_);
    }
    Time::TimePoint Previous(const Time::TimePoint& tp) override {
        return Time::TimePoint::StartOfSample(tp.SampleNumber(settings_.rate_) - 1, settings_.rate_);
    }

    SampleStatus GetCurrentSample(ISample** sample) override {
        if (!IsLinked()) {
            return SampleStatus::Unlinked;
        }
        ISample* found = nullptr;
        const Cache::EntryType type = Current(&found);
        currentSampleIsEmpty = type == Cache::Missing;
        if (type != Cache::Valid) {
            shown_ = nullptr;
            return type == Cache::Missing ? SampleStatus::Empty : SampleStatus::NotReady;
        }
        *sample = found;
        return std::exchange(shown_, found) == found ? SampleStatus::Same : SampleStatus::New;
    }

    void SetStreamParameters(const StreamParameters& parameters) override {
        parameters_ = parameters;
        parameters_.preloadQueue_ = &preloadQueue_;
        parameters_.decodeQueue_ = &decodeQueue_;
        Configure(compressed_, compressedPlanner_, parameters.nbPreloading_);
        Configure(decoded_, decodedPlanner_, parameters.nbDecoding_);
    }
    const StreamParameters& GetStreamParameters() override { return parameters_; }

    void LinkPlayer(IPlayer* player) override { player_ = player; }
    void UnlinkPlayer() override { player_ = nullptr; }
    bool IsLinked() override { return player_ != nullptr; }
    bool IsReady() override {
        ISample* sample = nullptr;
        const Cache::EntryType type = IsLinked() ? Current(&sample) : Cache::Missing;
        return type == Cache::Valid || type == Cache::Missing;
    }

    CacheUpdateQueue* GetCacheUpdateQueue() override { return compressed_.GetQueue(); }
    CacheUpdateQueue* GetUncompressedCacheUpdateQueue() override { return decoded_.GetQueue(); }
    void SetCompressedPreloadNumber(std::size_t nb) override { compressedPlanner_.SetNumberPreloads(nb); }
    std::int32_t DebugPreloadQueueSize() override {
        return static_cast<std::int32_t>(preloadQueue_.GetSize());
    }

    /// Files what the workers have delivered; how many answers that were.
    std::size_t Intake() {
        const std::size_t nbCompressed = compressed_.Update();
        return nbCompressed + decoded_.Update();
    }

    /// Orders what is needed around the play head, nearest first, and drops the rest; how many samples were
    /// ordered.
    std::size_t Plan() {
        Evict();
        nbOrdered_ = 0;
        AskForDecoded(player_->GetCurrentTimePoint().AlignWith(NeededRate()));
        Time::TimePoint tp;
        decodedPlanner_.Update(player_);
        while (decodedPlanner_.Get(tp)) {
            AskForDecoded(tp);
        }
        compressedPlanner_.Update(player_);
        while (compressedPlanner_.Get(tp)) {
            AskForCompressed(tp);
        }
        return nbOrdered_;
    }

    bool HasPending() const {
        return compressed_.GetInformation().nbPendingSamples_ > 0 ||
               decoded_.GetInformation().nbPendingSamples_ > 0;
    }

    /// The rate at which samples are needed at the player's speed: the stream's own, halved until the display
    /// can show it.
    SampleRate NeededRate() const {
        return SampleRate::StreamPreloadRate(
            settings_.rate_,
            SampleRate::TimeSamplingRate(settings_.rate_, player_->GetSpeed(), settings_.display_));
    }

    const SimulatedTrack& Settings() const { return settings_; }
    Cache& Compressed() { return compressed_; }
    Cache& Decoded() { return decoded_; }
    PreloadOrderQueue& PreloadOrders() { return preloadQueue_; }
    DecodeOrderQueue& DecodeOrders() { return decodeQueue_; }

private:
    void Configure(Cache& cache, PreloadTimePointGenerator& planner, std::size_t nb) {
        cache.SetTrackId(parameters_.trackId_);
        cache.SetStreamSampleRate(settings_.rate_);
        planner.SetTrackId(parameters_.trackId_);
        planner.SetSampleRate(settings_.rate_);
        planner.SetDisplayRate(parameters_.displayRate_);
        planner.SetCache(&cache);
        planner.SetNumberPreloads(nb);
    }

    /// The decoded sample for the play head; missing where the stream has none.
    Cache::EntryType Current(ISample** sample) {
        const Time::TimePoint head = player_->GetCurrentTimePoint();
        return Exists(head) ? decoded_.GetSample(head, NeededRate(), sample, false) : Cache::Missing;
    }

    void AskForCompressed(const Time::TimePoint& tp) {
        if (!Exists(tp) || compressed_.InsertPendingEntry(tp)) {
            return;
        }
        ++nbOrdered_;
        preloadQueue_.Push(PreloadOrder(tp, settings_.rate_, compressed_.GetQueue(), parameters_.trackId_));
    }

    void AskForDecoded(const Time::TimePoint& tp) {
        if (!Exists(tp)) {
            return;
        }
        ISample* compressed = nullptr;
        const Cache::EntryType type = compressed_.GetSample(tp, settings_.rate_, &compressed, false);
        if (type == Cache::Not_Found) {
            AskForCompressed(tp);
        }
        if (type == Cache::Pending || type == Cache::Not_Found || decoded_.InsertPendingEntry(tp)) {
            return;
        }
        ++nbOrdered_;
        if (type == Cache::Valid) {
            Decode(*compressed, tp);
        } else {
            Output nothing;
            nothing.tp_ = tp;
            decoded_.GetQueue()->Push(nothing);
        }
    }

    void Decode(ISample& compressed, const Time::TimePoint& tp) {
        DecodeOrder order;
        order.toDecode_ = &compressed;
        order.orderTp_ = tp;
        order.queue_ = decoded_.GetQueue();
        compressed.Protect(settings_.nbProtections_);
        decodeQueue_.Push(order);
    }

    /// Keeps so many samples on the side that the play head moves to, and a few on the other.
    void Evict() {
        Evict(decoded_, static_cast<std::int64_t>(parameters_.nbDecoding_));
        Evict(compressed_, static_cast<std::int64_t>(parameters_.nbPreloading_));
    }

    void Evict(Cache& cache, std::int64_t nbAhead) {
        const SampleRate rate = NeededRate();
        const std::int64_t head = player_->GetCurrentTimePoint().SampleNumber(rate);
        const std::int64_t speed = player_->GetSpeed().Numerator();
        const std::int64_t before = speed > 0 ? settings_.nbBehind_ : nbAhead;
        const std::int64_t after = speed < 0 ? settings_.nbBehind_ : nbAhead;
        cache.EraseBefore(Time::TimePoint::StartOfSample(head - before, rate));
        cache.EraseAfter(Time::TimePoint::StartOfSample(head + after, rate), Cache::Not_Found);
    }

    const SimulatedTrack settings_;
    ExistingCacheUpdateQueues& registry_;
    StreamParameters parameters_;
    Time::TimePoint begin_;
    Time::TimePoint end_;
    IPlayer* player_ = nullptr;
    const ISample* shown_ = nullptr;
    std::size_t nbOrdered_ = 0;
    Cache compressed_;
    Cache decoded_;
    PreloadTimePointGenerator compressedPlanner_;
    PreloadTimePointGenerator decodedPlanner_;
    PreloadOrderQueue preloadQueue_;
    DecodeOrderQueue decodeQueue_;
};

/// A storage for several tracks, each at its own rate, whose answers can be held back.
///
/// *Threads:* thread-safe once all tracks are added.
class SimulatedStorage final : public IPreloader {
public:
    FakePreloader& AddTrack(std::int64_t track, const SampleRate& rate) {
        tracks_.push_back({track, std::make_unique<FakePreloader>(), std::make_unique<CallControl>()});
        tracks_.back().storage_->SetSampleRate(rate);
        return *tracks_.back().storage_;
    }

    /// Where the orders of a track wait.
    CallControl& Calls(std::int64_t track) { return *Find(track).calls_; }

    PreloadResult Preload(const PreloadOrder& order) override {
        Entry& entry = Find(order.id_.Id());
        entry.calls_->Enter();
        return entry.storage_->Preload(order);
    }

    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

private:
    struct Entry {
        std::int64_t track_ = 0;
        std::unique_ptr<FakePreloader> storage_;
        std::unique_ptr<CallControl> calls_;
    };

    Entry& Find(std::int64_t track) {
        const auto found = std::find_if(tracks_.begin(), tracks_.end(),
                                        [&](const Entry& entry) { return entry.track_ == track; });
        if (found == tracks_.end()) {
            throw std::runtime_error("no such track");
        }
        return *found;
    }

    std::vector<Entry> tracks_;
};

/// How a simulated server fetches.
enum class Pacing { AtOnce, InSlots };

/// Everything between an order and its answer: storage, decoder, registry, and the workers.
class SimulatedServer {
public:
    explicit SimulatedServer(Pacing pacing = Pacing::AtOnce) {
        if (pacing == Pacing::InSlots) {
            auto worker = std::make_unique<TimedPreloadThread>();
            worker->SetSendingUnitPeriod(50);
            timed_ = worker.get();
            preload_.push_back(std::move(worker));
        } else {
            preload_.push_back(std::make_unique<PreloadThread>());
            preload_.push_back(std::make_unique<PreloadThread>());
        }
        for (const auto& worker : preload_) {
            worker->SetPreloader(&storage_);
        }
        for (DecodeThread& worker : decode_) {
            worker.SetDecoder(&decoder_);
            worker.SetExistingUncompressedCacheUpdateQueues(&registry_);
        }
    }

    /// Before the workers are started.
    std::unique_ptr<SimulatedStream> AddStream(const SimulatedTrack& settings) {
        storage_.AddTrack(settings.track_, settings.rate_).ReturnValidSample(!settings.isBroken_);
        auto stream = std::make_unique<SimulatedStream>(settings, registry_);
        for (const auto& worker : preload_) {
            worker->SetPreloadOrderQueue(&stream->PreloadOrders());
        }
        for (std::size_t slot = 0; timed_ != nullptr && slot < 50; ++slot) {
            timed_->RegisterOrder(Track(settings.track_), slot);
        }
        for (DecodeThread& worker : decode_) {
            worker.AddDecodeOrderQueue(&stream->DecodeOrders());
        }
        return stream;
    }

    void Start() {
        for (const auto& worker : preload_) {
            worker->Start();
        }
        for (DecodeThread& worker : decode_) {
            worker.Start();
        }
    }

    /// After this no worker touches a stream's queues any more.
    void Stop() {
        for (const auto& worker : preload_) {
            worker->Stop();
        }
        for (DecodeThread& worker : decode_) {
            worker.Stop();
        }
    }

    SimulatedStorage& Storage() { return storage_; }

private:
    ExistingCacheUpdateQueues registry_;
    SimulatedStorage storage_;
    FakeDecoder decoder_;
    std::vector<std::unique_ptr<IPreloadThread>> preload_;
    TimedPreloadThread* timed_ = nullptr;
    std::array<DecodeThread, 2> decode_;
};

}  // namespace Tavrin::Player::Testing
