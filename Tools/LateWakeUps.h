#pragma once

#include <array>
#include <atomic>
#include <cstddef>

#include "Tools/ToolsExport.h"

namespace Tavrin::Tools {

/// While one exists, the threads that its own thread serves at a `Semaphore` are woken only when it goes: to be
/// made before a lock that a woken thread would need at once. Otherwise the system may run the woken thread
/// first, on the same processor, only for it to find the lock taken and go back to sleep.
///
/// Units are counted and given to their waiters at once all the same; only waking those is put off.
///
///     LateWakeUps wakeUps;
///     std::lock_guard lock(mutex);      // released before the wake-ups
///     queue.push(order);
///     semaphore.Signal();
///
/// One within another leaves the waking to the outer one.
///
/// *Threads:* bound to one thread. *Blocking:* never.
class TAVRIN_TOOLS_EXPORT LateWakeUps {
public:
    LateWakeUps();
    ~LateWakeUps();
    LateWakeUps(const LateWakeUps&) = delete;
    LateWakeUps& operator=(const LateWakeUps&) = delete;

    /// Wakes whoever waits on `state`, late if there is a reason. By then the waiter may have seen its state
    /// and gone: only the address is used, which wakes nobody then, or somebody else for nothing.
    static void Wake(std::atomic<int>* state);

private:
    /// More than a push ever serves; beyond it waking is not put off.
    static constexpr std::size_t kMostLate = 8;

    std::array<std::atomic<int>*, kMostLate> late_;
    std::size_t nbLate_ = 0;
    bool isOutermost_;
};

}  // namespace Tavrin::Tools
