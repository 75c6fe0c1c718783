#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Playout/OutputFile.h"
#include "Playout/Session.h"
#include "Playout/Trace.h"
#include "apps/playout/MetricsFile.h"

namespace Tavrin::Playout::Program {

/// The files that tell how playing went; empty: none.
struct MeasureOptions {
    std::string counters;
    std::string metrics;
    std::string trace;
};

/// Writes what playing is measured by: the counters when it ends, the metrics every second too, the trace as
/// it goes.
///
/// *Threads:* bound to one thread, the session's. *Blocking:* Note never; all else on the disk.
/// *Errors:* the constructor throws UsageError when a file is one of the recordings or named twice; all but
/// Note throw std::runtime_error in one line that names the file and the reason.
class Measures final {
public:
    /// Makes the files, so that a place that cannot be written to is known before anything is played.
    Measures(const MeasureOptions& options, const std::vector<std::string>& recordings);

    /// For the session's options; null when none is asked for.
    [[nodiscard]] const std::shared_ptr<Trace>& GetTrace() const { return trace_; }

    /// After each tick.
    void Note(const Session& session);

    /// Writes what is left, all that can be written; then throws for the first that could not.
    void Finish(const Session& session);

private:
    std::string traceFile_;
    std::shared_ptr<Trace> trace_;
    std::unique_ptr<OutputFile> counters_;
    std::unique_ptr<MetricsFile> metrics_;
    std::chrono::steady_clock::time_point nextMetrics_;
};

}  // namespace Tavrin::Playout::Program
