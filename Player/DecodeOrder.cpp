#include "Player/DecodeOrder.h"

#include <limits>

namespace Tavrin::Player {

using Time::TimePoint;

namespace {

/// Sample numbers saturate at the end of time, so the last one is its own follower.
std::int64_t Following(std::int64_t sampleNumber) {
    return sampleNumber == std::numeric_limits<std::int64_t>::max() ? sampleNumber : sampleNumber + 1;
}

}  // namespace

void DecodeOrder::GenerateTimePointAndDuration(TimePoint& tp, TimePoint& duration) const {
    if (!isInterlace_) {
        tp = orderTp_;
        duration = toDecode_ != nullptr ? toDecode_->GetDuration() : TimePoint();
        return;
    }
    if (!fieldSampleRate_.Positive()) {
        tp = orderTp_;
        duration = TimePoint();
        return;
    }
    const std::int64_t topField = orderTp_.SampleNumber(fieldSampleRate_);
    const std::int64_t field = decodeTopField_ ? topField : Following(topField);
    tp = TimePoint::StartOfSample(field, fieldSampleRate_);
    duration = TimePoint::StartOfSample(Following(field), fieldSampleRate_) - tp;
}

}  // namespace Tavrin::Player
