#include "Playout/SimulatedStorage.h"

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

#include "Time/Ratio.h"

namespace Tavrin::Playout {

using Time::TimePoint;

namespace {

constexpr double kAllPercent = 100;

/// Shorter ones are part of the latency.
const TimePoint kLeastStallTime = TimePoint().FromMilliseconds(1);

/// No track has this number.
constexpr std::uint64_t kStallStream = UINT64_MAX;

/// The next stall comes at any moment alike, whenever the one before was.
TimePoint UntilNextStall(const TimePoint& every, SimulatedRandom& random) {
    const double nanoseconds = -std::log(random.Fraction()) * static_cast<double>(every.Nanoseconds());
    return TimePoint().FromNanoseconds(std::llround(nanoseconds));
}

}  // namespace

void StorageModel::Check() const {
    if (bytesPerSecond < 0) {
        throw std::invalid_argument("a storage of " + std::to_string(bytesPerSecond) +
                                    " bytes a second: it must be 0 (no bound) or more");
    }
    if (!(failedPercent >= 0 && failedPercent <= kAllPercent)) {
        throw std::invalid_argument("failures of " + std::to_string(failedPercent) +
                                    " %: it must be from 0 to 100");
    }
    const bool stalls = stallEvery != TimePoint() || stallFor != TimePoint();
    if (stalls && (stallEvery < kLeastStallTime || stallFor < kLeastStallTime)) {
        throw std::invalid_argument("stalls every " + stallEvery.ToString() + " s for " +
                                    stallFor.ToString() + " s: both must be at least a millisecond");
    }
}

SimulatedStorage::SimulatedStorage(EventQueue& events, const StorageModel& model, std::uint64_t seed)
    : events_(events), model_(model), stalls_(seed, kStallStream), usage_(events.Now()) {
    model_.Check();
    stallBegin_ = events_.Now() + UntilNextStall(model_.stallEvery, stalls_);
}

void SimulatedStorage::Read(std::int64_t nbBytes, SimulatedRandom& random, std::function<void(bool)> done) {
    const TimePoint latency = model_.latency.Draw(random);
    const bool fails = random.Fraction() * kAllPercent < model_.failedPercent;
    events_.After(latency, [this, nbBytes, fails, done = std::move(done)] {
        if (fails) {
            done(false);
            return;
        }
        waiting_.push_back({nbBytes, done});
        TransferNext();
    });
}

void SimulatedStorage::TransferNext() {
    if (isTransferring_ || waiting_.empty()) {
        return;
    }
    isTransferring_ = true;
    usage_.SetUsers(1, events_.Now());
    events_.At(EndOfTransfer(waiting_.front().nbBytes), [this] {
        const Transfer transfer = std::move(waiting_.front());
        waiting_.pop_front();
        isTransferring_ = false;
        usage_.SetUsers(0, events_.Now());
        TransferNext();
        transfer.done(true);
    });
}

/// Of a transfer that begins now; the stalls that begin before it has ended prolong it.
TimePoint SimulatedStorage::EndOfTransfer(std::int64_t nbBytes) {
    TimePoint end = events_.Now();
    if (model_.bytesPerSecond > 0) {
        end = end + TimePoint().FromSeconds(1) * Time::Ratio(nbBytes, model_.bytesPerSecond);
    }
    while (model_.stallEvery > TimePoint() && stallBegin_ <= end) {
        const TimePoint stallEnd = stallBegin_ + model_.stallFor;
        const TimePoint from = stallBegin_ > events_.Now() ? stallBegin_ : events_.Now();
        end = stallEnd > from ? end + (stallEnd - from) : end;
        stallBegin_ = stallEnd + UntilNextStall(model_.stallEvery, stalls_);
    }
    return end;
}

void SimulatedStorage::RestartMeasuring() {
    usage_.Restart(events_.Now());
}

double SimulatedStorage::BusyPercent() {
    return usage_.Percent(1, events_.Now());
}

}  // namespace Tavrin::Playout
