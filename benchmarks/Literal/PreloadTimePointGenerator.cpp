#include "Literal/PreloadTimePointGenerator.h"

#include <algorithm>

#include "Literal/TimeArithmetic.h"

namespace Tavrin::Player::Literal {

using Time::Ratio;
using Time::TimePoint;

void PreloadTimePointGenerator::Update(const IPlayer* player) {
    playerTp_ = player->GetCurrentTimePoint();
    playerSpeed_ = player->GetSpeed();
    timeSamplingRate_ = SampleRate::TimeSamplingRate(sampleRate_, playerSpeed_, displayRate_);
    if (playerSpeed_ == Ratio(0, 1)) {
        returnPositivePreloadInZeroSpeedMode_ = true;
    }
    if (cache_ == nullptr) {
        return;
    }
    streamPreloadRate_ = SampleRate::StreamPreloadRate(sampleRate_, timeSamplingRate_);
    multipliers_ = cache_->FindMultiples(streamPreloadRate_);
    playerTpSampleNumber_ = SampleNumber(playerTp_, streamPreloadRate_);
    currentMultiplier_ = playerTpSampleNumber_ + (playerSpeed_.Positive() ? 1 : -1);
}

bool PreloadTimePointGenerator::Get(TimePoint& tp) {
    if (cache_ == nullptr) {
        return false;
    }
    if (playerSpeed_ == Ratio(0, 1)) {
        return GetInZeroSpeedMode(tp);
    }
    return playerSpeed_.Positive() ? GetForward(tp) : GetBackward(tp);
}

bool PreloadTimePointGenerator::GetForward(TimePoint& tp) {
    while (IsHeld()) {
        ++currentMultiplier_;
    }
    if (playerTpSampleNumber_ + nbToPreload_ < currentMultiplier_) {
        return false;
    }
    tp = StartOfSample(currentMultiplier_++, streamPreloadRate_);
    return true;
}

bool PreloadTimePointGenerator::GetBackward(TimePoint& tp) {
    while (IsHeld()) {
        --currentMultiplier_;
    }
    if (playerTpSampleNumber_ - nbToPreload_ > currentMultiplier_ || currentMultiplier_ < 0) {
        return false;
    }
    tp = StartOfSample(currentMultiplier_--, streamPreloadRate_);
    return true;
}

bool PreloadTimePointGenerator::GetInZeroSpeedMode(TimePoint& tp) {
    const std::int64_t nbEachSide = nbToPreload_ / 2;
    if (returnPositivePreloadInZeroSpeedMode_) {
        currentMultiplier_ = std::max<std::int64_t>(currentMultiplier_, 0);
        while (IsHeld()) {
            ++currentMultiplier_;
        }
        if (playerTpSampleNumber_ + nbEachSide >= currentMultiplier_) {
            tp = StartOfSample(currentMultiplier_++, timeSamplingRate_);
            return true;
        }
        returnPositivePreloadInZeroSpeedMode_ = false;
        currentMultiplier_ = playerTpSampleNumber_ - 1;
    }
    while (IsHeld()) {
        --currentMultiplier_;
    }
    if (playerTpSampleNumber_ - nbEachSide > currentMultiplier_ || currentMultiplier_ < 0) {
        return false;
    }
    tp = StartOfSample(currentMultiplier_--, timeSamplingRate_);
    return true;
}

}  // namespace Tavrin::Player::Literal
