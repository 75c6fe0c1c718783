#pragma once

#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// The loop of a worker that sleeps on the semaphore its class shares: runs orders with `runNext` (false:
/// there was none) until `mustStop`.
///
/// A unit says that an order was pushed somewhere, not where. Two rules see to it that no order waits while a
/// worker that serves its queue sleeps:
///
/// 1. a worker that took a unit and finds nothing has all idle workers look once, since the order may be in a
///    queue that only another one serves;
/// 2. so does a worker that leaves, after giving back a unit that it has not used.
///
/// Workers run every order they find, so after a burst there are more units than orders. The first worker to
/// look in vain takes them all and looks again, which makes the surplus cost one look and one call to the
/// others instead of one for each unit.
template <typename MustStop, typename RunNext>
void RunOrders(Tools::Semaphore& semaphore, MustStop mustStop, RunNext runNext) {
    bool holdsUnusedUnit = false;
    while (!mustStop()) {
        // Taken before looking: a call to look again that comes after the look must not be missed.
        const auto nbRecalls = semaphore.NbRecalls();
        if (runNext()) {
            holdsUnusedUnit = false;
        } else if (!holdsUnusedUnit) {
            holdsUnusedUnit = semaphore.WaitUnlessRecalled(nbRecalls);
        } else if (semaphore.TakeAll() == 0) {
            holdsUnusedUnit = false;
            semaphore.Recall();
        }
    }
    if (holdsUnusedUnit) {
        semaphore.Signal();
    }
    semaphore.Recall();
}

}  // namespace Tavrin::Player
