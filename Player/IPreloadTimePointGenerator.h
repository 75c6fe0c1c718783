#pragma once

#include <cstdint>

#include "Player/PlayerExport.h"
#include "Player/SampleRate.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

class Cache;
class IPlayer;

/// Tells a stream which samples to ask for next.
///
/// *Threads:* bound to one thread, the one that drives the stream and its cache.
class TAVRIN_PLAYER_EXPORT IPreloadTimePointGenerator {
public:
    IPreloadTimePointGenerator() = default;
    IPreloadTimePointGenerator(const IPreloadTimePointGenerator&) = delete;
    IPreloadTimePointGenerator& operator=(const IPreloadTimePointGenerator&) = delete;
    virtual ~IPreloadTimePointGenerator() = default;

    /// The next time point to ask for, in `tp`; false when there is none until the next `Update`.
    virtual bool Get(Time::TimePoint& tp) = 0;

    /// Starts anew from the player's time point and speed.
    virtual void Update(const IPlayer* player) = 0;

    /// The stream's own rate and the rate of the display. They take effect at the next `Update`.
    virtual void SetSampleRate(SampleRate rate) = 0;
    virtual void SetDisplayRate(SampleRate rate) = 0;

    /// The stream's cache, not owned; null ends the proposals at once, another cache is looked into at the
    /// next `Update`.
    virtual void SetCache(Cache* cache) = 0;

    /// How many samples to keep ahead, in force at once.
    virtual void SetNumberPreloads(std::uint64_t nb) = 0;
};

}  // namespace Tavrin::Player
