#pragma once

#include <chrono>
#include <cstddef>

#include "Player/SampleRate.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// How a session plays.
struct SessionOptions {
    /// Rate at which the output shows pictures; a rate that nobody has set (zero) stands for the highest of
    /// the recordings' rates.
    Player::SampleRate displayRate;

    /// Bytes of decoded pictures that all tracks may hold together, shared equally: ready around the play
    /// head, and put out by the decoders on the way to others. Zero: for each track two of its longest
    /// groups, which is what playing backward takes (`DefaultTrackBytes`). Each track keeps a few pictures
    /// ready however small its share is.
    std::size_t decodedBytes = 0;

    /// Wall time ahead of the play head, in the direction of play, for which pictures are kept ready, as far
    /// as the memory goes. Long enough for a group to be decoded before its first picture is due.
    Time::TimePoint ahead = Time::TimePoint().FromMilliseconds(1500);

    /// Wall time behind it, for those who turn round.
    Time::TimePoint behind = Time::TimePoint().FromMilliseconds(400);

    /// Workers that read. Each serves its share of the tracks, so a slow file holds up only the tracks that it
    /// shares a worker with.
    std::size_t nbPreloadWorkers = 2;

    /// Workers that decode; about as many as there are cores.
    std::size_t nbDecodeWorkers = 2;

    /// A picture that could not be had is asked for again after this much wall time, and after twice as long
    /// each time that it cannot be had again.
    std::chrono::milliseconds retryAfter{1000};
};

}  // namespace Tavrin::Playout
