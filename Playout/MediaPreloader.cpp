#include "Playout/MediaPreloader.h"

#include <chrono>
#include <exception>
#include <utility>

#include "Player/CacheUpdateQueue.h"
#include "Player/Output.h"
#include "Playout/CompressedSample.h"
#include "Playout/GroupReach.h"
#include "Playout/GroupReader.h"

namespace Tavrin::Playout {

/// One recording with the reader of its file.
class MediaPreloader::Track {
public:
    Track(Player::TrackId id, std::shared_ptr<const RecordingIndex> index)
        : id_(std::move(id)), index_(std::move(index)), reader_(index_) {}

    const RecordingIndex& Index() const { return *index_; }

    void SetReach(const GroupReach& reach) {
        const std::scoped_lock lock(stateMutex_);
        reach_ = reach;
    }

    std::size_t Within(std::size_t picture) const {
        const std::scoped_lock lock(stateMutex_);
        return reach_.IsWhole() ? picture : PictureWithin(*index_, reach_, picture);
    }

    void Abandon(std::optional<std::size_t> kept) {
        const std::scoped_lock lock(stateMutex_);
        kept_ = kept;
        ++nbAbandonments_;
        if (reading_ && reading_ != kept) {
            reader_.RequestStopAt(std::max(since_ + kHanging, Clock::now()));
        } else {
            reader_.TakeBackStop();
        }
    }

    /// Nobody needs it any more: nothing is waited for.
    void AbandonNow() {
        const std::scoped_lock lock(stateMutex_);
        kept_.reset();
        ++nbAbandonments_;
        if (reading_) {
            reader_.RequestStopAt(Clock::now());
        }
    }

    /// The group, read from the file unless it is at hand; null when that failed or was abandoned.
    std::shared_ptr<const PacketGroup> Read(std::size_t group, const ReadHook& hook, Trace* trace) {
        const std::uint64_t asked = NbAbandonments();
        const std::scoped_lock lock(mutex_);
        std::shared_ptr<const PacketGroup> read = reader_.AtHand(group);
        if (read == nullptr && IsStale(group, asked)) {
            ++nbAbandonedReads_;
        } else {
            read = ReadNow(group, asked, hook, trace);
        }
        Publish();
        return read;
    }

    Information GetInformation() const {
        const std::scoped_lock lock(publishedMutex_);
        Information information = published_;
        information.nbBytesHeld = reader_.HeldBytes();
        return information;
    }

    LatencyHistogram GetLatency() const {
        const std::scoped_lock lock(publishedMutex_);
        return latency_;
    }

private:
    using Clock = std::chrono::steady_clock;

    /// A read that is given up after this long is not given up between packets: the file has to be opened anew.
    static constexpr std::chrono::milliseconds kHanging{100};

    std::uint64_t NbAbandonments() const {
        const std::scoped_lock lock(stateMutex_);
        return nbAbandonments_;
    }

    bool IsStale(std::size_t group, std::uint64_t asked) const {
        const std::scoped_lock lock(stateMutex_);
        return nbAbandonments_ != asked && kept_ != group;
    }

    void NoteReading(std::optional<std::size_t> group) {
        const std::scoped_lock lock(stateMutex_);
        reading_ = group;
        since_ = Clock::now();
        reader_.TakeBackStop();
    }

    std::shared_ptr<const PacketGroup> ReadNow(std::size_t group, std::uint64_t asked, const ReadHook& hook,
                                               Trace* trace) {
        std::shared_ptr<const PacketGroup> read;
        const bool atHand = reader_.AtHand(group) != nullptr;
        TraceSpan span(atHand ? nullptr : trace, "storage", "read",
                       {{"track", id_.Id()}, {"group", static_cast<std::int64_t>(group)}});
        const auto begin = Clock::now();
        NoteReading(group);
        try {
            if (!atHand && hook) {
                hook(id_, group);
            }
            read = reader_.Read(group, [&] { return IsStale(group, asked); });
            nbMissingPackets_ += atHand || read == nullptr ? 0 : read->NbMissing();
            nbAbandonedReads_ += read == nullptr ? 1 : 0;
        } catch (const std::exception& error) {
            const bool stale = IsStale(group, asked);
            nbAbandonedReads_ += stale ? 1 : 0;
            nbFailedReads_ += stale ? 0 : 1;
            lastError_ = stale ? lastError_ : error.what();
        }
        NoteReading(std::nullopt);
        if (!atHand) {
            NoteLatency(Clock::now() - begin);
            span.Add({"bytes", read == nullptr ? 0 : static_cast<std::int64_t>(read->ByteSize())});
        }
        return read;
    }

    void NoteLatency(std::chrono::nanoseconds latency) {
        const std::scoped_lock lock(publishedMutex_);
        latency_.Add(latency);
    }

    void Publish() {
        const auto reading = reader_.GetInformation();
        const std::scoped_lock lock(publishedMutex_);
        published_.nbReads = reading.nbReads;
        published_.nbReused = reading.nbReused;
        published_.nbFailedReads = nbFailedReads_;
        published_.nbAbandonedReads = nbAbandonedReads_;
        published_.nbMissingPackets = nbMissingPackets_;
        published_.nbBytesKept = reading.nbBytesKept;
        published_.nbBytesRead = reading.nbBytesRead;
        published_.lastError = lastError_;
    }

    Player::TrackId id_;
    std::shared_ptr<const RecordingIndex> index_;
    std::mutex mutex_;  ///< Held through a read, which may take long.
    GroupReader reader_;
    std::uint64_t nbFailedReads_ = 0;
    std::uint64_t nbAbandonedReads_ = 0;
    std::uint64_t nbMissingPackets_ = 0;
    std::string lastError_;

    mutable std::mutex stateMutex_;  ///< Never held for long; guards what follows.
    GroupReach reach_;
    std::optional<std::size_t> kept_;
    std::uint64_t nbAbandonments_ = 0;
    std::optional<std::size_t> reading_;
    Clock::time_point since_;

    /// As of the latest read: whoever asks must not wait for the one in progress.
    mutable std::mutex publishedMutex_;
    Information published_;
    LatencyHistogram latency_;
};

MediaPreloader::MediaPreloader() = default;

MediaPreloader::~MediaPreloader() = default;

void MediaPreloader::AddTrack(const Player::TrackId& track, std::shared_ptr<const RecordingIndex> index) {
    auto added = std::make_shared<Track>(track, std::move(index));
    const std::unique_lock lock(tracksMutex_);
    tracks_[track] = std::move(added);
}

void MediaPreloader::RemoveTrack(const Player::TrackId& track) {
    const std::unique_lock lock(tracksMutex_);
    tracks_.erase(track);
}

std::shared_ptr<MediaPreloader::Track> MediaPreloader::Find(const Player::TrackId& track) const {
    const std::shared_lock lock(tracksMutex_);
    const auto found = tracks_.find(track);
    return found == tracks_.end() ? nullptr : found->second;
}

MediaPreloader::Information MediaPreloader::GetInformation(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? Information() : found->GetInformation();
}

void MediaPreloader::SetReach(const Player::TrackId& track, const GroupReach& reach) {
    if (const auto found = Find(track)) {
        found->SetReach(reach);
    }
}

void MediaPreloader::Abandon(const Player::TrackId& track, std::optional<std::size_t> kept) {
    if (const auto found = Find(track)) {
        found->Abandon(kept);
    }
}

void MediaPreloader::GiveUp(const Player::TrackId& track) {
    if (const auto found = Find(track)) {
        found->AbandonNow();
    }
}

LatencyHistogram MediaPreloader::GetLatency(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? LatencyHistogram() : found->GetLatency();
}

void MediaPreloader::SetDeliveryHook(DeliveryHook hook) {
    deliveryHook_ = std::move(hook);
}

void MediaPreloader::SetReadHook(ReadHook hook) {
    readHook_ = std::move(hook);
}

void MediaPreloader::SetTrace(std::shared_ptr<Trace> trace) {
    trace_ = std::move(trace);
}

void MediaPreloader::SetExistingCacheUpdateQueues(Player::ExistingCacheUpdateQueues* queues) {
    existingQueues_ = queues;
}

MediaPreloader::PreloadResult MediaPreloader::Fetch(const Player::PreloadOrder& order,
                                                    std::unique_ptr<Player::ISample>& sample) const {
    const auto track = Find(order.id_);
    if (track == nullptr) {
        return ERROR;
    }
    const auto& index = track->Index();
    const auto number = order.tp_.SampleNumber(index.Rate());
    const auto asked = index.PictureAt(number);
    if (!asked) {
        return SUCCESS_MISSING;
    }
    const std::size_t picture = track->Within(*asked);
    const auto& indexed = index.Picture(picture);
    auto group = track->Read(indexed.group, readHook_, trace_.get());
    if (group == nullptr) {
        return ERROR;
    }
    if (group->Packet(indexed.packet) == nullptr) {
        return SUCCESS_MISSING;
    }
    const auto start = index.SampleStart(number);
    sample = std::make_unique<CompressedSample>(order.id_, std::move(group), picture, start,
                                                index.SampleStart(number + 1) - start);
    return SUCCESS_EXIST;
}

void MediaPreloader::Deliver(const Player::PreloadOrder& order,
                             std::unique_ptr<Player::ISample> sample) const {
    Player::Output output;
    output.sample_ = sample.get();
    output.tp_ = order.tp_;
    if (existingQueues_ == nullptr) {
        order.queue_->Push(output);
    } else if (!existingQueues_->PushIfExists(order.queue_, output)) {
        return;
    }
    // Whoever empties the queue owns it from here on, and may have deleted it already.
    static_cast<void>(sample.release());
}

MediaPreloader::PreloadResult MediaPreloader::Preload(const Player::PreloadOrder& order) {
    if (order.queue_ == nullptr) {
        return ERROR;
    }
    if (trace_ != nullptr) {
        trace_->NameThread("reader");
    }
    std::unique_ptr<Player::ISample> sample;
    PreloadResult result = ERROR;
    try {
        result = Fetch(order, sample);
    } catch (const std::exception&) {
        // Memory has run out: that fails this order, which must be answered all the same.
        sample.reset();
    }
    Deliver(order, std::move(sample));
    if (deliveryHook_) {
        deliveryHook_(order, result);
    }
    return result;
}

}  // namespace Tavrin::Playout
