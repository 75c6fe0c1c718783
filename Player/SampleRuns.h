#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Player/PlayerExport.h"
#include "Player/SlidingArray.h"

namespace Tavrin::Player {

/// A set of sample numbers, kept as runs of consecutive numbers.
///
/// The samples that a stream holds lie side by side but for a few holes, so a set of thousands of numbers is
/// a handful of runs: whether a number is in it, and which is the next that is not, is a search among these,
/// however long the window is.
///
///     4 5 6 7 . . 10 11 . 13   is   [4..7] [10..11] [13..13]
///
/// *Threads:* externally synchronised, as a plain value.
/// *Memory:* 16 bytes a run. The memory of runs that go is kept for reuse, up to four times what is needed or 64
/// runs; so is that of a set that another is copied into.
/// *Errors:* when memory runs out, the set is unchanged.
class TAVRIN_PLAYER_EXPORT SampleRuns {
public:
    SampleRuns() = default;
    SampleRuns(const SampleRuns& other) = default;
    SampleRuns& operator=(const SampleRuns& other);
    ~SampleRuns() = default;

    /// The numbers from `first_` to `last_`, both included. Between two runs at least one number is missing.
    struct Run {
        std::int64_t first_ = 0;
        std::int64_t last_ = 0;

        friend bool operator==(const Run&, const Run&) = default;
    };

    /// Ascending.
    std::span<const Run> Runs() const { return {runs_.begin(), runs_.size()}; }

    bool Contains(std::int64_t number) const;

    /// The lowest number at or above `number` that is not in the set; the highest 64-bit number when there is
    /// none.
    std::int64_t FirstAbsentFrom(std::int64_t number) const;

    /// The highest number at or below `number` that is not in the set; the lowest 64-bit number when there is
    /// none.
    std::int64_t LastAbsentUpTo(std::int64_t number) const;

    /// Adds a number; one that is there already changes nothing. Costs a search, and where a run comes or goes
    /// in between others a move of those on the shorter side.
    void Insert(std::int64_t number);

    /// Takes the numbers from `first` to `last` out, as far as they are there. Costs as `Insert`.
    void Erase(std::int64_t first, std::int64_t last);

    /// Takes all out. Keeps the memory for as many as there were, until `GiveBack`.
    void Clear() { runs_.Clear(); }

    /// Gives back the memory of runs that have gone, as far as it is much. `Erase` does so by itself.
    void GiveBack() noexcept;

private:
    std::size_t FirstRunEndingFrom(std::int64_t number) const;

    SlidingArray<Run> runs_;
};

}  // namespace Tavrin::Player
