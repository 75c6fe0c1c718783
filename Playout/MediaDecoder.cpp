#include "Playout/MediaDecoder.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"

namespace Tavrin::Playout {

/// The lanes of one recording.
class MediaDecoder::Track {
public:
    Track(const std::shared_ptr<const RecordingIndex>& index, const MediaDecoderOptions& options)
        : index_(index), store_(std::make_shared<PictureStore>(options.storeBytes)) {
        for (std::size_t i = 0; i < std::max<std::size_t>(options.nbLanes, 1); ++i) {
            places_.push_back(std::make_unique<Place>(index, options.lane, store_));
        }
    }

    PictureStore& Store() { return *store_; }

    std::shared_ptr<const Picture> Decode(const CompressedSample& sample) {
        const auto& group = *sample.Group();
        if (group.Index() != index_) {
            throw std::runtime_error("track " + sample.Track().ToString() +
                                     " plays another recording now than \"" + group.Index()->File() + "\"");
        }
        if (auto stored = store_->Find(sample.PictureNumber())) {
            return stored;
        }
        const Visit visit(*this, group.Number());
        return visit.Where().Decode(group, sample.PictureNumber());
    }

    DecodeLane::Information GetInformation() const {
        DecodeLane::Information sum;
        for (const auto& place : places_) {
            Add(sum, place->GetInformation());
        }
        sum.nbStored = store_->Size();
        sum.storedBytes = store_->Bytes();
        sum.maxStoredBytes = store_->MaxBytesEver();
        return sum;
    }

private:
    /// A lane, and who uses it.
    struct Place {
        Place(const std::shared_ptr<const RecordingIndex>& index, const DecodeLaneOptions& options,
              const std::shared_ptr<PictureStore>& store)
            : lane(index, options, store) {}

        std::shared_ptr<const Picture> Decode(const PacketGroup& packets, std::size_t picture) {
            const std::scoped_lock lock(mutex);
            auto decoded = lane.Decode(packets, picture);
            const std::scoped_lock publishing(publishedMutex);
            published = lane.GetInformation();
            return decoded;
        }

        DecodeLane::Information GetInformation() const {
            const std::scoped_lock lock(publishedMutex);
            return published;
        }

        std::mutex mutex;  ///< Guards the lane, through decodes that may take long.
        DecodeLane lane;
        /// As of the latest decode: whoever asks must not wait for the one in progress.
        mutable std::mutex publishedMutex;
        DecodeLane::Information published;
        // The track's mutex guards these.
        std::optional<std::size_t> group;
        std::size_t nbVisitors = 0;
        std::uint64_t lastVisit = 0;
    };

    /// Takes part in a lane for a scope.
    class Visit {
    public:
        Visit(Track& track, std::size_t group) : track_(track) {
            const std::scoped_lock lock(track.mutex_);
            place_ = &track.Choose(group);
            place_->group = group;
            place_->lastVisit = ++track.nbVisits_;
            ++place_->nbVisitors;
        }
        ~Visit() {
            const std::scoped_lock lock(track_.mutex_);
            --place_->nbVisitors;
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        Place& Where() const { return *place_; }

    private:
        Track& track_;
        Place* place_;
    };

    /// The lane that stands in the group, else an idle one, else any; of several the one longest unused.
    Place& Choose(std::size_t group) {
        const auto rank = [&](const std::unique_ptr<Place>& place) {
            return std::tuple(place->group != group, place->nbVisitors > 0, place->lastVisit);
        };
        return **std::min_element(places_.begin(), places_.end(), [&](const auto& left, const auto& right) {
            return rank(left) < rank(right);
        });
    }

    static void Add(DecodeLane::Information& sum, const DecodeLane::Information& part) {
        sum.nbPacketsDecoded += part.nbPacketsDecoded;
        sum.nbPasses += part.nbPasses;
        sum.nbErrors += part.nbErrors;
        if (!part.lastError.empty()) {
            sum.lastError = part.lastError;
        }
    }

    std::shared_ptr<const RecordingIndex> index_;
    std::shared_ptr<PictureStore> store_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Place>> places_;
    std::uint64_t nbVisits_ = 0;
};

MediaDecoder::MediaDecoder() = default;

MediaDecoder::~MediaDecoder() = default;

void MediaDecoder::AddTrack(const Player::TrackId& track, const std::shared_ptr<const RecordingIndex>& index,
                            const MediaDecoderOptions& options) {
    auto added = std::make_shared<Track>(index, options);
    const std::unique_lock lock(tracksMutex_);
    tracks_[track] = std::move(added);
}

void MediaDecoder::RemoveTrack(const Player::TrackId& track) {
    const std::unique_lock lock(tracksMutex_);
    tracks_.erase(track);
}

std::shared_ptr<MediaDecoder::Track> MediaDecoder::Find(const Player::TrackId& track) const {
    const std::shared_lock lock(tracksMutex_);
    const auto found = tracks_.find(track);
    return found == tracks_.end() ? nullptr : found->second;
}

void MediaDecoder::SetPlace(const Player::TrackId& track, const PlayPlace& place) {
    if (const auto found = Find(track)) {
        found->Store().SetPlace(place);
    }
}

void MediaDecoder::SetStoreBytes(const Player::TrackId& track, std::size_t bytes) {
    if (const auto found = Find(track)) {
        found->Store().SetMaxBytes(bytes);
    }
}

DecodeLane::Information MediaDecoder::GetInformation(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? DecodeLane::Information() : found->GetInformation();
}

void MediaDecoder::SetDecodedHook(DecodedHook hook) {
    decodedHook_ = std::move(hook);
}

std::unique_ptr<Player::ISample> MediaDecoder::DecodeOne(const Player::DecodeOrder& order) const {
    const auto* sample = dynamic_cast<const CompressedSample*>(order.toDecode_);
    if (sample == nullptr) {
        throw std::runtime_error("the order at " + order.orderTp_.ToString() +
                                 " holds no compressed sample of a recording");
    }
    const auto track = Find(sample->Track());
    if (track == nullptr) {
        throw std::runtime_error("track " + sample->Track().ToString() + " has no recording to decode");
    }
    auto picture = track->Decode(*sample);
    if (picture == nullptr) {
        return nullptr;
    }
    Time::TimePoint tp;
    Time::TimePoint duration;
    order.GenerateTimePointAndDuration(tp, duration);
    auto field = PictureField::Frame;
    if (order.isInterlace_) {
        field = order.decodeTopField_ ? PictureField::Top : PictureField::Bottom;
    }
    return std::make_unique<DecodedSample>(std::move(picture), tp, duration, field);
}

Player::ISample* MediaDecoder::Decode(const Player::DecodeOrder& order) {
    std::unique_ptr<Player::ISample> decoded;
    try {
        decoded = DecodeOne(order);
    } catch (const std::exception& error) {
        if (decodedHook_) {
            decodedHook_(order, false);
        }
        // The one type that a decoder may throw: running out of memory fails this order, not the process.
        throw std::runtime_error(error.what());
    }
    if (decodedHook_) {
        decodedHook_(order, decoded != nullptr);
    }
    return decoded.release();
}

}  // namespace Tavrin::Playout
