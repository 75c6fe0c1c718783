#include "Playout/FetchPlan.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Playout/CacheLookup.h"

namespace Tavrin::Playout {

using Player::Cache;
using Player::SampleRate;
using Time::TimePoint;

namespace {

/// A planner divides its number between the two sides of a play head that stands.
constexpr std::size_t BothSides(std::size_t nbEach) {
    return 2 * nbEach;
}

}  // namespace

FetchPlan::FetchPlan(const StreamHead& head, Cache& compressed, Cache& decoded, SampleOrders& orders)
    : head_(head), compressed_(compressed), decoded_(decoded), orders_(orders) {
    compressedPlanner_.SetCache(&compressed_);
    decodedPlanner_.SetCache(&decoded_);
}

void FetchPlan::Configure(const Player::Stream::StreamParameters& parameters) {
    SetNbCompressedAhead(parameters.nbPreloading_);
    nbToDecode_ = parameters.nbDecoding_;
    compressedPlanner_.SetSampleRate(head_.Recording().Rate());
    decodedPlanner_.SetSampleRate(head_.Fields().Rate());
    for (Player::PreloadTimePointGenerator* planner : {&compressedPlanner_, &decodedPlanner_}) {
        planner->SetDisplayRate(parameters.displayRate_);
        planner->SetTrackId(parameters.trackId_);
    }
}

void FetchPlan::SetWindow(const StreamWindow& window) {
    window_ = window;
    nbToRead_ = window_.nbCompressedAhead;
    nbToDecode_ = NbAhead();
}

void FetchPlan::SetNbCompressedAhead(std::size_t nb) {
    window_.nbCompressedAhead = nb;
    nbToRead_ = nb;
}

void FetchPlan::Read(const TimePoint& tp) {
    if (head_.Exists(tp)) {
        orders_.Read(tp);
    }
}

void FetchPlan::Decode(const TimePoint& tp) {
    if (head_.Exists(tp)) {
        orders_.Decode(tp);
    }
}

void FetchPlan::AskForNeeded() {
    Read(head_.Needed());
    Decode(head_.Needed());
}

void FetchPlan::AskForCompressed() {
    // Around a still play head, at least what is to be decoded.
    const bool isWider = head_.Stands() && nbToRead_ > 0;
    compressedPlanner_.SetNumberPreloads(isWider ? std::max(nbToRead_, BothSides(window_.nbDecodedAhead))
                                                 : nbToRead_);
    compressedPlanner_.Update(head_.Player());
    for (TimePoint tp; compressedPlanner_.Get(tp);) {
        Read(tp);
    }
}

void FetchPlan::AskForDecoded(Extent extent) {
    rests_ = extent == Extent::AheadAndBehind && Rests();
    if (!rests_) {
        decodedPlanner_.SetNumberPreloads(head_.Stands() ? BothSides(nbToDecode_) : nbToDecode_);
        decodedPlanner_.Update(head_.Player());
        for (TimePoint tp; decodedPlanner_.Get(tp);) {
            Decode(tp);
        }
    }
    if (extent == Extent::AheadAndBehind) {
        AskForBehind();
    }
}

/// Decoding one picture at every tick takes a fifth more of the processor than decoding as many in a row: each time,
/// threads are woken whose caches have gone cold. Backward a group is decoded in one go anyway, and early enough.
bool FetchPlan::Rests() {
    constexpr std::size_t kFewestToRestOn = 12;
    const std::size_t nb = NbAhead();
    return nb >= kFewestToRestOn && head_.Speed().Positive() && HasAhead(rests_ ? nb - nb / 3 : nb - nb / 12);
}

/// What lies behind the play head matters last, to who turns round soon after a jump: what was shown is there. It is
/// asked for when all that lies ahead is ready and nobody is asked for anything, one by one: the pass to the nearest
/// brings the others along, and what comes to be needed ahead meanwhile does not wait behind them.
void FetchPlan::AskForBehind() {
    if (head_.Stands() || orders_.Decodes().GetSize() > 0 || !HasAhead(NbAhead() - NbAhead() / 12)) {
        return;
    }
    const auto nb = static_cast<std::int64_t>(head_.NbOfSamples(window_.nbDecodedBehind));
    for (std::int64_t i = 1; i <= nb; ++i) {
        const TimePoint tp = head_.Further(head_.Now(), -i);
        const Cache::EntryType type = EntryAt(decoded_, tp, head_.Fields().Rate());
        if (head_.Exists(tp) && (type == Cache::Not_Found || type == Cache::Pending)) {
            if (type == Cache::Not_Found && IsDecodedSoon(tp)) {
                Decode(tp);
            }
            return;
        }
    }
}

/// A pass over its group takes no longer than what is ready ahead lasts: whole groups are decoded at several times the
/// speed at which they are shown, but other tracks have the same idea.
bool FetchPlan::IsDecodedSoon(const TimePoint& tp) const {
    const RecordingIndex& recording = head_.Recording();
    const auto picture = recording.PictureAtTime(tp);
    return picture &&
           recording.Group(recording.Picture(*picture).group).nbPictures <= 2 * window_.nbDecodedAhead;
}

bool FetchPlan::HasAhead(std::size_t nb) {
    if (!head_.IsLinked() || head_.Stands()) {
        return true;
    }
    for (std::int64_t i = 1; i <= static_cast<std::int64_t>(nb); ++i) {
        const TimePoint tp = head_.Further(head_.Needed(), i);
        if (!head_.Exists(tp)) {
            // Nothing is there yet, or any more: a track may begin later, or go on after a hole.
            continue;
        }
        const Cache::EntryType type = EntryAt(decoded_, tp, head_.Fields().Rate());
        if (type != Cache::Valid && type != Cache::Missing) {
            return false;
        }
    }
    return true;
}

void FetchPlan::Evict() {
    const SampleRate rate = head_.FetchRate();
    const std::size_t nbDecoded =
        EvictFrom(decoded_, rate, NbAhead(), head_.NbOfSamples(window_.nbDecodedBehind));
    const std::size_t nbCompressed =
        EvictFrom(compressed_, std::min(rate, head_.Recording().Rate()),
                  std::max(window_.nbCompressedAhead, window_.nbDecodedAhead), window_.nbDecodedBehind);
    if (nbDecoded > 0) {
        orders_.Record("cache", "evict decoded", {"samples", static_cast<std::int64_t>(nbDecoded)});
    }
    if (nbCompressed > 0) {
        orders_.Record("cache", "evict compressed", {"samples", static_cast<std::int64_t>(nbCompressed)});
    }
}

std::size_t FetchPlan::EvictFrom(Cache& cache, const SampleRate& rate, std::size_t nbAhead,
                                 std::size_t nbBehind) const {
    const std::int64_t number = head_.Now().SampleNumber(rate);
    auto before = static_cast<std::int64_t>(nbBehind);
    auto after = static_cast<std::int64_t>(nbAhead);
    if (head_.Stands()) {
        before = after;
    } else if (!head_.Speed().Positive()) {
        std::swap(before, after);
    }
    return cache.EraseBefore(TimePoint::StartOfSample(std::max<std::int64_t>(number - before, 0), rate)) +
           cache.EraseAfter(TimePoint::StartOfSample(number + after + 1, rate), Cache::Not_Found);
}

}  // namespace Tavrin::Playout
