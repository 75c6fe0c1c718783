#include "Playout/MediaStream.h"

#include <algorithm>
#include <utility>

#include "Playout/CacheLookup.h"

namespace Tavrin::Playout {

using Player::Cache;
using Player::ISample;
using Player::SampleRate;
using Player::SampleStatus;
using Time::TimePoint;

namespace {

/// A picture that cannot be had is not asked for more seldom than this many times the first delay.
constexpr int kLongestRetryFactor = 32;

}  // namespace

MediaStream::MediaStream(std::shared_ptr<const RecordingIndex> index, const Player::TrackId& track,
                         const SampleRate& displayRate, const StreamWindow& window,
                         Player::ExistingCacheUpdateQueues& registry, FieldOutput fields)
    : Stream(track.Id()),
      index_(std::move(index)),
      registry_(registry),
      head_(index_, displayRate, fields),
      orders_(compressed_, decoded_, head_.Fields(), index_->Rate(), parameters_),
      plan_(head_, compressed_, decoded_, orders_),
      retryDelay_(window.retryAfter),
      nextRetry_(std::chrono::steady_clock::now() + window.retryAfter) {
    StreamParameters parameters;
    parameters.type_ = "recording";
    parameters.interlace_ = index_->Description().interlaced;
    parameters.compressedSampleRate_ = index_->Rate();
    parameters.uncompressedSampleRate_ = Fields().Rate();
    parameters.displayRate_ = displayRate;
    parameters.trackId_ = track;
    parameters.nbPreloading_ = window.nbCompressedAhead;
    parameters.nbDecoding_ = window.nbDecodedAhead;
    parameters.width_ = index_->Description().width;
    parameters.height_ = index_->Description().height;
    plan_.SetWindow(window);
    MediaStream::SetStreamParameters(parameters);
    registry_.InsertExistingQueue(compressed_.GetQueue());
    registry_.InsertExistingQueue(decoded_.GetQueue());
}

MediaStream::~MediaStream() {
    registry_.RemoveExistingQueue(compressed_.GetQueue());
    registry_.RemoveExistingQueue(decoded_.GetQueue());
}

TimePoint MediaStream::Begin() {
    return head_.Begin();
}

void MediaStream::SetBegin(const TimePoint& tp) {
    head_.SetBegin(tp);
}

TimePoint MediaStream::End() {
    return head_.End();
}

void MediaStream::SetEnd(const TimePoint& tp) {
    head_.SetEnd(tp);
}

bool MediaStream::Exists(const TimePoint& tp) {
    return head_.Exists(tp);
}

TimePoint MediaStream::Next(const TimePoint& tp) {
    return TimePoint::StartOfSample(tp.SampleNumber(Fields().Rate()) + 1, Fields().Rate());
}

TimePoint MediaStream::Previous(const TimePoint& tp) {
    return TimePoint::StartOfSample(tp.SampleNumber(Fields().Rate()) - 1, Fields().Rate());
}

void MediaStream::SetStreamParameters(const StreamParameters& parameters) {
    parameters_ = parameters;
    parameters_.preloadQueue_ = &orders_.Reads();
    parameters_.decodeQueue_ = &orders_.Decodes();
    head_.SetDisplayRate(parameters_.displayRate_);
    for (Cache* cache : {&compressed_, &decoded_}) {
        cache->SetTrackId(parameters_.trackId_);
    }
    compressed_.SetStreamSampleRate(index_->Rate());
    decoded_.SetStreamSampleRate(Fields().Rate());
    plan_.Configure(parameters_);
}

void MediaStream::SetClock(Clock clock) {
    clock_ = std::move(clock);
    nextRetry_ = clock_() + retryDelay_;
}

void MediaStream::SetWindow(const StreamWindow& window) {
    // As long as nothing has been asked for in vain, the first delay is that of the window.
    retryDelay_ = retryDelay_ == plan_.Window().retryAfter ? window.retryAfter : retryDelay_;
    plan_.SetWindow(window);
    parameters_.nbPreloading_ = window.nbCompressedAhead;
    parameters_.nbDecoding_ = head_.NbOfSamples(window.nbDecodedAhead);
}

const MediaStream::StreamParameters& MediaStream::GetStreamParameters() {
    return parameters_;
}

void MediaStream::LinkPlayer(Player::IPlayer* player) {
    head_.Link(player);
}

void MediaStream::UnlinkPlayer() {
    head_.Link(nullptr);
}

bool MediaStream::IsLinked() {
    return head_.IsLinked();
}

Player::CacheUpdateQueue* MediaStream::GetCacheUpdateQueue() {
    return compressed_.GetQueue();
}

Player::CacheUpdateQueue* MediaStream::GetUncompressedCacheUpdateQueue() {
    return decoded_.GetQueue();
}

void MediaStream::SetCompressedPreloadNumber(std::size_t nb) {
    parameters_.nbPreloading_ = nb;
    plan_.SetNbCompressedAhead(nb);
}

std::int32_t MediaStream::DebugPreloadQueueSize() {
    return static_cast<std::int32_t>(orders_.Reads().GetSize());
}

/// The decoded sample for the play head: the exact one where it is there, else the one that is fetched for it.
/// Any other picture of the coarser sample would be left over from an earlier place or speed.
Cache::EntryType MediaStream::Find(ISample** sample) {
    const Cache::EntryType exact = decoded_.GetSample(head_.Now(), Fields().Rate(), sample, false);
    return exact == Cache::Valid ? exact : decoded_.GetSample(head_.Needed(), Fields().Rate(), sample, false);
}

SampleStatus MediaStream::GetCurrentSample(ISample** sample) {
    if (!IsLinked()) {
        return SampleStatus::Unlinked;
    }
    ISample* found = nullptr;
    const bool exists = Exists(head_.Now());
    Cache::EntryType type = exists ? Find(&found) : Cache::Missing;
    if (type == Cache::Valid && !standInsAllowed_ && IsStandIn(static_cast<const DecodedSample&>(*found))) {
        // The last sample in use stays in a cache. It goes once there is another one, which has to be let come.
        const TimePoint barred = static_cast<const DecodedSample&>(*found).GetTimePoint();
        if (!isBlocked_ || UseAnother(decoded_, Fields().Rate(), barred)) {
            ForgetAll(barred);
        }
        type = Cache::Not_Found;
        isBlocked_ = Find(&found) == Cache::Valid;
    } else {
        isBlocked_ = false;
    }
    currentSampleIsEmpty = type == Cache::Missing;
    if (type == Cache::Missing) {
        hasJumped_ = false;
        shownPicture_.reset();
        return SampleStatus::Empty;
    }
    if (type != Cache::Valid) {
        return SampleStatus::NotReady;
    }
    hasJumped_ = false;
    *sample = found;
    const auto& decoded = static_cast<const DecodedSample&>(*found);
    const std::pair shown(decoded.PictureNumber(), decoded.Field());
    const bool same = shownPicture_ == shown;
    shownPicture_ = shown;
    return same ? SampleStatus::Same : SampleStatus::New;
}

bool MediaStream::IsReady() {
    // Where not everything can be decoded, waiting for it would only hold up what can.
    return standInsAllowed_ || HasSettled();
}

/// What is known of the picture at the play head will not change soon.
bool MediaStream::HasSettled() {
    if (!IsLinked() || !Exists(head_.Now())) {
        return true;
    }
    ISample* sample = nullptr;
    const Cache::EntryType type = Find(&sample);
    const bool isBarred =
        type == Cache::Valid && !standInsAllowed_ && IsStandIn(static_cast<const DecodedSample&>(*sample));
    return (type == Cache::Valid && !isBarred) || type == Cache::Missing;
}

bool MediaStream::HasExact() {
    ISample* sample = nullptr;
    return !IsLinked() || !Exists(head_.Now()) ||
           (Find(&sample) == Cache::Valid && !IsStandIn(static_cast<const DecodedSample&>(*sample)));
}

void MediaStream::AllowStandIns(bool allowed) {
    if (standInsAllowed_ && !allowed) {
        // What is ordered now was ordered to be stood in for.
        Withdraw();
        ISample* found = nullptr;
        const bool isHeld = IsLinked() && Find(&found) == Cache::Valid;
        ForgetAll(isHeld ? static_cast<const DecodedSample&>(*found).GetTimePoint() : head_.Needed());
    }
    standInsAllowed_ = allowed;
}

bool MediaStream::IsStandIn(const DecodedSample& sample) const {
    return index_->PictureAtTime(sample.GetTimePoint()) != sample.PictureNumber();
}

/// After a jump, decoding anything else would take time from the picture that is waited for; unless each is
/// decoded by itself.
bool MediaStream::OthersMayWait() const {
    return dragged_ || (hasJumped_ && !isBlocked_ && !standInsAllowed_ && !index_->IntraOnly());
}

bool MediaStream::CurrentIsMissing() {
    ISample* sample = nullptr;
    return IsLinked() && Exists(head_.Now()) && Find(&sample) == Cache::Missing;
}

bool MediaStream::HasAhead(std::size_t nb) {
    return plan_.HasAhead(nb);
}

SampleRate MediaStream::FetchRate() const {
    return head_.FetchRate();
}

WaitCause MediaStream::WaitCause() {
    if (IsReady()) {
        return Playout::WaitCause::None;
    }
    ISample* sample = nullptr;
    const bool isRead = compressed_.GetSample(head_.Needed(), index_->Rate(), &sample, false) == Cache::Valid;
    return isRead ? Playout::WaitCause::Decoder : Playout::WaitCause::Storage;
}

std::vector<CellState> MediaStream::CellStates(const CellRange& range) {
    const TimePoint now = IsLinked() ? head_.Now() : head_.Begin();
    // Of a picture shown by fields, the first one stands for both.
    const SampleRate fetched = IsLinked() ? std::min(head_.FetchRate(), index_->Rate()) : index_->Rate();
    return CellStatesOf({compressed_, decoded_, index_->Rate(), fetched, now}, range);
}

void MediaStream::Intake() {
    if (orders_.Intake()) {
        ForgetMissing();
    }
}

void MediaStream::Plan() {
    if (!IsLinked()) {
        return;
    }
    plan_.Evict();
    RetryMissing();
    if (standInsAllowed_ && !HasSettled()) {
        // The play head does not wait: what it has passed must not be served before what comes.
        WithdrawPassed();
    }
    if (!standInsAllowed_ && Exists(head_.Needed()) && orders_.IsOvertaken(head_.Needed())) {
        // What is under the play head goes before all else, also before what was ordered earlier.
        Withdraw();
    }
    plan_.AskForNeeded();
    if (!preloading_) {
        return;
    }
    plan_.AskForCompressed();
    if (!OthersMayWait()) {
        plan_.AskForDecoded(standInsAllowed_ ? FetchPlan::Extent::Ahead : FetchPlan::Extent::AheadAndBehind);
    }
}

void MediaStream::RetryMissing() {
    const auto now = clock_();
    if (now < nextRetry_) {
        return;
    }
    ForgetMissing();
    retryDelay_ = std::min(retryDelay_ * 2, plan_.Window().retryAfter * kLongestRetryFactor);
    nextRetry_ = now + retryDelay_;
}

/// Removes the entries without a sample, so that their samples are asked for again.
void MediaStream::ForgetMissing() {
    for (Cache* cache : {&compressed_, &decoded_}) {
        cache->EraseAfter(cache->GetFirstEntry() - TimePoint().FromNanoseconds(1), Cache::Missing);
    }
}

/// Drops all that may be dropped, what is shown there at the play head too: a cache keeps the sample that it handed out
/// last, so it is asked for another one first.
void MediaStream::ForgetAll(const TimePoint& shown) {
    for (Cache* cache : {&compressed_, &decoded_}) {
        UseAnother(*cache, Fields().Rate(), shown);
        cache->EraseAfter(cache->GetFirstEntry() - TimePoint().FromNanoseconds(1), Cache::Not_Found);
    }
}

void MediaStream::WithdrawPassed() {
    // The play head goes on: only what is ordered ahead of it can be there in time.
    hasJumped_ = false;
    orders_.WithdrawPassed(
        [this](const TimePoint& tp, const SampleRate& rate) { return head_.HasPassed(tp, rate); },
        2 * parameters_.nbPreloading_);
}

void MediaStream::Withdraw() {
    orders_.Withdraw();
    hasJumped_ = true;
    TryMissingAgain();
}

void MediaStream::TryMissingAgain() {
    ForgetMissing();
    retryDelay_ = plan_.Window().retryAfter;
    nextRetry_ = clock_() + retryDelay_;
}

}  // namespace Tavrin::Playout
