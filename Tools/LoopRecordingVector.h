#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "Tools/ToolsExport.h"

namespace Tavrin::Tools {

/// A ring of the most recent measurements, each with the moment at which it was recorded.
///
/// The workers keep their last preload and decode durations in one, for their statistics.
///
/// *Threads:* thread-safe; `Push` on a worker's thread and `AverageSince` on another may overlap.
/// *Blocking:* never beyond the short internal lock.
/// *Memory:* grows only in `Resize`.
class TAVRIN_TOOLS_EXPORT LoopRecordingVector {
public:
    /// An empty ring of size zero: it holds nothing until `Resize`.
    LoopRecordingVector() = default;
    LoopRecordingVector(const LoopRecordingVector&) = delete;
    LoopRecordingVector& operator=(const LoopRecordingVector&) = delete;

    /// Keeps the `size` most recent values from now on; of those held, the newest that fit stay.
    void Resize(std::size_t size);

    /// Records one value, now, and drops the oldest when the ring is full.
    void Push(std::int64_t value);

    /// As above, for a caller that has just read the clock: `now` is that moment.
    void Push(std::int64_t value, std::chrono::steady_clock::time_point now);

    /// The mean of the values still held that were pushed within the last `milliseconds`; 0.0 when there
    /// are none.
    double AverageSince(int milliseconds) const;

private:
    struct Record {
        std::int64_t value_ = 0;
        std::chrono::steady_clock::time_point when_;
    };

    mutable std::mutex mutex_;
    std::vector<Record> records_;  ///< A ring once full: `oldest_` is overwritten next.
    std::size_t capacity_ = 0;
    std::size_t oldest_ = 0;
};

}  // namespace Tavrin::Tools
