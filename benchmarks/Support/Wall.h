#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Player/Player.h"
#include "Player/TrackId.h"
#include "Support/BenchSample.h"
#include "Support/Scene.h"
#include "Support/TrackStream.h"

namespace Tavrin::Player::Bench {

/// What the tracks of a wall draw from, whose samples would otherwise take most of the memory: enough not to
/// fit into any cache of the processor.
inline SampleArena& WallSamples() {
    static SampleArena samples(262'144);
    return samples;
}

/// Tracks that are played in step, driven as a client's output thread drives them: `Tick`. What workers do in
/// between, `Answer`, has been done when the next tick comes.
///
/// Each track's window is full from the first tick on: a tenth of its entries behind the play head, the rest
/// ahead. Each tick takes one sample in, asks for one and evicts one.
template <typename Kit>
class Wall {
public:
    Wall(std::size_t nbTracks, std::int64_t nbEntries)
        : nbBehind_(nbEntries / 10),
          nbAhead_(nbEntries - nbBehind_ - 1),
          behind_(StartOf(nbBehind_)),
          tracks_(nbTracks) {
        player_.GoTo(Inside(kFirst));
        for (std::size_t i = 0; i < nbTracks; ++i) {
            tracks_[i] = std::make_unique<Track>();
            SetUp(*tracks_[i], i);
        }
    }
    Wall(const Wall&) = delete;
    Wall& operator=(const Wall&) = delete;
    ~Wall() { player_.DetachAllStreams(); }

    /// One tick of the output thread. `note` is told of every result, in order.
    template <typename Note>
    void Tick(Note note) {
        player_.Update(Time::TimePoint().FromNanoseconds(kTickNanoseconds));
        for (const auto& track : tracks_) {
            TickTrack(*track, note);
        }
    }

    /// What the workers do between two ticks: every order is answered with a sample.
    void Answer() {
        typename Kit::PreloadOrder order;
        Output output;
        for (const auto& track : tracks_) {
            while (track->orders_.Pop(order)) {
                output.tp_ = order.tp_;
                output.sample_ = WallSamples().At(track->nextSample_++);
                registry_.PushIfExists(order.queue_, output);
            }
        }
    }

private:
    /// One sample of 30000/1001, rounded up: an hour of ticks moves the play head by 36 microseconds within
    /// its sample.
    static constexpr std::int64_t kTickNanoseconds = 33'366'667;

    struct Track {
        typename Kit::Cache cache_;
        typename Kit::PreloadTimePointGenerator generator_;
        typename Kit::PreloadOrderQueue orders_;
        typename Kit::PreloadOrder order_;
        TrackStream stream_;
        std::size_t nextSample_ = 0;
    };

    void SetUp(Track& track, std::size_t number) {
        const TrackId id(StorageId("10.0.0.2", 5'000), static_cast<std::int64_t>(number));
        track.nextSample_ = number * static_cast<std::size_t>(nbBehind_ + nbAhead_ + 2);
        track.cache_.SetStreamSampleRate(StreamRate());
        track.cache_.SetTrackId(id);
        track.generator_.SetSampleRate(StreamRate());
        track.generator_.SetDisplayRate(StreamRate());
        track.generator_.SetCache(&track.cache_);
        track.generator_.SetNumberPreloads(static_cast<std::uint64_t>(nbAhead_));
        track.order_.s_ = StreamRate();
        track.order_.queue_ = track.cache_.GetQueue();
        track.order_.id_ = id;
        registry_.InsertExistingQueue(track.cache_.GetQueue());
        player_.AttachStream(&track.stream_);
        FillWindow(track);
    }

    /// The newest entry stays pending until it is answered, as every tick will find it.
    void FillWindow(Track& track) {
        const std::int64_t last = kFirst + nbAhead_;
        for (std::int64_t number = kFirst - nbBehind_; number < last; ++number) {
            Output output;
            output.tp_ = StartOf(number);
            output.sample_ = WallSamples().At(track.nextSample_++);
            TakeIn(track.cache_, output);
        }
        track.cache_.InsertPendingEntry(StartOf(last));
        track.order_.tp_ = StartOf(last);
        track.orders_.Push(track.order_);
    }

    template <typename Note>
    void TickTrack(Track& track, Note note) {
        const Time::TimePoint head = player_.GetCurrentTimePoint();
        ISample* sample = nullptr;
        note(track.cache_.Update());
        note(track.cache_.GetSample(head, StreamRate(), &sample, false));
        note(sample);
        track.generator_.Update(&player_);
        while (track.generator_.Get(track.order_.tp_)) {
            note(track.order_.tp_);
            track.cache_.InsertPendingEntry(track.order_.tp_);
            track.orders_.Push(track.order_);
        }
        note(track.cache_.EraseBefore(head - behind_));
    }

    const std::int64_t nbBehind_;
    const std::int64_t nbAhead_;
    const Time::TimePoint behind_;
    Player player_;
    typename Kit::ExistingCacheUpdateQueues registry_;
    std::vector<std::unique_ptr<Track>> tracks_;
};

}  // namespace Tavrin::Player::Bench
