#include "Player/PreloadTimePointGenerator.h"

#include <algorithm>
#include <iostream>
#include <limits>

#include "Logging/LoggingManager.h"
#include "Player/Cache.h"
#include "Player/IPlayer.h"

namespace Tavrin::Player {

using Time::TimePoint;

namespace {

/// Where sample numbers saturate; never proposed, or the walk would stand there and propose it for ever.
constexpr std::int64_t kLastSample = std::numeric_limits<std::int64_t>::max();

/// Sample numbers saturate instead of wrapping, as time points do.
std::int64_t Sum(std::int64_t number, std::int64_t offset) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(number, offset, &sum)) {
        return offset > 0 ? kLastSample : std::numeric_limits<std::int64_t>::min();
    }
    return sum;
}

}  // namespace

PreloadTimePointGenerator::PreloadTimePointGenerator()
    : logger_(qor::kp::logging::LoggingManager::GetLoggerPtr("PreloadTimePointGenerator")) {
}

void PreloadTimePointGenerator::SetSampleRate(SampleRate rate) {
    sampleRate_ = rate;
}

void PreloadTimePointGenerator::SetDisplayRate(SampleRate rate) {
    displayRate_ = rate;
}

void PreloadTimePointGenerator::SetCache(Cache* cache) {
    cache_ = cache;
}

void PreloadTimePointGenerator::SetNumberPreloads(std::uint64_t nb) {
    constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    nbToPreload_ = static_cast<std::int64_t>(std::min(nb, kHighest));
}

void PreloadTimePointGenerator::SetTrackId(const TrackId& id) {
    trackId_ = id;
}

void PreloadTimePointGenerator::Update(const IPlayer* player) {
    playerTp_ = player->GetCurrentTimePoint();
    playerSpeed_ = player->GetSpeed();
    RecomputeInternalState();
}

void PreloadTimePointGenerator::RecomputeInternalState() {
    timeSamplingRate_ = SampleRate::TimeSamplingRate(sampleRate_, playerSpeed_, displayRate_);
    if (playerSpeed_.Numerator() == 0) {
        returnPositivePreloadInZeroSpeedMode_ = true;
    }
    if (cache_ == nullptr) {
        return;
    }
    // No halving of a stream rate reaches a time sampling rate of zero: nothing can be shown then.
    streamPreloadRate_ = timeSamplingRate_.Positive()
                             ? SampleRate::StreamPreloadRate(sampleRate_, timeSamplingRate_)
                             : SampleRate();
    // A copy: what is recorded or evicted before the next update makes no difference to the proposals.
    multipliers_ = cache_->FindRuns(streamPreloadRate_);
    playerTpSampleNumber_ = playerTp_.SampleNumber(streamPreloadRate_);
    currentMultiplier_ = Sum(playerTpSampleNumber_, playerSpeed_.Positive() ? 1 : -1);
}

bool PreloadTimePointGenerator::Get(TimePoint& tp) {
    if (cache_ == nullptr || ProposesNothing()) {
        return false;
    }
    if (playerSpeed_.Numerator() == 0) {
        return GetInZeroSpeedMode(tp);
    }
    return playerSpeed_.Positive() ? GetForward(tp) : GetBackward(tp);
}

bool PreloadTimePointGenerator::ProposesNothing() const {
    return !streamPreloadRate_.Positive();
}

bool PreloadTimePointGenerator::GetForward(TimePoint& tp) {
    SkipHeldUpward();
    if (!IsForwardWithin(nbToPreload_)) {
        return false;
    }
    tp = TimePoint::StartOfSample(currentMultiplier_++, streamPreloadRate_);
    return true;
}

bool PreloadTimePointGenerator::GetBackward(TimePoint& tp) {
    SkipHeldDownward();
    if (!IsBackwardWithin(nbToPreload_)) {
        return false;
    }
    tp = TimePoint::StartOfSample(currentMultiplier_--, streamPreloadRate_);
    return true;
}

bool PreloadTimePointGenerator::GetInZeroSpeedMode(TimePoint& tp) {
    const std::int64_t nbEachSide = nbToPreload_ / 2;
    if (returnPositivePreloadInZeroSpeedMode_) {
        SkipHeldUpward();
        if (IsForwardWithin(nbEachSide)) {
            tp = TimePoint::StartOfSample(currentMultiplier_++, timeSamplingRate_);
            return true;
        }
        returnPositivePreloadInZeroSpeedMode_ = false;
        currentMultiplier_ = Sum(playerTpSampleNumber_, -1);
    }
    SkipHeldDownward();
    if (!IsBackwardWithin(nbEachSide)) {
        return false;
    }
    tp = TimePoint::StartOfSample(currentMultiplier_--, timeSamplingRate_);
    return true;
}

bool PreloadTimePointGenerator::IsForwardWithin(std::int64_t range) const {
    return currentMultiplier_ <= Sum(playerTpSampleNumber_, range) && currentMultiplier_ < kLastSample;
}

bool PreloadTimePointGenerator::IsBackwardWithin(std::int64_t range) const {
    return currentMultiplier_ >= Sum(playerTpSampleNumber_, -range) && currentMultiplier_ >= 0;
}

/// To the next number that the cache does not hold; numbers below zero name no sample of a recording.
void PreloadTimePointGenerator::SkipHeldUpward() {
    currentMultiplier_ = multipliers_.FirstAbsentFrom(std::max<std::int64_t>(currentMultiplier_, 0));
}

void PreloadTimePointGenerator::SkipHeldDownward() {
    if (currentMultiplier_ >= 0) {
        currentMultiplier_ = std::max<std::int64_t>(multipliers_.LastAbsentUpTo(currentMultiplier_), -1);
    }
}

void PreloadTimePointGenerator::OutputInternalState() const {
    std::cout << "playerTp " << playerTp_ << std::endl;
    std::cout << "streamRate " << sampleRate_ << std::endl;
    std::cout << "displayRate " << displayRate_ << std::endl;
    std::cout << "player speed " << playerSpeed_ << std::endl;
    std::cout << "time sampling rate " << timeSamplingRate_ << std::endl;
    std::cout << "nbToPreloads " << nbToPreload_ << std::endl;
    std::cout << "playerTp sample number " << playerTpSampleNumber_ << std::endl;
    std::cout << "current mul. " << currentMultiplier_ << std::endl;
    std::cout << "multipliers: ";
    for (const SampleRuns::Run& run : multipliers_.Runs()) {
        // Written so that a run that ends with the highest number ends, too.
        for (std::int64_t left = run.last_ - run.first_; left >= 0; --left) {
            const std::int64_t number = run.last_ - left;
            std::cout << number << " (" << TimePoint::StartOfSample(number, timeSamplingRate_) << ") ";
        }
    }
    std::cout << std::endl;
}

}  // namespace Tavrin::Player
