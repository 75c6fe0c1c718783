#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <mutex>
#include <vector>

#include "Literal/Queues.h"
#include "Player/Output.h"

namespace Tavrin::Player::Literal {

/// The queues that are still alive: a vector that is looked through from the front, under a reader-writer
/// lock with an entrance that keeps readers from overtaking a writer.
///
/// *Threads:* thread-safe.
class ExistingCacheUpdateQueues {
public:
    void InsertExistingQueue(CacheUpdateQueue* queue);
    bool Exists(CacheUpdateQueue* queue);
    bool PushIfExists(CacheUpdateQueue* queue, const Output& output);

private:
    boost::shared_lock<boost::shared_mutex> Shared();
    bool IsRegistered(const CacheUpdateQueue* queue) const;

    std::mutex entrance_;
    boost::shared_mutex access_;
    std::vector<CacheUpdateQueue*> queues_;
};

}  // namespace Tavrin::Player::Literal
