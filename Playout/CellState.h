#pragma once

#include <cstddef>
#include <vector>

#include "Player/Cache.h"
#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What is known of the pictures in a stretch of a track; of several pictures the one that says most counts,
/// and these are in that order.
enum class CellState {
    Absent,     ///< Nothing is held and nothing was asked for.
    AskedFor,   ///< Ordered from storage or decoder, or read and not decoded yet.
    Ready,      ///< A decoded picture is held.
    Protected,  ///< The same, and somebody uses it: it cannot be dropped.
    Missing     ///< It cannot be had.
};

/// A stretch of time and the number of equal cells that it is cut into.
struct CellRange {
    Time::TimePoint from;
    Time::TimePoint to;  ///< After `from`.
    std::size_t nbCells = 1;
};

/// What two caches of a stream hold.
struct CacheView {
    Player::Cache& compressed;
    Player::Cache& decoded;
    Player::SampleRate rate;     ///< Of the stream.
    Player::SampleRate fetched;  ///< At which samples are asked for at the moment: an entry stands for one.
    Time::TimePoint now;         ///< The play head.
};

/// The state of each cell. Costs by the entries held, whatever the range and the number of cells. Leaves the
/// entry nearest to the play head as the one in use, as looking up what is on show does.
/// Throws std::invalid_argument for a range without length or cells.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<CellState> CellStatesOf(const CacheView& caches,
                                                                        const CellRange& range);

}  // namespace Tavrin::Playout
