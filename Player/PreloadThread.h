#pragma once

#include "Player/PlayerExport.h"
#include "Player/PreloadWorker.h"

namespace Tavrin::Player {

/// A preload worker that runs each order as soon as it can, and sleeps while there is none.
///
/// All `PreloadThread`s of the process share one semaphore, to which every push into any `PreloadOrderQueue`
/// adds one unit. A unit may wake a worker that does not serve the queue; that worker then looks in vain and
/// has all idle ones look once, and so does a worker that is stopped: no order waits for the next push while
/// a worker that serves its queue sleeps.
///
/// *Threads:* thread-safe, with the exception of `SetPreloader` and `RemovePreloader` (see `IPreloadThread`).
/// *Blocking:* `Stop`, `Start` and the destructor wait for the order in progress.
/// *Ownership:* as `IPreloadThread`.
class TAVRIN_PLAYER_EXPORT PreloadThread : public PreloadWorker {
public:
    /// Not started, without queues and preloader.
    PreloadThread();
    ~PreloadThread() override;

    /// Adds one unit to the semaphore that all `PreloadThread`s share, which wakes one idle worker at most.
    /// Callable at any time, also from static initialisers and destructors.
    static void OneSampleReadyForPreload();

private:
    static Tools::Semaphore& ToPreload();

    void DequeueAndPreloadThread() override;
};

}  // namespace Tavrin::Player
