#pragma once

#include <cstddef>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// The workers that decode when nobody says how many: as many as there are cores, and for several tracks two for
/// each, up to four a core.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t NbDecodeWorkersFor(std::size_t nbTracks, std::size_t nbCores);

/// The crews into which decode workers are divided: worker w and track t belong to crews w and t modulo their number,
/// and each worker serves the tracks of its crew. A worker that takes an order of a group which another one is
/// decoding waits for it, and from then on follows it from track to track: were all workers one crew, they would
/// end up behind one another on one core. Crews of two, but enough of them for every core.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t NbDecodeCrews(std::size_t nbWorkers, std::size_t nbTracks,
                                                              std::size_t nbCores);

/// The cores of this machine; one where that is not known.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t NbCoresHere();

}  // namespace Tavrin::Playout
