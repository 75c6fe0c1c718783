#pragma once

#include <cstdint>

#include "Player/PlayerExport.h"
#include "Player/PreloadOrder.h"

namespace Tavrin::Player {

class ExistingCacheUpdateQueues;

/// Fetches compressed samples from storage. Clients implement it.
///
/// The implementer guarantees:
/// 1. every order whose queue is set is answered with exactly one `Output`, carrying the order's own time
///    point: with a sample, or with a null one when there is none or it could not be had;
/// 2. when it was handed the registry, it delivers through `ExistingCacheUpdateQueues::PushIfExists`, and
///    deletes the sample when that returns false;
/// 3. `Preload` may be called from several worker threads at once.
///
/// The implementer may assume:
/// 1. no lock of the engine is held during `Preload`, which may take as long as the storage does;
/// 2. an exception is logged by the worker, which goes on with the next order. The order then stays
///    unanswered unless the preloader answered it before it threw.
///
/// What comes of a preloader that
/// - takes long, or hangs: its worker is held, and so is the `Stop` of that worker; other workers go on;
/// - returns `ERROR` or throws anything, and has not answered: the worker goes on with the next order, the
///   cache's entry stays pending, and whoever knows better may still answer;
/// - answers after it has returned, from a thread of its own: the answer is filed when it comes;
/// - answers with a null sample: the entry becomes `Cache::Missing`;
/// - answers a second time, or for an entry that the cache has dropped: `Cache::Update` deletes the sample
///   and throws `std::runtime_error`, and files the answers behind it at the next call;
/// - answers for a queue that is gone: `PushIfExists` returns false, and the sample is still the preloader's.
class TAVRIN_PLAYER_EXPORT IPreloader {
public:
    enum PreloadResult : std::int32_t {
        ERROR = 0,           ///< The preload failed.
        SUCCESS_EXIST = 1,   ///< A sample exists at that time point and was delivered.
        SUCCESS_MISSING = 2  ///< Storage has no sample there; the absence was delivered.
    };

    IPreloader() = default;
    IPreloader(const IPreloader&) = delete;
    IPreloader& operator=(const IPreloader&) = delete;
    virtual ~IPreloader() = default;

    /// Fetches the sample of `order.id_` at `order.tp_` and delivers it into `order.queue_`. The result only
    /// goes into the log: nothing is retried.
    virtual PreloadResult Preload(const PreloadOrder& order) = 0;

    /// The registry to deliver through, not owned; null to deliver directly.
    virtual void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) = 0;
};

/// The result's name as it stands in log lines.
constexpr const char* ToString(IPreloader::PreloadResult result) {
    switch (result) {
        case IPreloader::ERROR:
            return "ERROR";
        case IPreloader::SUCCESS_EXIST:
            return "SUCCESS_EXIST";
        case IPreloader::SUCCESS_MISSING:
            return "SUCCESS_MISSING";
    }
    return "Unknown PreloadResult type";
}

}  // namespace Tavrin::Player
