#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <mutex>
#include <unordered_set>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrder.h"
#include "Player/ISampleDecoder.h"
#include "Player/Output.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// The `CacheUpdateQueue`s that are still alive.
///
/// A queue belongs to a stream's cache and may go while workers still hold orders that point at it. Workers
/// therefore deliver through this registry, which pushes only into queues that are registered, and keeps them
/// registered during the push. Whoever creates a queue inserts it right away and removes it before destroying
/// it; nothing in the engine inserts or removes queues by itself.
///
/// *Threads:* thread-safe.
/// *Blocking:* `InsertExistingQueue` and `RemoveExistingQueue` wait until the pushes and decodes in progress
/// are done; while one of them waits, new pushes and decodes wait behind it, so it cannot starve. The others
/// wait for those two only. `DecodeIfExists` takes as long as the client's decoder.
/// *Memory:* once `RemoveExistingQueue` has returned, no push into that queue is in progress or will come,
/// and all earlier ones are visible to the caller: the queue may be destroyed. *Re-entry:* a decoder that
/// `DecodeIfExists` has called may call `Exists` and `PushIfExists` of the same registry;
/// `InsertExistingQueue` and `RemoveExistingQueue` there would wait for themselves and throw
/// `std::logic_error` instead.
/// *Ownership:* does not own the queues and never touches them but to push.
/// *Cost:* hardly depends on how many queues are registered.
class TAVRIN_PLAYER_EXPORT ExistingCacheUpdateQueues {
public:
    ExistingCacheUpdateQueues() = default;
    ExistingCacheUpdateQueues(const ExistingCacheUpdateQueues&) = delete;
    ExistingCacheUpdateQueues& operator=(const ExistingCacheUpdateQueues&) = delete;
    virtual ~ExistingCacheUpdateQueues() = default;

    /// Registers `queue`; inserting it again changes nothing. A null queue can be registered too; nothing is
    /// ever delivered to it (`PushIfExists` and `DecodeIfExists` answer false).
    void InsertExistingQueue(CacheUpdateQueue* queue);

    /// Takes `queue` off the list; one that is not registered is ignored. Returns only when no push or decode
    /// is in progress.
    void RemoveExistingQueue(CacheUpdateQueue* queue);

    bool Exists(CacheUpdateQueue* queue);

    /// Pushes if `queue` is registered, and tells whether it is. On false the sample stays with the caller,
    /// who deletes it.
    bool PushIfExists(CacheUpdateQueue* queue, const Output& output);

    /// Has `decoder` decode `order` and delivers the result to `order.queue_`, all under the shared lock.
    /// `queue` is the one that must be registered, the order's own.
    ///
    /// False, with nothing done (the decoder not called, the compressed sample's protection kept), when
    /// `queue` is not registered. True when a result was delivered; its sample is null when the decoder
    /// returned null or threw `std::runtime_error`. One protection of the compressed sample is released
    /// either way. Any other exception of the decoder leaves the function, with nothing delivered or
    /// released.
    bool DecodeIfExists(CacheUpdateQueue* queue, ISampleDecoder* decoder, const DecodeOrder& order);

private:
    class SharedAccess;
    class ExclusiveAccess;

    bool IsRegistered(CacheUpdateQueue* queue) const;

    /// Everyone passes here on the way to `access_`, and a writer stays until it has it: that keeps readers
    /// who come back at once from overtaking it.
    std::mutex entrance_;
    boost::shared_mutex access_;
    std::vector<CacheUpdateQueue*> queues_;  ///< In the order of registration.
    /// The same, for finding one among many.
    std::unordered_set<CacheUpdateQueue*> byAddress_;
};

}  // namespace Tavrin::Player
