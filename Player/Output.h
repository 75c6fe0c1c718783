#pragma once

#include "Player/ISample.h"
#include "Player/PlayerExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// Carries a produced sample, and the time point it was asked for, from a worker into a cache.
///
/// *Threads:* externally synchronised, as a plain value.
/// *Ownership:* an `Output` never owns its sample: copying copies the pointer, destroying leaves the sample
/// alone. The ownership of a sample travels with the `Output` all the same: while it waits in a
/// `CacheUpdateQueue` the queue deletes it if it is destroyed, and once a `Cache` has taken it in, only the
/// cache does.
class TAVRIN_PLAYER_EXPORT Output {
public:
    Output() = default;
    Output(const Output& other) = default;
    Output& operator=(const Output& other) = default;
    virtual ~Output() = default;

    /// The same sample (the same pointer) for the same time point.
    bool operator==(const Output& other) const { return sample_ == other.sample_ && tp_ == other.tp_; }

    /// The time point of the request that this answers.
    Time::TimePoint GetTimePoint() const { return tp_; }

    ISample* sample_ = nullptr;  ///< Null when the producer has no sample for this time point.
    Time::TimePoint tp_;         ///< Need not be aligned to the stream's rate: the cache aligns it.
};

}  // namespace Tavrin::Player
