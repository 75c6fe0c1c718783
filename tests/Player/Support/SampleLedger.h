#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// One thing that was done to a sample: it was asked for its protection, or it was deleted.
struct SampleEvent {
    enum What { AskedForProtection, Deleted };

    What what_ = Deleted;
    const ISample* sample_ = nullptr;

    friend bool operator==(const SampleEvent&, const SampleEvent&) = default;
};

/// A sample that survives its own deletion and writes down, in the order in which it happens, what a cache does to
/// it. Lighter than `CountedSample` (no lock, no names of calls), for caches of thousands of entries.
///
/// *Threads:* bound to one thread.
class LedgerSample final : public ISample {
public:
    explicit LedgerSample(std::vector<SampleEvent>& events) : events_(events) {}

    /// Called by a delete expression in place of destruction and deallocation.
    static void operator delete(LedgerSample* sample, std::destroying_delete_t) {
        ++sample->nbDeletions_;
        sample->events_.push_back({SampleEvent::Deleted, sample});
    }

    Time::TimePoint GetTimePoint() const override { return {}; }
    Time::TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }

    std::int64_t Protect(std::int64_t protection) override { return counter_ += protection; }
    std::int64_t Unprotect(std::int64_t protection) override {
        counter_ = counter_ < protection ? 0 : counter_ - protection;
        return counter_;
    }
    std::int64_t GetProtectionCounter() override {
        nbUsesAfterDeletion_ += Deleted() ? 1 : 0;
        events_.push_back({SampleEvent::AskedForProtection, this});
        return counter_;
    }

    /// The counter, read by the test: leaves no trace.
    std::int64_t Counter() const { return counter_; }

    bool Deleted() const { return nbDeletions_ > 0; }
    bool Abused() const { return nbDeletions_ > 1 || nbUsesAfterDeletion_ > 0; }

private:
    std::vector<SampleEvent>& events_;
    std::int64_t counter_ = 0;
    std::size_t nbDeletions_ = 0;
    std::size_t nbUsesAfterDeletion_ = 0;
};

/// Makes ledger samples, owns their memory and keeps the record of what happens to them.
///
/// *Threads:* bound to one thread.
/// *Ownership:* outlives everything that may delete or use one of its samples.
class SampleLedger {
public:
    /// A sample whose ownership, as far as deleting goes, is with the caller.
    LedgerSample* Make() { return &samples_.emplace_back(events_); }

    /// What has happened since the last call, oldest first.
    std::vector<SampleEvent> Take() { return std::exchange(events_, {}); }

    std::size_t NbLive() const {
        std::size_t nb = 0;
        for (const LedgerSample& sample : samples_) {
            nb += sample.Deleted() ? 0 : 1;
        }
        return nb;
    }

    /// The samples deleted more than once or used after their deletion; zero in a healthy program.
    std::size_t NbAbused() const {
        std::size_t nb = 0;
        for (const LedgerSample& sample : samples_) {
            nb += sample.Abused() ? 1 : 0;
        }
        return nb;
    }

private:
    std::vector<SampleEvent> events_;
    std::deque<LedgerSample> samples_;
};

}  // namespace Tavrin::Player::Testing
