#pragma once

#include <cstdint>

#include "Logging/ILogger.h"
#include "Player/IPreloadTimePointGenerator.h"
#include "Player/PlayerExport.h"
#include "Player/SampleRuns.h"
#include "Player/TrackId.h"
#include "Time/Ratio.h"

namespace Tavrin::Player {

/// Proposes the samples of one stream that the play head will need and the stream's cache does not hold,
/// nearest first, in the direction of play.
///
/// With the play head in sample n and N samples to preload, counted at the preload rate (the stream rate
/// halved until it is no faster than what the display can show at the current speed):
///
///     speed > 0:        [n] n+1 ............ n+N          ascending
///     speed < 0:  n-N ............ n-1 [n]                descending, never below sample 0
///     speed 0:    n-N/2 ... n-1 [n] ... n+N/2             n-1 upward first, then n-1 downward
///
/// The sample under a moving play head is never proposed: looking for that one is the stream's own business.
/// At speed zero both walks begin at n-1, so that sample is proposed twice unless it has become a pending
/// entry and `Update` has been called in between.
///
/// *Threads:* bound to one thread, the one that drives the stream and its cache.
/// *Blocking:* never. `Get` neither locks nor allocates.
/// *Cost:* `Get` is a search among the runs of held samples, however many samples they hold. `Update` copies
/// these runs; when the rate at which they are counted has changed, the cache walks its entries once.
/// *Ownership:* keeps a plain pointer to the cache, which must outlive the generator's use of it.
/// *Errors:* `Get` never throws. `Update` throws `std::overflow_error` when a rate derived from the speed and
/// the rates does not fit 64 bits. With a stream rate that nobody has set, or with a display rate that nobody
/// has set at a speed other than zero, nothing is proposed.
class TAVRIN_PLAYER_EXPORT PreloadTimePointGenerator : public IPreloadTimePointGenerator {
public:
    /// Five samples to preload, no cache, no rates.
    PreloadTimePointGenerator();

    bool Get(Time::TimePoint& tp) override;
    void Update(const IPlayer* player) override;
    void SetSampleRate(SampleRate rate) override;
    void SetDisplayRate(SampleRate rate) override;
    void SetCache(Cache* cache) override;
    void SetNumberPreloads(std::uint64_t nb) override;

    /// For identification only.
    void SetTrackId(const TrackId& id);

    /// Prints the state to standard output, one value a line. The time points of the held samples are printed
    /// at the time sampling rate although their numbers count at the preload rate.
    void OutputInternalState() const;

private:
    void RecomputeInternalState();
    bool ProposesNothing() const;
    bool GetForward(Time::TimePoint& tp);
    bool GetBackward(Time::TimePoint& tp);
    bool GetInZeroSpeedMode(Time::TimePoint& tp);
    bool IsForwardWithin(std::int64_t range) const;
    bool IsBackwardWithin(std::int64_t range) const;
    void SkipHeldUpward();
    void SkipHeldDownward();

    SampleRate sampleRate_;
    SampleRate displayRate_;
    Time::TimePoint playerTp_;
    Time::Ratio playerSpeed_;
    std::int64_t nbToPreload_ = 5;
    std::int64_t playerTpSampleNumber_ = 0;
    SampleRate timeSamplingRate_;
    SampleRate streamPreloadRate_;
    Cache* cache_ = nullptr;
    SampleRuns multipliers_;  ///< What the cache held at the last `Update`.
    std::int64_t currentMultiplier_ = 0;
    bool returnPositivePreloadInZeroSpeedMode_ = true;
    TrackId trackId_;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
