#pragma once

#include <cstddef>
#include <map>
#include <set>

#include "Player/PlayerExport.h"
#include "Player/PreloadOrder.h"
#include "Player/PreloadWorker.h"
#include "Player/TrackId.h"

namespace Tavrin::Player {

/// A preload worker that spreads the load on storage over time: an order is run only in a slot of the second
/// that its track is registered in.
///
///     second of the steady clock:  |slot 0|slot 1|slot 2| ... |slot 49|slot 0| ...
///                                  0     20     40    60     980   1000 ms
///
/// Orders are collected as soon as they are pushed and wait, each key (track, time point, queue) once, until
/// a slot of their track comes. The worker looks at its queues and slots every 15 ms, three quarters of a
/// slot, so every slot is visited; it waits on no semaphore.
///
/// Set-up, before `Start`: `SetSendingUnitPeriod` once, then `RegisterOrder` for each track.
///
/// *Threads:* as `IPreloadThread`; `SetSendingUnitPeriod` and `RegisterOrder` only before `Start`, and
/// `SendAwaitingOrders` only while the worker is stopped: they take no lock.
/// *Blocking:* `Stop`, `Start` and the destructor wait for the orders of the slot in progress and a sleep of
/// 15 ms at most.
/// *Ownership:* as `IPreloadThread`. Orders that wait survive `Stop` and `Start`; the destructor drops them.
/// *Errors:* `std::runtime_error` from `SetSendingUnitPeriod` and `RegisterOrder`. A track registered in no
/// slot is never sent, and its orders pile up without bound. A pass in a slot that was not created logs a
/// warning and sends nothing.
class TAVRIN_PLAYER_EXPORT TimedPreloadThread : public PreloadWorker {
public:
    /// Not started, without queues, preloader and slots.
    TimedPreloadThread();
    ~TimedPreloadThread() override;

    /// Creates the slots 0, 1, ... that `n` sending units per second make, and returns their period,
    /// 1000 / n milliseconds.
    ///
    /// The worker sends in slots of 20 ms whatever `n` is: with any other number than 50 the slots created
    /// and those visited differ. Throws `std::runtime_error`, creating nothing, when slots exist already or
    /// when `n` is outside 1 to 1000.
    std::size_t SetSendingUnitPeriod(int n);

    /// Registers a track in a slot; doing so again changes nothing. Throws `std::runtime_error` when there is
    /// no such slot.
    void RegisterOrder(const TrackId& id, std::size_t slot);

    /// Runs the waiting orders whose track is registered in the slot of this moment, smallest first, and
    /// returns how many that were, failed ones included.
    std::size_t SendAwaitingOrders();

    /// Adds one unit to a semaphore of this class that nobody waits on.
    static void OneSampleReadyForPreload();

private:
    static Tools::Semaphore& ToPreload();

    void DequeueAndPreloadThread() override;
    void CollectOrders(PreloadOrder& order);

    std::map<std::size_t, std::set<TrackId>> slots_;
    std::set<PreloadOrder> awaitingOrders_;
    const std::size_t slotPeriod_;
};

}  // namespace Tavrin::Player
