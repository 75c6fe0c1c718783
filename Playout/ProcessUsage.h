#pragma once

#include <chrono>
#include <cstdint>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// What the whole process uses from the construction on.
///
/// *Threads:* externally synchronised; one at a time, as the peak of memory is begun anew by each.
/// *Blocking:* never. *Errors:* none; a figure that the system does not tell is 0.
class TAVRIN_PLAYOUT_EXPORT ProcessUsage final {
public:
    ProcessUsage();

    [[nodiscard]] double WallSeconds() const;
    [[nodiscard]] double CpuSeconds() const;  ///< Of all threads.

    /// Bytes that reading asked the system for, whether or not a disk had to move for them.
    [[nodiscard]] std::uint64_t BytesRead() const;

    [[nodiscard]] std::uint64_t ResidentAtBegin() const { return residentAtBegin_; }
    /// The most memory that was resident since the construction, or, where the system cannot begin the peak
    /// anew, since the process began.
    [[nodiscard]] std::uint64_t PeakResident() const;

private:
    std::chrono::steady_clock::time_point begin_;
    double cpuAtBegin_;
    std::uint64_t readAtBegin_;
    std::uint64_t residentAtBegin_;
};

}  // namespace Tavrin::Playout
