#pragma once

#include <cstdint>
#include <iosfwd>

#include "Player/PlayerExport.h"
#include "Time/Ratio.h"

namespace Tavrin::Player {

/// A rate in samples per second that is never negative, with the formulas on which preload planning rests.
///
/// Every way to make one takes the absolute value of what it is made from.
///
/// *Threads:* externally synchronised, as a plain value.
/// *Errors:* as `Ratio`: a zero denominator throws `std::invalid_argument`, terms that do not fit 64 bits
/// throw `std::overflow_error`.
class TAVRIN_PLAYER_EXPORT SampleRate : public Time::Ratio {
public:
    /// 0/1: a rate that nobody has set. Time arithmetic at this rate never divides by zero.
    SampleRate() = default;
    SampleRate(const SampleRate& other) = default;
    explicit(false) SampleRate(const Time::Ratio& ratio);
    SampleRate(std::int64_t numerator, std::int64_t denominator);
    SampleRate& operator=(const SampleRate& other) = default;
    ~SampleRate() override = default;

    /// The rate as a floating-point number, for people to read; never used in time arithmetic.
    double GetSamplesPerSeconds() const;

    /// The same value as a plain `Ratio`.
    Time::Ratio AsRatio() const;

    /// The rate at which samples pass the play head, capped by what the display can show:
    /// min(|streamSampleRate * playerSpeed|, displayRate).
    static SampleRate SaturateSampleRate(const SampleRate& streamSampleRate, const Time::Ratio& playerSpeed,
                                         const SampleRate& displayRate);

    /// The rate at which the play head needs samples, in stream time: the display rate carried back into
    /// stream time, |displayRate / playerSpeed|, but never above the stream rate. At speed zero the stream
    /// rate, whatever the display rate is.
    static SampleRate TimeSamplingRate(const SampleRate& streamSampleRate, const Time::Ratio& playerSpeed,
                                       const SampleRate& displayRate);

    /// The stream rate halved as often as it takes to be no faster than `timeSampling`; halving stops at
    /// equality, so every sample of the result starts where a sample of the stream starts.
    /// Throws `std::invalid_argument` when `timeSampling` is zero under a positive stream rate (no halving
    /// would ever reach it) and `std::overflow_error` when a halved rate does not fit 64 bits.
    static SampleRate StreamPreloadRate(const SampleRate& stream, const SampleRate& timeSampling);
};

/// Prints "numerator/denominator".
TAVRIN_PLAYER_EXPORT std::ostream& operator<<(std::ostream& out, const SampleRate& rate);

}  // namespace Tavrin::Player
