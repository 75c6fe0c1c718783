#include "Player/ExistingCacheUpdateQueues.h"

#include <algorithm>
#include <boost/thread/locks.hpp>
#include <stdexcept>
#include <string>

#include "Player/DecodeDelivery.h"

namespace Tavrin::Player {

namespace {

/// The registry whose shared lock this thread holds across a client's decoder, if any. A decode never runs
/// within a decode of another registry, so one is enough.
thread_local const ExistingCacheUpdateQueues* decodingFor = nullptr;

class DecodingMark {
public:
    explicit DecodingMark(const ExistingCacheUpdateQueues* registry) : outer_(decodingFor) {
        decodingFor = registry;
    }
    DecodingMark(const DecodingMark&) = delete;
    DecodingMark& operator=(const DecodingMark&) = delete;
    ~DecodingMark() { decodingFor = outer_; }

private:
    const ExistingCacheUpdateQueues* outer_;
};

}  // namespace

/// Holds the list still. On a thread that already does so for a decode it takes nothing: waiting at the
/// entrance behind a writer that waits for this very decode would never end.
class ExistingCacheUpdateQueues::SharedAccess {
public:
    explicit SharedAccess(ExistingCacheUpdateQueues& registry) {
        if (decodingFor != &registry) {
            const std::lock_guard<std::mutex> entrance(registry.entrance_);
            lock_ = boost::shared_lock<boost::shared_mutex>(registry.access_);
        }
    }

private:
    boost::shared_lock<boost::shared_mutex> lock_;
};

/// Has the list to itself.
class ExistingCacheUpdateQueues::ExclusiveAccess {
public:
    ExclusiveAccess(ExistingCacheUpdateQueues& registry, const char* operation) {
        if (decodingFor == &registry) {
            throw std::logic_error(std::string("ExistingCacheUpdateQueues::") + operation +
                                   ": called by a decoder that this registry is waiting for; the list can "
                                   "only change outside of Decode");
        }
        const std::lock_guard<std::mutex> entrance(registry.entrance_);
        lock_ = boost::unique_lock<boost::shared_mutex>(registry.access_);
    }

private:
    boost::unique_lock<boost::shared_mutex> lock_;
};

void ExistingCacheUpdateQueues::InsertExistingQueue(CacheUpdateQueue* queue) {
    const ExclusiveAccess access(*this, "InsertExistingQueue");
    if (IsRegistered(queue)) {
        return;
    }
    byAddress_.insert(queue);
    try {
        queues_.push_back(queue);
    } catch (...) {
        byAddress_.erase(queue);
        throw;
    }
}

void ExistingCacheUpdateQueues::RemoveExistingQueue(CacheUpdateQueue* queue) {
    const ExclusiveAccess access(*this, "RemoveExistingQueue");
    if (byAddress_.erase(queue) != 0) {
        queues_.erase(std::find(queues_.begin(), queues_.end(), queue));
    }
}

bool ExistingCacheUpdateQueues::Exists(CacheUpdateQueue* queue) {
    const SharedAccess access(*this);
    return IsRegistered(queue);
}

bool ExistingCacheUpdateQueues::PushIfExists(CacheUpdateQueue* queue, const Output& output) {
    const SharedAccess access(*this);
    if (queue == nullptr || !IsRegistered(queue)) {
        return false;
    }
    queue->Push(output);
    return true;
}

bool ExistingCacheUpdateQueues::DecodeIfExists(CacheUpdateQueue* queue, ISampleDecoder* decoder,
                                               const DecodeOrder& order) {
    // Held across the client's Decode on purpose: that is what makes RemoveExistingQueue wait for it.
    const SharedAccess access(*this);
    if (queue == nullptr || !IsRegistered(queue)) {
        return false;
    }
    const DecodingMark mark(this);
    ISample* decoded = nullptr;
    try {
        decoded = decoder->Decode(order);
    } catch (const std::runtime_error&) {
        // Delivered as a null sample, which tells the stream all that it needs.
        decoded = nullptr;
    }
    DeliverDecoded(order, decoded);
    return true;
}

bool ExistingCacheUpdateQueues::IsRegistered(CacheUpdateQueue* queue) const {
    // Among a few, looking at each is quicker than finding the place of one.
    constexpr std::size_t few = 16;
    if (queues_.size() <= few) {
        return std::find(queues_.begin(), queues_.end(), queue) != queues_.end();
    }
    return byAddress_.count(queue) != 0;
}

}  // namespace Tavrin::Player
