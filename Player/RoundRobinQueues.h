#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace Tavrin::Player {

/// The order queues attached to a worker, served in turn: a queue that has given an order gets its next turn
/// after all the others.
///
/// *Threads:* thread-safe. The lock is held while the queues are popped, so a worker's list is always locked
/// before a queue, never the other way round.
/// *Ownership:* keeps plain pointers; a queue is removed before it is destroyed.
template <typename Queue>
class RoundRobinQueues {
public:
    /// Appends `queue`; one that is attached already is left where it is.
    void Attach(Queue* queue) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (std::find(queues_.begin(), queues_.end(), queue) != queues_.end()) {
            return;
        }
        queues_.push_back(queue);
        if (queues_.size() == 1) {
            next_ = 0;
        }
    }

    /// Removes `queue`, and starts the next turn at the first queue; ignores one that is not attached.
    void Remove(Queue* queue) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = std::find(queues_.begin(), queues_.end(), queue);
        if (found != queues_.end()) {
            queues_.erase(found);
            next_ = 0;
        }
    }

    /// Takes the next order in turn; false, with `order` untouched, when every queue is empty.
    template <typename Order>
    bool Pop(Order& order) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const std::size_t nbQueues = queues_.size();
        if (next_ >= nbQueues) {
            next_ = 0;
        }
        for (std::size_t i = 0; i < nbQueues; ++i) {
            const std::size_t index = (next_ + i) % nbQueues;
            if (queues_[index]->Pop(order)) {
                next_ = index + 1;
                return true;
            }
        }
        return false;
    }

private:
    std::mutex mutex_;
    std::vector<Queue*> queues_;
    std::size_t next_ = 0;  ///< Where the next turn starts; one past the end stands for the first.
};

}  // namespace Tavrin::Player
