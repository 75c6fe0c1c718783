#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

#include "Playout/EventQueue.h"
#include "Playout/PlayoutExport.h"
#include "Playout/SimulatedTime.h"
#include "Playout/UsageMeter.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// A storage as its data sheet, or a measurement, describes it.
struct TAVRIN_PLAYOUT_EXPORT StorageModel {
    SimulatedTime latency;            ///< Of each read, before its first byte.
    std::int64_t bytesPerSecond = 0;  ///< For all reads together; 0: no bound.
    double failedPercent = 0;         ///< Of the reads, which then fail after their latency.
    Time::TimePoint stallEvery;       ///< On average from one stall to the next; 0: it never stalls.
    Time::TimePoint stallFor;         ///< How long nothing is transferred.

    /// Throws std::invalid_argument, naming the value and the rule.
    void Check() const;
};

/// A storage that many read from: each read waits for its latency, all of them at the same time, and its bytes
/// are then transferred one read after the other, in the order in which their latencies ended.
///
/// *Threads:* externally synchronised. *Blocking:* never: what is read arrives as an event. *Ownership:*
/// borrows the events, which must outlive it. *Errors:* the constructor as StorageModel::Check.
class TAVRIN_PLAYOUT_EXPORT SimulatedStorage final {
public:
    SimulatedStorage(EventQueue& events, const StorageModel& model, std::uint64_t seed);

    /// Has `done` called when the bytes are there (true), or the read has failed. `random` is drawn from at
    /// once.
    void Read(std::int64_t nbBytes, SimulatedRandom& random, std::function<void(bool)> done);

    /// Only what is transferred from now on counts.
    void RestartMeasuring();

    /// Percent of the time in which something was being transferred.
    [[nodiscard]] double BusyPercent();

private:
    struct Transfer {
        std::int64_t nbBytes = 0;
        std::function<void(bool)> done;
    };

    void TransferNext();
    [[nodiscard]] Time::TimePoint EndOfTransfer(std::int64_t nbBytes);

    EventQueue& events_;
    StorageModel model_;
    SimulatedRandom stalls_;
    Time::TimePoint stallBegin_;  ///< Of the next one, or the one in progress.
    std::deque<Transfer> waiting_;
    bool isTransferring_ = false;
    UsageMeter usage_;
};

}  // namespace Tavrin::Playout
