#pragma once

#include <cstddef>
#include <deque>
#include <mutex>

namespace Tavrin::Player::Literal {

/// An unbounded first-in, first-out queue: a double-ended queue and a mutex.
///
/// *Threads:* thread-safe.
template <typename Entry>
class LockedDeque {
public:
    void Push(const Entry& entry) {
        Push(entry, [] {});
    }

    /// Calls `wake` with the lock still held.
    template <typename Wake>
    void Push(const Entry& entry, Wake wake) {
        const std::lock_guard<std::mutex> lock(mutex_);
        entries_.push_back(entry);
        wake();
    }

    bool Pop(Entry& out) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (entries_.empty()) {
            return false;
        }
        out = entries_.front();
        entries_.pop_front();
        return true;
    }

private:
    std::mutex mutex_;
    std::deque<Entry> entries_;
};

}  // namespace Tavrin::Player::Literal
