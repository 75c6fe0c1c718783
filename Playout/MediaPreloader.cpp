#include "Playout/MediaPreloader.h"

#include <exception>
#include <utility>

#include "Player/CacheUpdateQueue.h"
#include "Player/Output.h"
#include "Playout/CompressedSample.h"
#include "Playout/GroupReader.h"

namespace Tavrin::Playout {

/// One recording with the reader of its file.
class MediaPreloader::Track {
public:
    Track(Player::TrackId id, std::shared_ptr<const RecordingIndex> index)
        : id_(std::move(id)), index_(std::move(index)), reader_(index_) {}

    const RecordingIndex& Index() const { return *index_; }

    /// The group, read from the file unless it is at hand; null when that failed.
    std::shared_ptr<const PacketGroup> Read(std::size_t group, const ReadHook& hook) {
        const std::scoped_lock lock(mutex_);
        std::shared_ptr<const PacketGroup> read;
        try {
            const bool atHand = reader_.AtHand(group) != nullptr;
            if (!atHand && hook) {
                hook(id_, group);
            }
            read = reader_.Read(group);
            nbMissingPackets_ += atHand ? 0 : read->NbMissing();
        } catch (const std::exception& error) {
            ++nbFailedReads_;
            lastError_ = error.what();
        }
        Publish();
        return read;
    }

    Information GetInformation() const {
        const std::scoped_lock lock(publishedMutex_);
        return published_;
    }

private:
    void Publish() {
        const auto reading = reader_.GetInformation();
        const std::scoped_lock lock(publishedMutex_);
        published_ = {reading.nbReads,   reading.nbReused,    nbFailedReads_,
                      nbMissingPackets_, reading.nbBytesKept, lastError_};
    }

    Player::TrackId id_;
    std::shared_ptr<const RecordingIndex> index_;
    std::mutex mutex_;  ///< Held through a read, which may take long.
    GroupReader reader_;
    std::uint64_t nbFailedReads_ = 0;
    std::uint64_t nbMissingPackets_ = 0;
    std::string lastError_;

    /// As of the latest read: whoever asks must not wait for the one in progress.
    mutable std::mutex publishedMutex_;
    Information published_;
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

void MediaPreloader::SetDeliveryHook(DeliveryHook hook) {
    deliveryHook_ = std::move(hook);
}

void MediaPreloader::SetReadHook(ReadHook hook) {
    readHook_ = std::move(hook);
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
    const auto picture = index.PictureAt(number);
    if (!picture) {
        return SUCCESS_MISSING;
    }
    const auto& indexed = index.Picture(*picture);
    auto group = track->Read(indexed.group, readHook_);
    if (group == nullptr) {
        return ERROR;
    }
    if (group->Packet(indexed.packet) == nullptr) {
        return SUCCESS_MISSING;
    }
    const auto start = index.SampleStart(number);
    sample = std::make_unique<CompressedSample>(order.id_, std::move(group), *picture, start,
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
    std::unique_ptr<Player::ISample> sample;
    const auto result = Fetch(order, sample);
    Deliver(order, std::move(sample));
    if (deliveryHook_) {
        deliveryHook_(order, result);
    }
    return result;
}

}  // namespace Tavrin::Playout
