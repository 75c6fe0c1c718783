#include "Playout/PictureHoles.h"

#include <algorithm>
#include <cstddef>

#include "Time/TimePoint.h"

namespace Tavrin::Playout {

namespace {

/// A pause shorter than this is some lost pictures, over which the one before them stays.
constexpr std::int64_t kShortestHoleMs = 1000;

/// One in so many pictures at most may last longer than a sample.
constexpr std::size_t kMostLong = 10;

bool IsOtherwiseConstant(const PictureGrid& grid) {
    std::size_t nbLong = 0;
    for (std::size_t i = 1; i < grid.starts.size(); ++i) {
        nbLong += grid.starts[i] - grid.starts[i - 1] > 1 ? 1 : 0;
    }
    return nbLong * kMostLong <= grid.starts.size();
}

}  // namespace

std::vector<std::int64_t> EndsOnDisplay(const PictureGrid& grid, const std::vector<std::int64_t>& durations) {
    std::vector<std::int64_t> ends(grid.starts.begin() + 1, grid.starts.end());
    ends.push_back(grid.nbSamples);
    if (!IsOtherwiseConstant(grid)) {
        return ends;
    }
    const std::int64_t shortest = Time::TimePoint().FromMilliseconds(kShortestHoleMs).SampleNumber(grid.rate);
    for (std::size_t i = 0; i + 1 < ends.size(); ++i) {
        const std::int64_t end = grid.starts[i] + std::max<std::int64_t>(durations[i], 1);
        ends[i] = ends[i] - end > shortest ? end : ends[i];
    }
    return ends;
}

}  // namespace Tavrin::Playout
