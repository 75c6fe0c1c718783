#include "Playout/CrewPlan.h"

#include <algorithm>
#include <thread>

namespace Tavrin::Playout {

std::size_t NbDecodeWorkersFor(std::size_t nbTracks, std::size_t nbCores) {
    return std::clamp(2 * nbTracks, nbCores, 4 * nbCores);
}

std::size_t NbDecodeCrews(std::size_t nbWorkers, std::size_t nbTracks, std::size_t nbCores) {
    const std::size_t atMost = std::max<std::size_t>(std::min(nbWorkers, nbTracks), 1);
    return std::clamp(nbWorkers / 2, std::min(nbCores, atMost), atMost);
}

std::size_t NbCoresHere() {
    return std::max(std::thread::hardware_concurrency(), 1U);
}

}  // namespace Tavrin::Playout
