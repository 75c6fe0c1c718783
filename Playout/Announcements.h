#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Tavrin::Playout {

/// Counts what workers announce, so that another thread can wait for it.
///
/// *Threads:* thread-safe.
class Announcements final {
public:
    void Add() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++nb_;
        }
        changed_.notify_one();
    }

    /// Waits until more than `nbSeen` were announced, at most `timeout`; whether they were.
    bool WaitForMoreThan(std::uint64_t nbSeen, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return nb_ > nbSeen; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t nb_ = 0;
};

}  // namespace Tavrin::Playout
