#include "Playout/MediaDecoder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/PictureSize.h"

namespace Tavrin::Playout {

/// The lanes of one recording.
class MediaDecoder::Track {
public:
    Track(const std::shared_ptr<const RecordingIndex>& index, const MediaDecoderOptions& options,
          DecodeMeter& meter)
        : index_(index), meter_(meter) {
        const std::size_t nbLanes = std::max<std::size_t>(options.nbLanes, 1);
        margin_ = BytesBeingMade(*index, nbLanes, options.lane.nbThreads);
        if (options.pictureBytes > 0) {
            pool_ = FramePool::Create(options.pictureBytes);
        }
        store_ = std::make_shared<PictureStore>(
            options.pictureBytes > 0 ? StoreBytes(options.pictureBytes) : options.storeBytes, pool_);
        if (pool_ != nullptr) {
            // Pictures keep the pool, and may outlive the store.
            pool_->SetMakeRoom([store = std::weak_ptr(store_)](std::size_t nbBytes) {
                if (const auto held = store.lock()) {
                    held->MakeRoom(nbBytes);
                }
            });
        }
        for (std::size_t i = 0; i < nbLanes; ++i) {
            places_.push_back(std::make_unique<Place>(index, options.lane, store_, pool_));
        }
    }

    PictureStore& Store() { return *store_; }

    void SetPlace(const PlayPlace& place) {
        store_->SetPlace(place);
        const std::scoped_lock lock(mutex_);
        showsAllForward_ = !place.backward && place.stride <= 1;
    }

    void SetReach(const GroupReach& reach) {
        const std::scoped_lock lock(mutex_);
        reach_ = reach;
    }

    void SetPictureBytes(std::size_t bytes) {
        if (pool_ != nullptr) {
            pool_->SetMaxBytes(bytes);
        }
        store_->SetMaxBytes(StoreBytes(bytes));
    }

    std::shared_ptr<const Picture> Nearest(std::size_t picture) const {
        const PictureGroup& group = index_->Group(index_->Picture(picture).group);
        auto nearest = store_->Nearest(picture, group.firstPicture, group.EndPicture());
        return nearest != nullptr ? nearest : store_->Nearest(picture, 0, index_->NbPictures());
    }

    std::size_t PictureBytes() const { return pool_ == nullptr ? store_->Bytes() : pool_->UsedBytes(); }

    void Abandon(std::optional<std::size_t> kept) {
        const std::scoped_lock lock(mutex_);
        kept_ = kept;
        ++nbAbandonments_;
    }

    std::shared_ptr<const Picture> Decode(const CompressedSample& sample, Trace* trace) {
        const auto& group = *sample.Group();
        if (group.Index() != index_) {
            throw std::runtime_error("track " + sample.Track().ToString() +
                                     " plays another recording now than \"" + group.Index()->File() + "\"");
        }
        if (auto stored = store_->Find(sample.PictureNumber())) {
            nbFromStore_.fetch_add(1, std::memory_order_relaxed);
            return stored;
        }
        const Timing timing(*this);
        const TraceSpan span(trace, "decoder", "decode",
                             {{"track", sample.Track().Id()},
                              {"group", static_cast<std::int64_t>(group.Number())},
                              {"picture", static_cast<std::int64_t>(sample.PictureNumber())}});
        const Visit visit(*this, group.Number());
        DecodeManner manner;
        // At its time another picture may be due, for which this one stands in.
        const std::size_t asked =
            index_->PictureAtTime(sample.GetTimePoint()).value_or(sample.PictureNumber());
        manner.isStale = [&](std::size_t latest) {
            return visit.IsStale(sample.PictureNumber(), asked, latest);
        };
        manner.last = visit.IsLast(sample.PictureNumber());
        if (ShowsAllForward()) {
            manner.following = group.Next();
        }
        return visit.Where().Decode(group, sample.PictureNumber(), manner, meter_,
                                    [&] { return visit.IsOutOfDate(sample.PictureNumber()); });
    }

    const std::shared_ptr<SampleTally>& Tally() const { return tally_; }

    Answers GetAnswers() const {
        Answers answers;
        // Relaxed: a count that nothing is derived from.
        answers.nbFromStore = nbFromStore_.load(std::memory_order_relaxed);
        answers.samples = tally_->GetInformation();
        const std::scoped_lock lock(latencyMutex_);
        answers.latency = latency_;
        return answers;
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
    bool ShowsAllForward() const {
        const std::scoped_lock lock(mutex_);
        return showsAllForward_ && reach_.IsWhole();
    }

    /// What decoders take before the store next looks whether there is room.
    std::size_t StoreBytes(std::size_t bytes) const { return bytes - std::min(bytes, margin_); }

    /// A lane, and who uses it.
    struct Place {
        Place(const std::shared_ptr<const RecordingIndex>& index, const DecodeLaneOptions& options,
              const std::shared_ptr<PictureStore>& store, const std::shared_ptr<FramePool>& pool)
            : pictureBytes(DecodedPictureBytes(*index)), lane(index, options, store, pool) {}

        std::shared_ptr<const Picture> Decode(const PacketGroup& packets, std::size_t picture,
                                              const DecodeManner& manner, DecodeMeter& meter,
                                              const std::function<bool()>& isOutOfDate) {
            const std::scoped_lock lock(mutex);
            // The play head may have been put elsewhere while the lane was waited for.
            if (isOutOfDate()) {
                return nullptr;
            }
            const Measured measured(*this, meter);
            return lane.Decode(packets, picture, manner);
        }

        /// Measures and publishes what is done in a scope, however it ends.
        class Measured {
        public:
            Measured(Place& place, DecodeMeter& meter)
                : place_(place), meter_(meter), before_(NbPackets(place.lane.GetInformation())) {
                meter_.Begin(DecodeMeter::Clock::now());
            }
            ~Measured() {
                auto information = place_.lane.GetInformation();
                const auto nb = static_cast<std::size_t>(NbPackets(information) - before_);
                meter_.End(DecodeMeter::Clock::now(), nb * place_.pictureBytes);
                const std::scoped_lock lock(place_.publishedMutex);
                place_.published = std::move(information);
            }
            Measured(const Measured&) = delete;
            Measured& operator=(const Measured&) = delete;

        private:
            static std::uint64_t NbPackets(const DecodeLane::Information& information) {
                return information.nbPacketsDecoded + information.nbPacketsLeftOut;
            }

            Place& place_;
            DecodeMeter& meter_;
            std::uint64_t before_;
        };

        DecodeLane::Information GetInformation() const {
            const std::scoped_lock lock(publishedMutex);
            return published;
        }

        bool IsIn(std::size_t wanted) const { return group == wanted || goneOnFrom == wanted; }

        void Enter(std::size_t wanted) {
            if (!IsIn(wanted)) {
                goneOnFrom = GoesOnTo(wanted) ? group : std::nullopt;
                group = wanted;
            }
        }

        std::size_t pictureBytes;
        std::mutex mutex;  ///< Guards the lane, through decodes that may take long.
        DecodeLane lane;
        /// As of the latest decode: whoever asks must not wait for the one in progress.
        mutable std::mutex publishedMutex;
        DecodeLane::Information published;
        /// As of the latest decode; the track's mutex is held, and this one's only inside of it.
        bool GoesOnTo(std::size_t wanted) const {
            const std::scoped_lock lock(publishedMutex);
            // Sent elsewhere meanwhile, it begins anew.
            return published.goesOnTo == wanted && group && *group + 1 == wanted;
        }

        // The track's mutex guards these.
        std::optional<std::size_t> group;
        std::optional<std::size_t> goneOnFrom;  ///< Its last pictures come with the first one of the group.
        std::size_t nbVisitors = 0;
        std::uint64_t lastVisit = 0;
    };

    /// Adds the time that a scope takes to the latencies.
    class Timing {
    public:
        explicit Timing(Track& track) : track_(track), begin_(std::chrono::steady_clock::now()) {}
        ~Timing() {
            const auto latency = std::chrono::steady_clock::now() - begin_;
            const std::scoped_lock lock(track_.latencyMutex_);
            track_.latency_.Add(latency);
        }
        Timing(const Timing&) = delete;
        Timing& operator=(const Timing&) = delete;

    private:
        Track& track_;
        std::chrono::steady_clock::time_point begin_;
    };

    /// Takes part in a lane for a scope.
    class Visit {
    public:
        Visit(Track& track, std::size_t group) : track_(track) {
            const std::scoped_lock lock(track.mutex_);
            place_ = &track.Choose(group);
            place_->Enter(group);
            place_->lastVisit = ++track.nbVisits_;
            ++place_->nbVisitors;
            group_ = group;
            nbAbandonments_ = track.nbAbandonments_;
        }
        ~Visit() {
            const std::scoped_lock lock(track_.mutex_);
            --place_->nbVisitors;
            if (place_->group == group_) {
                place_->goneOnFrom.reset();
            }
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        Place& Where() const { return *place_; }

        /// The play head has been put elsewhere since the visit began, not to that picture.
        bool IsOutOfDate(std::size_t picture) const {
            const std::scoped_lock lock(track_.mutex_);
            return HasMoved() && track_.kept_ != picture;
        }

        /// Going on to the picture would not lead to where the play head has gone: to another group, or to a
        /// picture that the decoder is past. Or, where there is not the time to decode everything, the play head
        /// has passed the one that was asked for.
        bool IsStale(std::size_t picture, std::size_t asked, std::size_t latest) const {
            const std::scoped_lock lock(track_.mutex_);
            if (HasMoved() && track_.kept_ != picture) {
                const auto kept = track_.kept_;
                return !kept || *kept <= latest || track_.index_->Picture(*kept).group != group_;
            }
            return !track_.reach_.IsWhole() && track_.store_->IsPassed(asked);
        }

        /// Of the pictures of its group that there is time for, it is the last one: what lies beyond is stood in for by
        /// it.
        bool IsLast(std::size_t picture) const {
            const std::scoped_lock lock(track_.mutex_);
            if (track_.reach_.IsWhole()) {
                return false;
            }
            const PictureGroup& group = track_.index_->Group(group_);
            const std::size_t end = group.EndPacket() - group.firstPacket;
            for (std::size_t i = 0; i < std::min(track_.reach_.nbPackets, end); ++i) {
                const auto other = track_.index_->PictureOfPacket(group.firstPacket + i);
                if (other && *other > picture && *other < group.EndPicture()) {
                    return false;
                }
            }
            return true;
        }

    private:
        bool HasMoved() const { return track_.nbAbandonments_ != nbAbandonments_; }

        Track& track_;
        Place* place_;
        std::size_t group_;
        std::uint64_t nbAbandonments_;
    };

    /// The lane that stands in the group or is about to go on into it, else an idle one, else any; of several the one
    /// longest unused.
    Place& Choose(std::size_t group) {
        const auto rank = [&](const std::unique_ptr<Place>& place) {
            return std::tuple(!place->IsIn(group), !place->GoesOnTo(group), place->nbVisitors > 0,
                              place->lastVisit);
        };
        return **std::min_element(places_.begin(), places_.end(), [&](const auto& left, const auto& right) {
            return rank(left) < rank(right);
        });
    }

    static void Add(DecodeLane::Information& sum, const DecodeLane::Information& part) {
        sum.nbPacketsDecoded += part.nbPacketsDecoded;
        sum.nbPasses += part.nbPasses;
        sum.nbPacketsLeftOut += part.nbPacketsLeftOut;
        sum.nbAbandoned += part.nbAbandoned;
        sum.nbGoneOn += part.nbGoneOn;
        sum.nbErrors += part.nbErrors;
        if (!part.lastError.empty()) {
            sum.lastError = part.lastError;
        }
    }

    std::shared_ptr<const RecordingIndex> index_;
    DecodeMeter& meter_;
    std::size_t margin_ = 0;
    std::shared_ptr<FramePool> pool_;
    std::shared_ptr<PictureStore> store_;
    mutable std::mutex mutex_;
    GroupReach reach_;
    bool showsAllForward_ = false;
    std::optional<std::size_t> kept_;
    std::uint64_t nbAbandonments_ = 0;
    std::vector<std::unique_ptr<Place>> places_;
    std::uint64_t nbVisits_ = 0;
    std::atomic<std::uint64_t> nbFromStore_{0};
    mutable std::mutex latencyMutex_;
    LatencyHistogram latency_;
    std::shared_ptr<SampleTally> tally_ = std::make_shared<SampleTally>();
};

MediaDecoder::MediaDecoder() : meter_(std::make_unique<DecodeMeter>()) {
}

MediaDecoder::~MediaDecoder() = default;

void MediaDecoder::AddTrack(const Player::TrackId& track, const std::shared_ptr<const RecordingIndex>& index,
                            const MediaDecoderOptions& options) {
    auto added = std::make_shared<Track>(index, options, *meter_);
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
        found->SetPlace(place);
    }
}

void MediaDecoder::SetPictureBytes(const Player::TrackId& track, std::size_t bytes) {
    if (const auto found = Find(track)) {
        found->SetPictureBytes(bytes);
    }
}

void MediaDecoder::Abandon(const Player::TrackId& track, std::optional<std::size_t> kept) {
    if (const auto found = Find(track)) {
        found->Abandon(kept);
    }
}

void MediaDecoder::SetReach(const Player::TrackId& track, const GroupReach& reach) {
    if (const auto found = Find(track)) {
        found->SetReach(reach);
    }
}

std::shared_ptr<const Picture> MediaDecoder::Nearest(const Player::TrackId& track,
                                                     std::size_t picture) const {
    const auto found = Find(track);
    return found == nullptr ? nullptr : found->Nearest(picture);
}

std::shared_ptr<const Picture> MediaDecoder::Newest(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? nullptr : found->Store().Newest();
}

std::size_t MediaDecoder::PictureBytes(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? 0 : found->PictureBytes();
}

DecodeLane::Information MediaDecoder::GetInformation(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? DecodeLane::Information() : found->GetInformation();
}

MediaDecoder::Answers MediaDecoder::GetAnswers(const Player::TrackId& track) const {
    const auto found = Find(track);
    return found == nullptr ? Answers() : found->GetAnswers();
}

void MediaDecoder::SetDecodedHook(DecodedHook hook) {
    decodedHook_ = std::move(hook);
}

void MediaDecoder::SetTrace(std::shared_ptr<Trace> trace) {
    trace_ = std::move(trace);
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
    auto picture = track->Decode(*sample, trace_.get());
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
    return std::make_unique<DecodedSample>(std::move(picture), tp, duration, field, track->Tally());
}

Player::ISample* MediaDecoder::Decode(const Player::DecodeOrder& order) {
    if (trace_ != nullptr) {
        trace_->NameThread("decoder");
    }
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
