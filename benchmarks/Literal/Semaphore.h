#pragma once

#include <condition_variable>
#include <mutex>

namespace Tavrin::Player::Literal {

/// A counting semaphore made of a mutex and a condition variable. The count stops at the highest `int`.
///
/// *Threads:* thread-safe.
class Semaphore {
public:
    void Signal();

private:
    std::mutex mutex_;
    std::condition_variable free_;
    int value_ = 0;
};

}  // namespace Tavrin::Player::Literal
