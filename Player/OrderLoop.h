#pragma once

#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// The loop of a worker that sleeps on the semaphore its class shares: runs orders with `runNext` (false:
/// there was none) until `mustStop`.
///
/// A unit says that an order was pushed somewhere, not where. Two rules see to it that no order waits while a
/// worker that serves its queue sleeps:
///
/// 1. a worker that took a unit and looks in vain has all idle workers look once, since the order may be in a
///    queue that only another one serves; and it looks once more itself when anybody took a unit or called for
///    a look meanwhile: that worker may have spent the unit of an order that came after this one's look on the
///    order that this one's unit announced;
/// 2. a worker that leaves has the others look, too, after giving back a unit that it has not used.
///
/// Workers run every order they find, so after a burst there are more units than orders; each unit too many
/// costs one look.
template <typename MustStop, typename RunNext>
void RunOrders(Tools::Semaphore& semaphore, MustStop mustStop, RunNext runNext) {
    bool holdsUnusedUnit = false;
    while (!mustStop()) {
        // Taken before looking: a call to look again that comes after the look must not be missed.
        auto nbRecallsSeen = semaphore.NbRecalls();
        const auto nbTakesSeen = semaphore.NbTakes();
        if (runNext()) {
            holdsUnusedUnit = false;
            continue;
        }
        if (holdsUnusedUnit) {
            const auto nbRecalls = semaphore.Recall();
            const bool isNewsForOthersOnly =
                nbRecalls == nbRecallsSeen + 1 && semaphore.NbTakes() == nbTakesSeen;
            nbRecallsSeen += isNewsForOthersOnly ? 1 : 0;
        }
        holdsUnusedUnit = semaphore.WaitUnlessRecalled(nbRecallsSeen);
    }
    if (holdsUnusedUnit) {
        semaphore.Signal();
    }
    semaphore.Recall();
}

}  // namespace Tavrin::Player
