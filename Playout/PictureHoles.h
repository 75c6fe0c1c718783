#pragma once

#include <cstdint>
#include <vector>

#include "Playout/PictureGrid.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// For each picture of a grid, the first sample on which it is on display no more: where the next one begins,
/// or where a hole does.
///
/// A recording of constant rate that was interrupted has holes: cameras drop out, transmissions break off. A
/// recording of variable rate has none, however long its pictures stay: nothing has changed in them. What
/// tells them apart is the rest of the recording. It has holes when nine of ten pictures last one
/// sample, and a hole is wherever the next picture begins more than a second after the one before it is over
/// as far as the file says (`durations`, in samples, for each picture; 0 where it says nothing).
///
///     [0][1][2]                          [3][4]...
///              \---- hole, no picture ---/
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<std::int64_t> EndsOnDisplay(
    const PictureGrid& grid, const std::vector<std::int64_t>& durations);

}  // namespace Tavrin::Playout
