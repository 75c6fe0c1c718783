#include "Playout/FieldOrder.h"

#include <utility>

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace {

bool ShowsFields(const RecordingIndex& recording, const SampleRate& displayRate, FieldOutput wanted) {
    if (!recording.Description().interlaced || wanted == FieldOutput::Frames) {
        return false;
    }
    return wanted == FieldOutput::Fields || displayRate >= FieldRate(recording);
}

}  // namespace

SampleRate FieldRate(const RecordingIndex& recording) {
    return recording.Description().interlaced ? SampleRate(recording.Rate() * Ratio(2, 1)) : recording.Rate();
}

FieldOrder::FieldOrder(std::shared_ptr<const RecordingIndex> recording, const SampleRate& displayRate,
                       FieldOutput wanted)
    : recording_(std::move(recording)),
      isByFields_(ShowsFields(*recording_, displayRate, wanted)),
      rate_(isByFields_ ? FieldRate(*recording_) : recording_->Rate()) {
}

bool FieldOrder::IsSecond(const TimePoint& tp, std::size_t picture) const {
    return tp.SampleNumber(rate_) > recording_->Picture(picture).sample * NbFields();
}

PictureField FieldOrder::FieldAt(const TimePoint& tp) const {
    const auto picture = recording_->PictureAtTime(tp);
    if (!isByFields_ || !picture) {
        return PictureField::Frame;
    }
    const bool isTop = recording_->Description().topFieldFirst != IsSecond(tp, *picture);
    return isTop ? PictureField::Top : PictureField::Bottom;
}

void FieldOrder::Aim(Player::DecodeOrder& order, const TimePoint& tp) const {
    order.orderTp_ = tp;
    if (!isByFields_) {
        return;
    }
    order.isInterlace_ = true;
    order.fieldSampleRate_ = rate_;
    order.decodeTopField_ = FieldAt(tp) == PictureField::Top;
    if (!order.decodeTopField_) {
        // An order for a bottom field yields the field after the one that it names, whichever comes first.
        order.orderTp_ = TimePoint::StartOfSample(tp.SampleNumber(rate_) - 1, rate_);
    }
}

std::int64_t FieldOrder::SampleFurther(const TimePoint& from, std::int64_t nb) const {
    const auto picture = recording_->PictureAtTime(from);
    if (!picture) {
        return from.SampleNumber(rate_) + nb;
    }
    // Counted in pictures, or in fields of them, whatever time they take.
    const std::int64_t here =
        static_cast<std::int64_t>(*picture) * NbFields() + (isByFields_ && IsSecond(from, *picture) ? 1 : 0);
    const std::int64_t target = here + nb;
    const std::int64_t end = static_cast<std::int64_t>(recording_->NbPictures()) * NbFields();
    if (target < 0) {
        return target;
    }
    if (target >= end) {
        return recording_->NbSamples() * NbFields() + target - end;
    }
    const auto& found = recording_->Picture(static_cast<std::size_t>(target / NbFields()));
    return found.sample * NbFields() + target % NbFields();
}

}  // namespace Tavrin::Playout
