#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Measures how fast pictures are decoded while decoding goes on, by however many workers: the bytes of the
/// pictures put in, divided by the time in which at least one worker was decoding. What is older than a second
/// or so of decoding counts less and less, so that the figure follows what else the machine has to do.
///
/// *Threads:* thread-safe. *Blocking:* never beyond the short internal lock.
class TAVRIN_PLAYOUT_EXPORT DecodeMeter final {
public:
    using Clock = std::chrono::steady_clock;

    /// A worker begins to decode.
    void Begin(Clock::time_point now);
    /// It has ended, having decoded pictures of so many bytes.
    void End(Clock::time_point now, std::size_t nbBytes);

    /// Bytes of decoded pictures per second; zero before enough was decoded to say.
    [[nodiscard]] double BytesPerSecond() const;

private:
    mutable std::mutex mutex_;
    std::size_t nbDecoding_ = 0;
    Clock::time_point since_;  ///< Up to which the time below is counted.
    std::chrono::duration<double> busy_{0};
    double bytes_ = 0;
    double bytesPerSecond_ = 0;  ///< As of the latest end: what is under way counts when it is done.
};

}  // namespace Tavrin::Playout
