#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "Player/SampleRate.h"
#include "Playout/FieldOrder.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

class Trace;

/// How a session plays.
struct SessionOptions {
    /// Rate at which the output shows pictures; a rate that nobody has set (zero) stands for the highest of
    /// the recordings' rates, shown by fields where `fields` asks for that.
    Player::SampleRate displayRate;

    /// Whether interlaced recordings are shown field by field.
    FieldOutput fields = FieldOutput::Automatic;

    /// Bytes that all tracks together may take: compressed packets, decoded pictures ready around the play head
    /// or put out on the way to others, and those that decoders work on. Strict, but for pictures that the
    /// caller keeps. Zero: for each track what two of its longest groups of decoded pictures take, which
    /// playing backward needs (`DefaultMemory`).
    std::size_t memoryBytes = 0;

    /// Wall time ahead of the play head, in the direction of play, for which pictures are kept ready, as far
    /// as the memory goes. Long enough for a group to be decoded before its first picture is due.
    Time::TimePoint ahead = Time::TimePoint().FromMilliseconds(1500);

    /// Wall time behind it, for those who turn round.
    Time::TimePoint behind = Time::TimePoint().FromMilliseconds(200);

    /// Workers that read. Each serves its share of the required tracks, so a slow file holds up only the
    /// tracks that it shares a worker with; every other track has one of its own besides.
    std::size_t nbPreloadWorkers = 2;

    /// Workers that decode. Zero: as many as there are cores, and with many tracks up to four a core, since a
    /// worker may have to wait for another one that decodes the same group.
    std::size_t nbDecodeWorkers = 0;

    /// A picture that could not be had is asked for again after this much wall time, and after twice as long
    /// each time that it cannot be had again.
    std::chrono::milliseconds retryAfter{1000};

    /// Where the session records what it and its workers do; null: nowhere, which costs nothing.
    std::shared_ptr<Trace> trace;
};

}  // namespace Tavrin::Playout
