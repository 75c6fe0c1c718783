#pragma once

#include "Player/Cache.h"
#include "Player/SampleRate.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

// A cache keeps the sample that it handed out last, whatever is dropped: to look is to move that mark. Bound to the
// cache's thread.

/// What a cache knows of the sample of a rate at a time point. The sample there becomes the one handed out last.
[[nodiscard]] Player::Cache::EntryType EntryAt(Player::Cache& cache, const Time::TimePoint& tp,
                                               const Player::SampleRate& rate);

/// Has a cache hand out any sample but the one there, so that that one may be dropped; false where it holds no other.
bool UseAnother(Player::Cache& cache, const Player::SampleRate& rate, const Time::TimePoint& than);

}  // namespace Tavrin::Playout
