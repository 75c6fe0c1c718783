#pragma once

#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// The loop of a worker that sleeps on the semaphore its class shares.
///
/// Runs orders with `runNext` (false: there was none) until `mustStop`. The semaphore counts pushed orders
/// while a worker runs every order it finds, so the count runs ahead of the orders: a surplus unit costs one
/// look. An order pushed meanwhile is never lost, as its unit is still there.
///
/// On the way out, a unit that was taken and not used is handed on; it may have announced an order that an
/// idle peer serves. The peer that gets it need not be that one, so all idle peers are asked to look once
/// more.
template <typename MustStop, typename RunNext>
void RunOrders(Tools::Semaphore& semaphore, MustStop mustStop, RunNext runNext) {
    bool holdsUnusedUnit = false;
    while (!mustStop()) {
        // Taken before looking: a peer that leaves after the look must not be missed.
        const auto nbRecalls = semaphore.NbRecalls();
        if (runNext()) {
            holdsUnusedUnit = false;
        } else {
            holdsUnusedUnit = semaphore.WaitUnlessRecalled(nbRecalls);
        }
    }
    if (holdsUnusedUnit) {
        semaphore.Signal();
    }
    semaphore.Recall();
}

}  // namespace Tavrin::Player
