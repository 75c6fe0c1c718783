#include "Playout/TrackDecoders.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <tuple>

#include "Playout/PictureSize.h"

namespace Tavrin::Playout {

namespace {

void Add(DecodeLane::Information& sum, const DecodeLane::Information& part) {
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

}  // namespace

/// Adds the time that a scope takes to the latencies.
class TrackDecoders::Timing {
public:
    explicit Timing(TrackDecoders& track) : track_(track), begin_(std::chrono::steady_clock::now()) {}
    ~Timing() {
        const auto latency = std::chrono::steady_clock::now() - begin_;
        const std::scoped_lock lock(track_.latencyMutex_);
        track_.latency_.Add(latency);
    }
    Timing(const Timing&) = delete;
    Timing& operator=(const Timing&) = delete;

private:
    TrackDecoders& track_;
    std::chrono::steady_clock::time_point begin_;
};

/// Takes part in a lane for a scope.
class TrackDecoders::Visit {
public:
    Visit(TrackDecoders& track, std::size_t group) : track_(track) {
        const std::scoped_lock lock(track.mutex_);
        lane_ = &track.Choose(group);
        lane_->Enter(group, ++track.nbVisits_);
        group_ = group;
        nbAbandonments_ = track.nbAbandonments_;
    }
    ~Visit() {
        const std::scoped_lock lock(track_.mutex_);
        lane_->Leave(group_);
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    [[nodiscard]] SharedLane& Lane() const { return *lane_; }

    /// The play head has been put elsewhere since the visit began, not to that picture.
    [[nodiscard]] bool IsOutOfDate(std::size_t picture) const {
        const std::scoped_lock lock(track_.mutex_);
        return HasMoved() && track_.kept_ != picture;
    }

    /// Going on to the picture would not lead to where the play head has gone: to another group, or to a
    /// picture that the decoder is past. Or, where there is not the time to decode everything, the play head
    /// has passed the one that was asked for.
    [[nodiscard]] bool IsStale(std::size_t picture, std::size_t asked, std::size_t latest) const {
        const std::scoped_lock lock(track_.mutex_);
        if (HasMoved() && track_.kept_ != picture) {
            const auto kept = track_.kept_;
            return !kept || *kept <= latest || track_.index_->Picture(*kept).group != group_;
        }
        return !track_.reach_.IsWhole() && track_.store_->IsPassed(asked);
    }

    /// Of the pictures of its group that there is time for, it is the last one: what lies beyond is stood in for by
    /// it.
    [[nodiscard]] bool IsLast(std::size_t picture) const {
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
    [[nodiscard]] bool HasMoved() const { return track_.nbAbandonments_ != nbAbandonments_; }

    TrackDecoders& track_;
    SharedLane* lane_;
    std::size_t group_;
    std::uint64_t nbAbandonments_;
};

TrackDecoders::TrackDecoders(const std::shared_ptr<const RecordingIndex>& index,
                             const MediaDecoderOptions& options, DecodeMeter& meter)
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
        lanes_.push_back(std::make_unique<SharedLane>(index, options.lane, store_, pool_));
    }
}

void TrackDecoders::SetPlace(const PlayPlace& place) {
    store_->SetPlace(place);
    const std::scoped_lock lock(mutex_);
    showsAllForward_ = !place.backward && place.stride <= 1;
}

void TrackDecoders::SetReach(const GroupReach& reach) {
    const std::scoped_lock lock(mutex_);
    reach_ = reach;
}

void TrackDecoders::SetPictureBytes(std::size_t bytes) {
    if (pool_ != nullptr) {
        pool_->SetMaxBytes(bytes);
    }
    store_->SetMaxBytes(StoreBytes(bytes));
}

std::shared_ptr<const Picture> TrackDecoders::Nearest(std::size_t picture) const {
    const PictureGroup& group = index_->Group(index_->Picture(picture).group);
    auto nearest = store_->Nearest(picture, group.firstPicture, group.EndPicture());
    return nearest != nullptr ? nearest : store_->Nearest(picture, 0, index_->NbPictures());
}

std::size_t TrackDecoders::PictureBytes() const {
    return pool_ == nullptr ? store_->Bytes() : pool_->UsedBytes();
}

void TrackDecoders::Abandon(std::optional<std::size_t> kept) {
    const std::scoped_lock lock(mutex_);
    kept_ = kept;
    ++nbAbandonments_;
}

std::shared_ptr<const Picture> TrackDecoders::Decode(const CompressedSample& sample, Trace* trace) {
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
    const std::size_t asked = index_->PictureAtTime(sample.GetTimePoint()).value_or(sample.PictureNumber());
    manner.isStale = [&](std::size_t latest) { return visit.IsStale(sample.PictureNumber(), asked, latest); };
    manner.last = visit.IsLast(sample.PictureNumber());
    if (ShowsAllForward()) {
        manner.following = group.Next();
    }
    return visit.Lane().Decode(group, sample.PictureNumber(), manner, meter_,
                               [&] { return visit.IsOutOfDate(sample.PictureNumber()); });
}

MediaDecoder::Answers TrackDecoders::GetAnswers() const {
    MediaDecoder::Answers answers;
    // Relaxed: a count that nothing is derived from.
    answers.nbFromStore = nbFromStore_.load(std::memory_order_relaxed);
    answers.samples = tally_->GetInformation();
    const std::scoped_lock lock(latencyMutex_);
    answers.latency = latency_;
    return answers;
}

DecodeLane::Information TrackDecoders::GetInformation() const {
    DecodeLane::Information sum;
    for (const auto& lane : lanes_) {
        Add(sum, lane->GetInformation());
    }
    sum.nbStored = store_->Size();
    sum.storedBytes = store_->Bytes();
    sum.maxStoredBytes = store_->MaxBytesEver();
    return sum;
}

bool TrackDecoders::ShowsAllForward() const {
    const std::scoped_lock lock(mutex_);
    return showsAllForward_ && reach_.IsWhole();
}

/// What decoders take before the store next looks whether there is room is not the store's.
std::size_t TrackDecoders::StoreBytes(std::size_t bytes) const {
    return bytes - std::min(bytes, margin_);
}

/// The lane that stands in the group or is about to go on into it, else an idle one, else any; of several the one longest
/// unused.
SharedLane& TrackDecoders::Choose(std::size_t group) {
    const auto rank = [&](const std::unique_ptr<SharedLane>& lane) {
        return std::tuple(!lane->IsIn(group), !lane->GoesOnTo(group), lane->IsInUse(), lane->LastVisit());
    };
    return **std::min_element(lanes_.begin(), lanes_.end(),
                              [&](const auto& left, const auto& right) { return rank(left) < rank(right); });
}

}  // namespace Tavrin::Playout
