#pragma once

#include <cstddef>
#include <mutex>

#include "Player/BriefLock.h"
#include "Player/SegmentedFifo.h"
#include "Tools/LateWakeUps.h"

namespace Tavrin::Player {

/// The unbounded first-in, first-out queue that `CacheUpdateQueue`, `DecodeOrderQueue` and
/// `PreloadOrderQueue` are made of.
///
/// *Threads:* thread-safe, for any number of producers and consumers.
/// *Blocking:* never beyond the short internal lock; `Pop` does not wait for entries.
/// *Memory:* what a thread did before `Push` is visible to the thread whose `Pop` takes that entry. Storage is
/// reused: a queue that has been as full as it usually is allocates no more, and one that stays much emptier
/// than it once was gives memory back (see `SegmentedFifo`).
/// *Errors:* if copying an entry or getting memory for it throws, the queue is unchanged.
template <typename Entry>
class LockedQueue {
public:
    LockedQueue() = default;
    LockedQueue(const LockedQueue&) = delete;
    LockedQueue& operator=(const LockedQueue&) = delete;
    ~LockedQueue() = default;

    /// Appends a copy of `entry`.
    void Push(const Entry& entry) {
        const BriefLock lock(mutex_);
        queue_.Push(entry);
    }

    /// Appends a copy of `entry` and calls `wake`, which signals a semaphore, while the lock is still held, so
    /// that whoever is woken finds the entry unless somebody else took it first. The thread itself is woken
    /// once the lock is released, as it needs it at once. `wake` takes no lock of a queue.
    template <typename Wake>
    void Push(const Entry& entry, Wake wake) {
        const Tools::LateWakeUps afterTheLock;
        const BriefLock lock(mutex_);
        queue_.Push(entry);
        wake();
    }

    /// Assigns the oldest entry to `out` and removes it; false, with `out` untouched, when there is none.
    bool Pop(Entry& out) {
        const BriefLock lock(mutex_);
        return queue_.Pop(out);
    }

    std::size_t GetSize() {
        const BriefLock lock(mutex_);
        return queue_.GetSize();
    }

    /// Drops all entries and gives all memory back.
    void Clear() {
        const BriefLock lock(mutex_);
        queue_.Clear();
    }

private:
    std::mutex mutex_;
    SegmentedFifo<Entry> queue_;
};

}  // namespace Tavrin::Player
