#pragma once

#include "Logging/ILogger.h"
#include "Player/IPreloader.h"
#include "Player/PlayerExport.h"
#include "Player/SampleRate.h"

namespace Tavrin::Player {

/// Stands in for storage: fabricates a `FakeSample` of one sample period for every order.
///
/// *Threads:* `Preload` is thread-safe; the setters belong before the workers start.
/// *Blocking:* never.
/// *Errors:* never throws. An order without a queue, a stream that was told to return nothing, and a rate of
/// zero all yield `ERROR`; the latter two deliver a null sample.
class TAVRIN_PLAYER_EXPORT FakePreloader : public IPreloader {
public:
    /// 25 samples per second, all of them there.
    FakePreloader();

    /// Delivers a sample that starts where the sample of the rate that `order.tp_` falls in does; the output
    /// carries the order's own time point.
    PreloadResult Preload(const PreloadOrder& order) override;

    /// Ignored: the fake pushes directly.
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) override;

    void SetSampleRate(SampleRate rate);

    /// With false, every order is answered with a null sample and `ERROR`.
    void ReturnValidSample(bool valid);

private:
    SampleRate rate_;
    bool returnValidSamples_ = true;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
