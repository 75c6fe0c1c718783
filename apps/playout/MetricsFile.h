#pragma once

#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Playout/Counters.h"

namespace Tavrin::Playout::Program {

/// A file with the counters as OpenMetrics text, for a collector that reads it whenever it likes: each new text
/// replaces the one before as a whole, so that nobody ever reads half of one.
///
/// The text goes to FILE.part beside it, which then takes its name. What exists and is no regular file, such as
/// a pipe, is written to directly.
///
/// *Threads:* bound to one thread; it has one of its own that writes. *Blocking:* Offer never; the constructor
/// and Finish on the disk. *Errors:* the constructor and Finish throw std::runtime_error in one line that names
/// the file and the reason. What fails in between is thrown by Finish.
class MetricsFile final {
public:
    /// Writes the first text, so that a place that cannot be written to is known at once.
    MetricsFile(std::string file, const Counters& counters);
    ~MetricsFile();
    MetricsFile(const MetricsFile&) = delete;
    MetricsFile& operator=(const MetricsFile&) = delete;

    /// To be written as soon as may be. When the disk is behind, only the latest counters are written.
    void Offer(Counters counters);

    /// Writes the last text.
    void Finish(const Counters& counters);

private:
    void Write(const Counters& counters) const;
    void WriteUntilStopped();
    void Stop();

    std::string file_;
    std::mutex mutex_;  ///< Guards what follows.
    std::condition_variable changed_;
    std::optional<Counters> offered_;
    std::exception_ptr failure_;
    bool isStopped_ = false;
    std::thread writer_;
};

}  // namespace Tavrin::Playout::Program
