#include "Playout/MediaDecoder.h"

#include <exception>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/TrackDecoders.h"

namespace Tavrin::Playout {

MediaDecoder::MediaDecoder() : meter_(std::make_unique<DecodeMeter>()) {
}

MediaDecoder::~MediaDecoder() = default;

void MediaDecoder::AddTrack(const Player::TrackId& track, const std::shared_ptr<const RecordingIndex>& index,
                            const MediaDecoderOptions& options) {
    auto added = std::make_shared<TrackDecoders>(index, options, *meter_);
    const std::unique_lock lock(tracksMutex_);
    tracks_[track] = std::move(added);
}

void MediaDecoder::RemoveTrack(const Player::TrackId& track) {
    const std::unique_lock lock(tracksMutex_);
    tracks_.erase(track);
}

std::shared_ptr<TrackDecoders> MediaDecoder::Find(const Player::TrackId& track) const {
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
