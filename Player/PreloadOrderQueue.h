#pragma once

#include <cstddef>

#include "Player/LockedQueue.h"
#include "Player/PlayerExport.h"
#include "Player/PreloadOrder.h"

namespace Tavrin::Player {

/// The way of preload orders from the client to the workers it attached the queue to.
///
/// *Threads:* thread-safe.
/// *Blocking:* never beyond a short lock.
/// *Ownership:* the orders are values and own nothing.
class TAVRIN_PLAYER_EXPORT PreloadOrderQueue {
public:
    PreloadOrderQueue() = default;
    PreloadOrderQueue(const PreloadOrderQueue&) = delete;
    PreloadOrderQueue& operator=(const PreloadOrderQueue&) = delete;
    virtual ~PreloadOrderQueue() = default;

    /// Appends a copy of `order` and adds one unit to the semaphore that idle `PreloadThread`s share,
    /// whichever kind of worker serves the queue: a `TimedPreloadThread` looks at its queues on its own clock
    /// and needs no waking.
    void Push(const PreloadOrder& order);

    /// Takes the oldest order; false, with `out` untouched, when there is none. The units of the semaphore
    /// stay: a surplus unit costs a worker one look at empty queues.
    bool Pop(PreloadOrder& out);

    /// The number of orders waiting at this moment.
    std::size_t GetSize();

    /// Drops all waiting orders. Nobody answers them: the cache entries that wait for them stay pending
    /// unless the caller pops the orders one by one and answers each.
    void Clear();

private:
    LockedQueue<PreloadOrder> queue_;
};

}  // namespace Tavrin::Player
