#include "Playout/StreamHead.h"

#include <utility>

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::TimePoint;

StreamHead::StreamHead(std::shared_ptr<const RecordingIndex> recording, const SampleRate& displayRate,
                       FieldOutput fields)
    : recording_(std::move(recording)),
      fields_(recording_, displayRate, fields),
      displayRate_(displayRate),
      end_(recording_->End()) {
}

bool StreamHead::Exists(const TimePoint& tp) const {
    return begin_ <= tp && tp < end_ && recording_->PictureAtTime(tp).has_value();
}

SampleRate StreamHead::FetchRate() const {
    const SampleRate needed = SampleRate::TimeSamplingRate(fields_.Rate(), Speed(), displayRate_);
    return needed.Positive() ? SampleRate::StreamPreloadRate(fields_.Rate(), needed) : fields_.Rate();
}

TimePoint StreamHead::Needed() const {
    const TimePoint fetched = Now().AlignWith(FetchRate());
    return recording_->PictureAtTime(fetched) ? fetched : Now().AlignWith(recording_->Rate());
}

TimePoint StreamHead::Further(const TimePoint& from, std::int64_t nb) const {
    const SampleRate rate = FetchRate();
    return TimePoint::StartOfSample(from.SampleNumber(rate) + (Speed() < Time::Ratio() ? -nb : nb), rate);
}

bool StreamHead::HasPassed(const TimePoint& tp, const SampleRate& rate) const {
    const TimePoint needed = Needed().AlignWith(rate);
    return Speed().Positive() ? tp < needed : Speed() < Time::Ratio() && tp > needed;
}

std::size_t StreamHead::NbOfSamples(std::size_t nbPictures) const {
    return player_ != nullptr && FetchRate() > recording_->Rate() ? 2 * nbPictures : nbPictures;
}

}  // namespace Tavrin::Playout
