#pragma once

#include <chrono>
#include <cstddef>

#include "Player/SampleRate.h"

namespace Tavrin::Playout {

/// How a session plays.
struct SessionOptions {
    /// Rate at which the output shows pictures; a rate that nobody has set (zero) stands for the highest of
    /// the recordings' rates.
    Player::SampleRate displayRate;

    /// Bytes of decoded pictures that all tracks may hold together: half of it ready ahead of and behind the
    /// play head, half of it in the decoders' stores, which is what lets a group be decoded once in reverse.
    /// Each track keeps a few pictures ready however small its share is.
    std::size_t decodedBytes = std::size_t{768} << 20;

    /// Pictures at most to keep ready ahead of the play head on each track, however small they are. More
    /// would only make jumps and changes of speed waste more work.
    std::size_t nbAhead = 48;

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
