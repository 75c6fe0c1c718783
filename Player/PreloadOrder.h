#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/PlayerExport.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// Asks a preload worker to have the compressed sample of a track at a time point fetched and delivered.
///
/// *Threads:* externally synchronised, as a plain value.
/// *Ownership:* owns nothing that it points at.
class TAVRIN_PLAYER_EXPORT PreloadOrder {
public:
    PreloadOrder() = default;
    PreloadOrder(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue, const TrackId& id);
    PreloadOrder(const PreloadOrder& other) = default;
    PreloadOrder& operator=(const PreloadOrder& other) = default;
    virtual ~PreloadOrder() = default;

    /// Replaces the four; the priority stays as it is.
    void Set(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue, const TrackId& id);

    /// A number that travels with the order for the client's own use: the engine neither sorts nor filters
    /// by it.
    void SetPriority(int priority) { priority_ = priority; }
    int Priority() const { return priority_; }

    /// Orders by track, then time point, then destination queue (by address). Rate and priority take no
    /// part: two orders that differ only there are the same request.
    bool operator<(const PreloadOrder& other) const;

    /// True exactly when neither order sorts before the other.
    bool operator==(const PreloadOrder& other) const;

    Time::TimePoint tp_;                 ///< The time point to preload.
    SampleRate s_;                       ///< The stream's sample rate; log lines name the sample with it.
    CacheUpdateQueue* queue_ = nullptr;  ///< Where the result is delivered.
    TrackId id_;                         ///< The track to preload from.
    std::int32_t priority_ = 0;
};

}  // namespace Tavrin::Player
