#pragma once

#include <cstddef>

#include "Player/DecodeOrder.h"
#include "Player/LockedQueue.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// The way of decode orders from the client to the workers it attached the queue to.
///
/// *Threads:* thread-safe.
/// *Blocking:* never beyond a short lock.
/// *Ownership:* the orders are values; the compressed samples that they point at are never deleted here,
/// neither by `Clear` nor by the destructor.
class TAVRIN_PLAYER_EXPORT DecodeOrderQueue {
public:
    DecodeOrderQueue() = default;
    DecodeOrderQueue(const DecodeOrderQueue&) = delete;
    DecodeOrderQueue& operator=(const DecodeOrderQueue&) = delete;
    virtual ~DecodeOrderQueue() = default;

    /// Appends a copy of `order` and adds one unit to the semaphore that idle `DecodeThread`s share.
    void Push(const DecodeOrder& order);

    /// Takes the oldest order; false, with `out` untouched, when there is none. The units of the semaphore
    /// stay: a surplus unit costs a worker one look at empty queues.
    bool Pop(DecodeOrder& out);

    /// The number of orders waiting at this moment.
    std::size_t GetSize();

    /// Drops all waiting orders. Nobody answers them: the cache entries that wait for them stay pending
    /// unless the caller pops the orders one by one and answers each.
    void Clear();

private:
    LockedQueue<DecodeOrder> queue_;
};

}  // namespace Tavrin::Player
