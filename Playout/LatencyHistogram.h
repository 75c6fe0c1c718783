#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// How long something took, over any number of times and in bounded memory: servers run for months.
///
/// Times are counted in buckets, eight to each doubling of the time:
///
///     | 0 | 1 | ... | 15 | 16-17 | 18-19 | ... | 30-31 | 32-35 | ...      in units of 1.024 microseconds
///
/// so a percentile is never less than what a list of all times would say, and more by an eighth and a unit at
/// most. All times from 68 minutes on are counted in the last bucket; the longest time is kept exactly.
///
/// *Threads:* externally synchronised. *Blocking:* never, and never allocates. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT LatencyHistogram final {
public:
    /// A time below zero counts as zero.
    void Add(std::chrono::nanoseconds latency);

    /// Counts what \p other counted as well.
    void Add(const LatencyHistogram& other);

    [[nodiscard]] std::uint64_t Count() const { return count_; }
    [[nodiscard]] std::chrono::nanoseconds Sum() const { return sum_; }
    [[nodiscard]] std::chrono::nanoseconds Longest() const { return longest_; }

    /// The end of the bucket that holds the percentile of nearest rank, or the longest time where that is
    /// less. \p percent is from above 0 to 100, where the longest time is. Zero when nothing was counted.
    [[nodiscard]] std::chrono::nanoseconds Percentile(double percent) const;

private:
    /// Up to 2 to the power of 32 units.
    static constexpr std::size_t kNbBuckets = 240;

    std::array<std::uint64_t, kNbBuckets> buckets_{};
    std::uint64_t count_ = 0;
    std::chrono::nanoseconds sum_{0};
    std::chrono::nanoseconds longest_{0};
};

}  // namespace Tavrin::Playout
