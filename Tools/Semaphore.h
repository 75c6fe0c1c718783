#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "Tools/ToolsExport.h"

namespace Tavrin::Tools {

/// A counting semaphore whose waiters are served strictly in the order in which they came.
///
/// Idle workers sleep on it until somebody pushes an order. The strict order matters because the workers
/// of one class share one semaphore: a worker that was woken for nothing and waits again stands behind
/// those that waited before it, so it cannot take the unit that was meant for one of them.
///
/// *Threads:* thread-safe.
/// *Blocking:* only `Wait`, until its units are there. `Signal` never blocks beyond the short internal lock.
/// *Memory:* what a thread did before `Signal` is visible to the thread whose `Wait` took one of its units.
/// *Ownership:* must outlive every call on it; destroying it with a waiter inside is undefined.
/// *Errors:* a negative count is refused with `std::invalid_argument` and changes nothing.
class TAVRIN_TOOLS_EXPORT Semaphore {
public:
    Semaphore() = default;
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Sets the number of free units. Waiters that the new count can serve are woken.
    void Setup(int count);

    /// Blocks until a unit is free, then takes it.
    void Wait();

    /// Blocks until `count` units are free at once, then takes them together: two threads that wait for
    /// several units each never hold one another up half served. Returns at once for zero.
    void Wait(int count);

    /// Adds one unit and wakes at most one waiter. The count stops at the highest `int`.
    void Signal();

    /// Adds `count` units and wakes the waiters that they serve.
    void Signal(int count);

    /// The free units at this moment: never negative, zero while somebody waits for a single unit.
    int GetValue() const;

    /// How often `Recall` was called. Taken before looking for work, and handed to `WaitUnlessRecalled`.
    std::uint64_t NbRecalls() const { return nbRecalls_.load(); }

    /// How often units were taken, several at once counting once; wraps at 2^32, so it is good for telling
    /// whether somebody took one in between.
    std::uint32_t NbTakes() const { return static_cast<std::uint32_t>(units_.load() >> kTakesShift); }

    /// Wakes every waiter of `WaitUnlessRecalled` without giving it a unit, and lets those that are still
    /// on their way to it pass once: each of them looks for work again. For a worker that has taken a unit
    /// which may have announced work for one of its peers.
    /// Returns how often it has been called, this call included.
    std::uint64_t Recall();

    /// As `Wait`, but returns false, taking nothing, as soon as `Recall` has been called more often than
    /// `nbRecallsSeen` times; true when a unit was taken.
    bool WaitUnlessRecalled(std::uint64_t nbRecallsSeen);

private:
    /// One blocked thread, on that thread's own stack. Each sleeps on a word of its own, so that a unit wakes
    /// exactly the thread that it was given to.
    struct Waiter {
        enum State : int { Waiting, Granted, Recalled };

        int needed_ = 0;
        bool recallable_ = false;
        std::uint64_t nbRecallsSeen_ = 0;
        Waiter* next_ = nullptr;
        std::atomic<int> state_ = Waiting;
    };

    /// The count to itself, for as long as it exists.
    class Exclusive;

    bool TryTake(int count);
    bool TryAdd(int count);
    bool Block(Waiter& self);
    static void Serve(Waiter& waiter, Waiter::State state);
    void GrantInOrder(Exclusive& units);
    void Append(Waiter& waiter);

    /// What producers and workers write at different rates stands on different cache lines: a push must not
    /// take the line away that every look of a worker reads.
    static constexpr std::size_t kCacheLine = 64;
    static constexpr unsigned kTakesShift = 32;
    static constexpr std::uint64_t kOneTake = std::uint64_t{1} << kTakesShift;

    static int NbUnits(std::uint64_t units) { return static_cast<int>(units % kOneTake / 2); }

    alignas(kCacheLine) std::atomic<std::uint64_t> nbRecalls_ = 0;

    /// In the lower half twice the number of free units, plus one while somebody waits or holds `mutex_`; in
    /// the upper half how often units were taken, so that a unit is never taken without being counted. While
    /// it is even, units are added and taken by changing this word alone: with nobody in the line there is
    /// nobody to wake and nobody to overtake, so the result is that of the line. While it is odd, only the
    /// holder of `mutex_` changes it.
    alignas(kCacheLine) std::atomic<std::uint64_t> units_ = 0;

    std::mutex mutex_;  ///< Guards the line.
    Waiter* first_ = nullptr;
    Waiter* last_ = nullptr;
};

}  // namespace Tavrin::Tools
