#include "Literal/ExistingCacheUpdateQueues.h"

#include <algorithm>
#include <boost/thread/locks.hpp>

namespace Tavrin::Player::Literal {

void ExistingCacheUpdateQueues::InsertExistingQueue(CacheUpdateQueue* queue) {
    const std::lock_guard<std::mutex> entrance(entrance_);
    const boost::unique_lock<boost::shared_mutex> lock(access_);
    if (!IsRegistered(queue)) {
        queues_.push_back(queue);
    }
}

bool ExistingCacheUpdateQueues::Exists(CacheUpdateQueue* queue) {
    const auto lock = Shared();
    return IsRegistered(queue);
}

bool ExistingCacheUpdateQueues::PushIfExists(CacheUpdateQueue* queue, const Output& output) {
    const auto lock = Shared();
    if (!IsRegistered(queue)) {
        return false;
    }
    queue->Push(output);
    return true;
}

boost::shared_lock<boost::shared_mutex> ExistingCacheUpdateQueues::Shared() {
    const std::lock_guard<std::mutex> entrance(entrance_);
    return boost::shared_lock<boost::shared_mutex>(access_);
}

bool ExistingCacheUpdateQueues::IsRegistered(const CacheUpdateQueue* queue) const {
    return std::find(queues_.begin(), queues_.end(), queue) != queues_.end();
}

}  // namespace Tavrin::Player::Literal
