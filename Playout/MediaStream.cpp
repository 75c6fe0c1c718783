#include "Playout/MediaStream.h"

#include <algorithm>
#include <utility>

namespace Tavrin::Playout {

using Player::Cache;
using Player::ISample;
using Player::SampleRate;
using Player::SampleStatus;
using Time::TimePoint;

namespace {

/// A picture that cannot be had is not asked for more seldom than this many times the first delay.
constexpr int kLongestRetryFactor = 32;

/// Has the cache hand out any other sample; false where it holds none.
bool UseAnother(Cache& cache, const SampleRate& rate, const TimePoint& than) {
    for (const std::int64_t number : cache.FindMultiples(rate)) {
        const TimePoint tp = TimePoint::StartOfSample(number, rate);
        ISample* sample = nullptr;
        if (tp != than && cache.GetSample(tp, rate, &sample, false) == Cache::Valid) {
            return true;
        }
    }
    return false;
}

}  // namespace

MediaStream::MediaStream(std::shared_ptr<const RecordingIndex> index, const Player::TrackId& track,
                         const SampleRate& displayRate, const StreamWindow& window,
                         Player::ExistingCacheUpdateQueues& registry, FieldOutput fields)
    : Stream(track.Id()),
      index_(std::move(index)),
      fields_(index_, displayRate, fields),
      registry_(registry),
      window_(window),
      end_(index_->End()),
      orders_(compressed_, decoded_, fields_, index_->Rate(), parameters_),
      retryDelay_(window.retryAfter),
      nextRetry_(std::chrono::steady_clock::now() + window.retryAfter) {
    StreamParameters parameters;
    parameters.type_ = "recording";
    parameters.interlace_ = index_->Description().interlaced;
    parameters.compressedSampleRate_ = index_->Rate();
    parameters.uncompressedSampleRate_ = fields_.Rate();
    parameters.displayRate_ = displayRate;
    parameters.trackId_ = track;
    parameters.nbPreloading_ = window.nbCompressedAhead;
    parameters.nbDecoding_ = window.nbDecodedAhead;
    parameters.width_ = index_->Description().width;
    parameters.height_ = index_->Description().height;
    MediaStream::SetStreamParameters(parameters);
    registry_.InsertExistingQueue(compressed_.GetQueue());
    registry_.InsertExistingQueue(decoded_.GetQueue());
}

MediaStream::~MediaStream() {
    registry_.RemoveExistingQueue(compressed_.GetQueue());
    registry_.RemoveExistingQueue(decoded_.GetQueue());
}

TimePoint MediaStream::Begin() {
    return begin_;
}

void MediaStream::SetBegin(const TimePoint& tp) {
    begin_ = tp;
}

TimePoint MediaStream::End() {
    return end_;
}

void MediaStream::SetEnd(const TimePoint& tp) {
    end_ = tp;
}

bool MediaStream::Exists(const TimePoint& tp) {
    return begin_ <= tp && tp < end_ && index_->PictureAtTime(tp).has_value();
}

TimePoint MediaStream::Next(const TimePoint& tp) {
    return TimePoint::StartOfSample(tp.SampleNumber(fields_.Rate()) + 1, fields_.Rate());
}

TimePoint MediaStream::Previous(const TimePoint& tp) {
    return TimePoint::StartOfSample(tp.SampleNumber(fields_.Rate()) - 1, fields_.Rate());
}

void MediaStream::SetStreamParameters(const StreamParameters& parameters) {
    parameters_ = parameters;
    parameters_.preloadQueue_ = &orders_.Reads();
    parameters_.decodeQueue_ = &orders_.Decodes();
    ConfigurePlanners();
}

void MediaStream::SetClock(Clock clock) {
    clock_ = std::move(clock);
    nextRetry_ = clock_() + retryDelay_;
}

void MediaStream::SetWindow(const StreamWindow& window) {
    // As long as nothing has been asked for in vain, the first delay is that of the window.
    retryDelay_ = retryDelay_ == window_.retryAfter ? window.retryAfter : retryDelay_;
    window_ = window;
    parameters_.nbPreloading_ = window.nbCompressedAhead;
    parameters_.nbDecoding_ = NbOfSamples(window.nbDecodedAhead);
    compressedPlanner_.SetNumberPreloads(parameters_.nbPreloading_);
    decodedPlanner_.SetNumberPreloads(parameters_.nbDecoding_);
}

void MediaStream::ConfigurePlanners() {
    for (Cache* cache : {&compressed_, &decoded_}) {
        cache->SetTrackId(parameters_.trackId_);
    }
    compressed_.SetStreamSampleRate(index_->Rate());
    decoded_.SetStreamSampleRate(fields_.Rate());
    for (Player::PreloadTimePointGenerator* planner : {&compressedPlanner_, &decodedPlanner_}) {
        planner->SetDisplayRate(parameters_.displayRate_);
        planner->SetTrackId(parameters_.trackId_);
    }
    compressedPlanner_.SetSampleRate(index_->Rate());
    compressedPlanner_.SetCache(&compressed_);
    compressedPlanner_.SetNumberPreloads(parameters_.nbPreloading_);
    decodedPlanner_.SetSampleRate(fields_.Rate());
    decodedPlanner_.SetCache(&decoded_);
    decodedPlanner_.SetNumberPreloads(parameters_.nbDecoding_);
}

const MediaStream::StreamParameters& MediaStream::GetStreamParameters() {
    return parameters_;
}

void MediaStream::LinkPlayer(Player::IPlayer* player) {
    player_ = player;
}

void MediaStream::UnlinkPlayer() {
    player_ = nullptr;
}

bool MediaStream::IsLinked() {
    return player_ != nullptr;
}

Player::CacheUpdateQueue* MediaStream::GetCacheUpdateQueue() {
    return compressed_.GetQueue();
}

Player::CacheUpdateQueue* MediaStream::GetUncompressedCacheUpdateQueue() {
    return decoded_.GetQueue();
}

void MediaStream::SetCompressedPreloadNumber(std::size_t nb) {
    parameters_.nbPreloading_ = nb;
    compressedPlanner_.SetNumberPreloads(nb);
}

std::int32_t MediaStream::DebugPreloadQueueSize() {
    return static_cast<std::int32_t>(orders_.Reads().GetSize());
}

const TimePoint& MediaStream::Now() const {
    return player_->GetCurrentTimePoint();
}

SampleRate MediaStream::FetchRate() const {
    const SampleRate needed =
        SampleRate::TimeSamplingRate(fields_.Rate(), player_->GetSpeed(), parameters_.displayRate_);
    return needed.Positive() ? SampleRate::StreamPreloadRate(fields_.Rate(), needed) : fields_.Rate();
}

/// The sample to fetch for the play head. After a hole, that of a coarser rate may lie in it.
TimePoint MediaStream::Needed() const {
    const TimePoint fetched = Now().AlignWith(FetchRate());
    return index_->PictureAtTime(fetched) ? fetched : Now().AlignWith(index_->Rate());
}

/// The decoded sample for the play head: the exact one where it is there, else the one that is fetched for it.
/// Any other picture of the coarser sample would be left over from an earlier place or speed.
Cache::EntryType MediaStream::Find(ISample** sample) {
    const Cache::EntryType exact = decoded_.GetSample(Now(), fields_.Rate(), sample, false);
    return exact == Cache::Valid ? exact : decoded_.GetSample(Needed(), fields_.Rate(), sample, false);
}

SampleStatus MediaStream::GetCurrentSample(ISample** sample) {
    if (!IsLinked()) {
        return SampleStatus::Unlinked;
    }
    ISample* found = nullptr;
    const bool exists = Exists(Now());
    Cache::EntryType type = exists ? Find(&found) : Cache::Missing;
    if (type == Cache::Valid && !standInsAllowed_ && IsStandIn(static_cast<const DecodedSample&>(*found))) {
        // The last sample in use stays in a cache. It goes once there is another one, which has to be let come.
        const TimePoint barred = static_cast<const DecodedSample&>(*found).GetTimePoint();
        if (!isBlocked_ || UseAnother(decoded_, fields_.Rate(), barred)) {
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
    if (!IsLinked() || !Exists(Now())) {
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
    return !IsLinked() || !Exists(Now()) ||
           (Find(&sample) == Cache::Valid && !IsStandIn(static_cast<const DecodedSample&>(*sample)));
}

void MediaStream::AllowStandIns(bool allowed) {
    if (standInsAllowed_ && !allowed) {
        // What is ordered now was ordered to be stood in for.
        Withdraw();
        ISample* found = nullptr;
        const bool isHeld = IsLinked() && Find(&found) == Cache::Valid;
        ForgetAll(isHeld ? static_cast<const DecodedSample&>(*found).GetTimePoint() : Needed());
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
    return IsLinked() && Exists(Now()) && Find(&sample) == Cache::Missing;
}

bool MediaStream::HasAhead(std::size_t nb) {
    const Time::Ratio speed = IsLinked() ? player_->GetSpeed() : Time::Ratio();
    if (speed == Time::Ratio()) {
        return true;
    }
    const SampleRate rate = FetchRate();
    const std::int64_t here = Needed().SampleNumber(rate);
    for (std::int64_t i = 1; i <= static_cast<std::int64_t>(nb); ++i) {
        const TimePoint tp = TimePoint::StartOfSample(speed.Positive() ? here + i : here - i, rate);
        ISample* sample = nullptr;
        if (!Exists(tp)) {
            // Nothing is there yet, or any more: a track may begin later, or go on after a hole.
            continue;
        }
        const Cache::EntryType type = decoded_.GetSample(tp, fields_.Rate(), &sample, false);
        if (type != Cache::Valid && type != Cache::Missing) {
            return false;
        }
    }
    return true;
}

WaitCause MediaStream::WaitCause() {
    if (IsReady()) {
        return Playout::WaitCause::None;
    }
    ISample* sample = nullptr;
    const bool isRead = compressed_.GetSample(Needed(), index_->Rate(), &sample, false) == Cache::Valid;
    return isRead ? Playout::WaitCause::Decoder : Playout::WaitCause::Storage;
}

std::vector<CellState> MediaStream::CellStates(const CellRange& range) {
    const TimePoint now = IsLinked() ? Now() : begin_;
    // Of a picture shown by fields, the first one stands for both.
    const SampleRate fetched = IsLinked() ? std::min(FetchRate(), index_->Rate()) : index_->Rate();
    return CellStatesOf({compressed_, decoded_, index_->Rate(), fetched, now}, range);
}

void MediaStream::Intake() {
    if (orders_.Intake()) {
        ForgetMissing();
    }
}

/// Decoding one picture at every tick takes a fifth more of the processor than decoding as many in a row: each time,
/// threads are woken whose caches have gone cold. Backward a group is decoded in one go anyway, and early enough.
bool MediaStream::RestsDecoding() {
    constexpr std::size_t kFewestToRestOn = 12;
    const std::size_t nb = NbOfSamples(window_.nbDecodedAhead);
    const bool mayRest = nb >= kFewestToRestOn && player_->GetSpeed().Positive() && !standInsAllowed_;
    rests_ = mayRest && HasAhead(rests_ ? nb - nb / 3 : nb - nb / 12);
    return rests_;
}

void MediaStream::Plan() {
    if (!IsLinked()) {
        return;
    }
    Evict();
    RetryMissing();
    if (standInsAllowed_ && !HasSettled()) {
        // The play head does not wait: what it has passed must not be served before what comes.
        WithdrawPassed();
    }
    AskForNeeded();
    if (!preloading_) {
        return;
    }
    TimePoint tp;
    compressedPlanner_.Update(player_);
    while (compressedPlanner_.Get(tp)) {
        AskForCompressed(tp);
    }
    if (OthersMayWait()) {
        return;
    }
    if (!RestsDecoding()) {
        decodedPlanner_.Update(player_);
        while (decodedPlanner_.Get(tp)) {
            AskForDecoded(tp);
        }
    }
    AskForBehind();
}

/// What lies behind the play head matters last, to who turns round soon after a jump: what was shown is there. It is
/// asked for when all that lies ahead is ready and nobody is asked for anything, one by one: the pass to the nearest
/// brings the others along, and what comes to be needed ahead meanwhile does not wait behind them.
void MediaStream::AskForBehind() {
    const Time::Ratio speed = player_->GetSpeed();
    const std::size_t nbAhead = NbOfSamples(window_.nbDecodedAhead);
    if (speed == Time::Ratio() || standInsAllowed_ || orders_.Decodes().GetSize() > 0 ||
        !HasAhead(nbAhead - nbAhead / 12)) {
        return;
    }
    const SampleRate rate = FetchRate();
    const std::int64_t here = Now().SampleNumber(rate);
    const auto nb = static_cast<std::int64_t>(NbOfSamples(window_.nbDecodedBehind));
    for (std::int64_t i = 1; i <= nb; ++i) {
        const TimePoint tp = TimePoint::StartOfSample(speed.Positive() ? here - i : here + i, rate);
        ISample* sample = nullptr;
        const Cache::EntryType type = decoded_.GetSample(tp, fields_.Rate(), &sample, false);
        if (Exists(tp) && (type == Cache::Not_Found || type == Cache::Pending)) {
            if (type == Cache::Not_Found && IsDecodedSoon(tp)) {
                AskForDecoded(tp);
            }
            return;
        }
    }
}

/// A pass over its group takes no longer than what is ready ahead lasts: whole groups are decoded at several times the
/// speed at which they are shown, but other tracks have the same idea.
bool MediaStream::IsDecodedSoon(const TimePoint& tp) const {
    const auto picture = index_->PictureAtTime(tp);
    return picture && index_->Group(index_->Picture(*picture).group).nbPictures <= 2 * window_.nbDecodedAhead;
}

/// What is under the play head goes before all else, also before what was ordered earlier.
void MediaStream::AskForNeeded() {
    const TimePoint needed = Needed();
    if (!standInsAllowed_ && Exists(needed) && orders_.IsOvertaken(needed)) {
        Withdraw();
    }
    AskForCompressed(needed);
    AskForDecoded(needed);
}

void MediaStream::AskForCompressed(const TimePoint& tp) {
    if (Exists(tp)) {
        orders_.Read(tp);
    }
}

void MediaStream::AskForDecoded(const TimePoint& tp) {
    if (Exists(tp)) {
        orders_.Decode(tp);
    }
}

void MediaStream::Evict() {
    const SampleRate rate = FetchRate();
    const std::size_t nbDecoded =
        Evict(decoded_, rate, NbOfSamples(window_.nbDecodedAhead), NbOfSamples(window_.nbDecodedBehind));
    const std::size_t nbCompressed =
        Evict(compressed_, std::min(rate, index_->Rate()),
              std::max(parameters_.nbPreloading_, window_.nbDecodedAhead), window_.nbDecodedBehind);
    if (nbDecoded > 0) {
        orders_.Record("cache", "evict decoded", {"samples", static_cast<std::int64_t>(nbDecoded)});
    }
    if (nbCompressed > 0) {
        orders_.Record("cache", "evict compressed", {"samples", static_cast<std::int64_t>(nbCompressed)});
    }
}

/// The window counts pictures; two fields of one take the memory of one.
std::size_t MediaStream::NbOfSamples(std::size_t nbPictures) const {
    return IsByBothFields() ? 2 * nbPictures : nbPictures;
}

bool MediaStream::IsByBothFields() const {
    return player_ != nullptr && FetchRate() > index_->Rate();
}

std::size_t MediaStream::Evict(Cache& cache, const SampleRate& rate, std::size_t nbAhead,
                               std::size_t nbBehind) {
    const std::int64_t number = Now().SampleNumber(rate);
    auto before = static_cast<std::int64_t>(nbBehind);
    auto after = static_cast<std::int64_t>(nbAhead);
    if (player_->GetSpeed().Numerator() == 0) {
        before = after;
    } else if (!player_->GetSpeed().Positive()) {
        std::swap(before, after);
    }
    return cache.EraseBefore(TimePoint::StartOfSample(std::max<std::int64_t>(number - before, 0), rate)) +
           cache.EraseAfter(TimePoint::StartOfSample(number + after + 1, rate), Cache::Not_Found);
}

void MediaStream::RetryMissing() {
    const auto now = clock_();
    if (now < nextRetry_) {
        return;
    }
    ForgetMissing();
    retryDelay_ = std::min(retryDelay_ * 2, window_.retryAfter * kLongestRetryFactor);
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
        UseAnother(*cache, fields_.Rate(), shown);
        cache->EraseAfter(cache->GetFirstEntry() - TimePoint().FromNanoseconds(1), Cache::Not_Found);
    }
}

/// Whether the play head is beyond the sample of that rate that begins there.
bool MediaStream::HasPassed(const TimePoint& tp, const SampleRate& rate) const {
    const Time::Ratio speed = player_->GetSpeed();
    const TimePoint needed = Needed().AlignWith(rate);
    return speed.Positive() ? tp < needed : speed < Time::Ratio() && tp > needed;
}

void MediaStream::WithdrawPassed() {
    // The play head goes on: only what is ordered ahead of it can be there in time.
    hasJumped_ = false;
    orders_.WithdrawPassed(
        [this](const TimePoint& tp, const SampleRate& rate) { return HasPassed(tp, rate); },
        2 * parameters_.nbPreloading_);
}

void MediaStream::Withdraw() {
    orders_.Withdraw();
    ForgetMissing();
    hasJumped_ = true;
    retryDelay_ = window_.retryAfter;
    nextRetry_ = clock_() + retryDelay_;
}

}  // namespace Tavrin::Playout
