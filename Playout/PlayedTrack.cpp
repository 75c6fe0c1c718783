#include "Playout/PlayedTrack.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

#include "Playout/DecodedSample.h"
#include "Playout/WindowPlan.h"

namespace Tavrin::Playout {

using Player::SampleStatus;

PlayedTrack::PlayedTrack(const Means& means, const SessionTrack& settings, std::size_t number,
                         const LanePlan& lanes)
    : means_(means),
      settings_(settings),
      id_(Player::StorageId(settings.recording->File(), settings.recording->Stream()),
          static_cast<std::int64_t>(number)),
      lanes_(lanes),
      needs_(NeedsOf(*settings.recording, lanes)),
      groupBytes_(LongestGroup(*settings.recording) * needs_.picture) {
}

void PlayedTrack::SetShare(std::size_t bytes) {
    bytes_ = bytes;
    means_.decoder.SetPictureBytes(id_, PictureRoom());
}

void PlayedTrack::Open() {
    MediaDecoderOptions decoding;
    decoding.pictureBytes = PictureRoom();
    decoding.lane.nbThreads = lanes_.nbThreads;
    decoding.nbLanes = lanes_.nbLanes;
    means_.preloader.AddTrack(id_, settings_.recording);
    means_.decoder.AddTrack(id_, settings_.recording, decoding);
    stream_ = std::make_unique<MediaStream>(settings_.recording, id_, means_.displayRate, StreamWindow(),
                                            means_.registry, means_.options.fields);
    stream_->SetTrace(means_.options.trace.get());
    player_ = std::make_unique<TrackPlayer>(means_.player, settings_.offset);
    stream_->LinkPlayer(player_.get());
    means_.player.AttachStream(stream_.get());
}

void PlayedTrack::PlanWindow(std::chrono::duration<double> groupTime) {
    const WindowRoom room{PictureRoom() - needs_.working, needs_.packets, needs_.beingMade, groupTime};
    window_ =
        Playout::PlanWindow(Recording(), means_.displayRate, means_.player.GetSpeed(), room, means_.options);
    stream_->SetWindow(window_);
}

void PlayedTrack::PlanReach(double share, bool standsIn) {
    const GroupReach reach = ReachFor(Recording(), share);
    stream_->AllowStandIns(standsIn);
    if (reach != reach_) {
        reach_ = reach;
        means_.preloader.SetReach(id_, reach);
        means_.decoder.SetReach(id_, reach);
    }
}

double PlayedTrack::WantedBytesPerSecond() const {
    const Time::Ratio rate = Recording().Rate() * means_.player.GetSpeed();
    const double perSecond =
        std::abs(static_cast<double>(rate.Numerator()) / static_cast<double>(rate.Denominator()));
    // Pictures that stand alone are decoded only where they are shown.
    const std::size_t of = Recording().IntraOnly() ? Stride() : 1;
    return perSecond * static_cast<double>(needs_.picture) / static_cast<double>(of);
}

std::size_t PlayedTrack::Stride() const {
    const Time::Ratio stride = Recording().Rate() / stream_->FetchRate();
    return static_cast<std::size_t>(stride.Numerator());
}

const TrackView& PlayedTrack::Look(const Manner& manner) {
    Player::ISample* sample = nullptr;
    view_.status = stream_->GetCurrentSample(&sample);
    Use(sample);
    view_.missing = view_.status == SampleStatus::Empty && stream_->CurrentIsMissing();
    view_.standIn = false;
    if (view_.status != SampleStatus::NotReady) {
        standIn_.Forget();
    }
    const bool isAwaited = view_.status == SampleStatus::NotReady;
    if (sample != nullptr) {
        auto& decoded = static_cast<DecodedSample&>(*sample);
        decoded.MarkSeen();
        view_.picture = decoded.Content();
        view_.field = decoded.Field();
        view_.standIn = stream_->IsStandIn(decoded);
    } else if ((isAwaited && manner.dragged) || (manner.standsIn && (isAwaited || view_.missing))) {
        StandIn(manner);
    } else if (view_.status == SampleStatus::Empty && !view_.missing) {
        view_.picture = nullptr;
    }
    means_.decoder.SetPlace(id_, PlaceFor(manner));
    return view_;
}

/// What is on show is protected, so that the cache does not drop it, and says so.
void PlayedTrack::Use(Player::ISample* sample) {
    if (sample == inUse_) {
        return;
    }
    if (inUse_ != nullptr) {
        inUse_->Unprotect(1);
    }
    if (sample != nullptr) {
        sample->Protect(1);
    }
    inUse_ = sample;
}

void PlayedTrack::StandIn(const Manner& manner) {
    const auto picture = Recording().PictureAtTime(player_->GetCurrentTimePoint());
    auto found = standIn_.Choose(
        picture ? means_.decoder.Nearest(id_, *picture) : nullptr, manner.dragged,
        [&] { return means_.decoder.Newest(id_); }, StandInChoice::Clock::now());
    if (found == nullptr) {
        return;
    }
    const bool isNew = found != view_.picture;
    view_.picture = std::move(found);
    view_.field = PictureField::Frame;
    view_.standIn = true;
    view_.missing = false;
    if (manner.standsIn) {
        view_.status = isNew ? SampleStatus::New : SampleStatus::Same;
    }
}

/// Decoded pictures that can be kept beside those that decoders work on.
std::size_t PlayedTrack::NbFitting() const {
    return (PictureRoom() - needs_.working) / std::max<std::size_t>(needs_.picture, 1);
}

PlayPlace PlayedTrack::PlaceFor(const Manner& manner) {
    // Who has gone no farther than this has stepped, and may step on; a hand that drags goes back and forth.
    constexpr std::size_t kStep = 16;
    constexpr std::size_t kTurn = 6;
    const Time::Ratio speed = means_.player.GetSpeed();
    PlayPlace place;
    // At high speeds the picture on show is that at the beginning of the sample fetched.
    place.picture =
        Recording().PictureAtOrAfter(player_->GetCurrentTimePoint().AlignWith(stream_->FetchRate()));
    // Where pictures last differently long, those shown are not every so many.
    place.stride = Recording().ConstantRate() ? Stride() : 1;
    place.backward = speed < Time::Ratio();
    // What can be kept; the window alone would leave out what the store keeps for later.
    place.ahead = NbFitting() * place.stride;
    const bool isAwaited = view_.status == SampleStatus::NotReady && !manner.dragged;
    const std::size_t way = std::max(restedAt_, place.picture) - std::min(restedAt_, place.picture);
    restedAt_ = isAwaited ? restedAt_ : place.picture;
    if (isAwaited && way > kStep) {
        // On the way to the picture that is waited for, those before it are in nobody's window; but who then plays may
        // turn round.
        place.behind = std::min(window_.nbDecodedBehind, kTurn) * place.stride;
    } else if (speed == Time::Ratio() && !manner.dragged) {
        // Forward, one picture comes after the other; backward, what is not there takes a pass over its group.
        place.backward = true;
        place.behind = NbFitting() / 3;
        place.ahead = NbFitting() - place.behind;
    } else {
        place.behind = std::max(window_.nbDecodedBehind, manner.dragged ? kStep : 0) * place.stride;
    }
    return place;
}

bool PlayedTrack::HasAhead(std::size_t nb) const {
    return stream_->HasAhead(std::min(nb, window_.nbDecodedAhead));
}

/// The picture under the play head is there, and it has been put no farther than the window reaches.
bool PlayedTrack::IsNear(const Time::TimePoint& from) const {
    const Player::SampleRate rate = stream_->FetchRate();
    const std::int64_t way =
        player_->GetCurrentTimePoint().SampleNumber(rate) - (from - settings_.offset).SampleNumber(rate);
    return static_cast<std::size_t>(std::abs(way)) <= window_.nbDecodedBehind && stream_->HasExact();
}

void PlayedTrack::Jumped(const Time::TimePoint& from, bool dragged) {
    const bool goesOn = !dragged && !stream_->IsDragged() && IsNear(from);
    stream_->SetDragged(dragged);
    if (!goesOn) {
        AbandonOthers();
        stream_->Withdraw();
    }
}

void PlayedTrack::AbandonOthers() {
    const auto picture = Recording().PictureAtTime(player_->GetCurrentTimePoint());
    const auto kept = picture ? std::optional(Recording().Picture(*picture).group) : std::nullopt;
    means_.preloader.Abandon(id_, kept);
    means_.decoder.Abandon(id_, picture);
}

void PlayedTrack::GiveUp() {
    means_.preloader.GiveUp(id_);
    means_.decoder.Abandon(id_, std::nullopt);
}

TrackSources PlayedTrack::Sources() const {
    return {means_.preloader, means_.decoder, *stream_, id_, bytes_};
}

}  // namespace Tavrin::Playout
