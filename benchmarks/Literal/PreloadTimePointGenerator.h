#pragma once

#include <cstdint>
#include <set>

#include "Literal/Cache.h"
#include "Player/IPlayer.h"
#include "Player/SampleRate.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Literal {

/// `Player::PreloadTimePointGenerator` as it is defined: each update rebuilds the set of the numbers held.
///
/// *Threads:* bound to one thread.
class PreloadTimePointGenerator {
public:
    bool Get(Time::TimePoint& tp);
    void Update(const IPlayer* player);
    void SetSampleRate(const SampleRate& rate) { sampleRate_ = rate; }
    void SetDisplayRate(const SampleRate& rate) { displayRate_ = rate; }
    void SetCache(Cache* cache) { cache_ = cache; }
    void SetNumberPreloads(std::uint64_t nb) { nbToPreload_ = static_cast<std::int64_t>(nb); }

private:
    bool GetForward(Time::TimePoint& tp);
    bool GetBackward(Time::TimePoint& tp);
    bool GetInZeroSpeedMode(Time::TimePoint& tp);
    bool IsHeld() const { return multipliers_.find(currentMultiplier_) != multipliers_.end(); }

    SampleRate sampleRate_;
    SampleRate displayRate_;
    Time::TimePoint playerTp_;
    Time::Ratio playerSpeed_;
    std::int64_t nbToPreload_ = 5;
    std::int64_t playerTpSampleNumber_ = 0;
    SampleRate timeSamplingRate_;
    SampleRate streamPreloadRate_;
    Cache* cache_ = nullptr;
    std::set<std::int64_t> multipliers_;
    std::int64_t currentMultiplier_ = 0;
    bool returnPositivePreloadInZeroSpeedMode_ = true;
};

}  // namespace Tavrin::Player::Literal
