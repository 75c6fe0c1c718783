#pragma once

#include "Player/LockedQueue.h"
#include "Player/Output.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// The way of produced samples from the workers to the owner of a `Cache`.
///
/// *Threads:* thread-safe. The destructor must not overlap with a push: producers that may outlive the
/// queue's owner deliver through `ExistingCacheUpdateQueues`.
/// *Blocking:* never beyond a short lock.
/// *Ownership:* owns the samples of the outputs that wait in it; the destructor deletes them. An output that
/// was popped belongs, with its sample, to whoever popped it.
class TAVRIN_PLAYER_EXPORT CacheUpdateQueue {
public:
    CacheUpdateQueue() = default;
    CacheUpdateQueue(const CacheUpdateQueue&) = delete;
    CacheUpdateQueue& operator=(const CacheUpdateQueue&) = delete;
    virtual ~CacheUpdateQueue();

    /// Appends a copy of `output`; its sample now belongs to the queue. If this throws, the sample stays with
    /// the caller.
    void Push(const Output& output);

    /// Takes the oldest output; false, with `out` untouched, when there is none.
    bool Pop(Output& out);

private:
    LockedQueue<Output> entry_;
};

}  // namespace Tavrin::Player
