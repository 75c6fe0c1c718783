#include "Literal/Semaphore.h"

#include <limits>

namespace Tavrin::Player::Literal {

void Semaphore::Signal() {
    const std::lock_guard<std::mutex> lock(mutex_);
    value_ += value_ < std::numeric_limits<int>::max() ? 1 : 0;
    free_.notify_one();
}

}  // namespace Tavrin::Player::Literal
