#pragma once

#include <mutex>

namespace Tavrin::Player {

/// Holds a mutex for a scope, like `std::lock_guard`, and tries a while before it goes to sleep: for mutexes
/// that are nearly always held for a few instructions only, where the wait is over long before a thread would
/// be asleep. With a producer and a worker at work on one queue that saves the sleep and the system call that
/// ends it at most of their encounters.
///
/// *Blocking:* until the mutex is free.
class BriefLock {
public:
    explicit BriefLock(std::mutex& mutex) : mutex_(mutex) {
        for (int i = 0; i < kNbTries; ++i) {
            if (mutex_.try_lock()) {
                return;
            }
        }
        mutex_.lock();
    }
    BriefLock(const BriefLock&) = delete;
    BriefLock& operator=(const BriefLock&) = delete;
    ~BriefLock() { mutex_.unlock(); }

private:
    /// Some hundred nanoseconds. Falling asleep and being woken takes more than a microsecond, so where trying
    /// is in vain, with the holder off its processor, it adds little to the wait.
    static constexpr int kNbTries = 100;

    std::mutex& mutex_;
};

}  // namespace Tavrin::Player
