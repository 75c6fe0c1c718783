#pragma once

#include <cstdint>
#include <vector>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// The numbered samples onto which a recording's pictures are laid.
struct PictureGrid {
    Player::SampleRate rate;
    std::vector<std::int64_t> starts;  ///< For each picture, the first sample on which it is on display.
    std::int64_t nbSamples = 0;
};

/// The times of a recording's pictures, as the container gives them.
struct PictureTimes {
    std::vector<std::int64_t> times;  ///< In presentation order, the first one 0, in units of timeBase.
    std::int64_t lastDuration = 0;    ///< Of the last picture, in the same units; 0 when unknown.
    Time::Ratio timeBase;             ///< Seconds per unit, greater than zero.
    /// Rates that the container states or that were estimated from it, likeliest first; zeros are ignored.
    std::vector<Time::Ratio> claimedRates;
};

/// Finds the rate whose samples are the pictures.
///
/// 1. A constant rate: the first one among the claimed rates, the usual rates and the mean rate for which
///    picture i lies at i/rate, within what one unit of the time base can have rounded away.
/// 2. Otherwise a rate with holes: the first one among the claimed and the usual rates, up to
///    \p maxVariableRate, on whose samples all the pictures lie, as exactly as that.
/// 3. Otherwise the first claimed rate, times the smallest whole number, for which rounding each picture's
///    time to the nearest sample gives every picture a sample of its own, up to the same limit.
/// 4. Otherwise the finest of those; some pictures share a sample.
///
/// A claimed rate within 1/10000 of a usual one (24000/1001, 25, 30000/1001 ...) is taken for that one.
/// There must be one picture at least.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT PictureGrid LayOutGrid(const PictureTimes& pictures,
                                                           std::int64_t maxVariableRate);

}  // namespace Tavrin::Playout
