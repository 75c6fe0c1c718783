#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// A sample that survives its own deletion in order to count it.
///
/// Deleting one through `ISample*` runs no destructor and frees no memory: it is only noted. So a sample that
/// is deleted twice, or used after its deletion, shows up as a number instead of as undefined behaviour. The
/// memory belongs to the `SampleCensus` that made the sample.
///
/// *Threads:* thread-safe.
class CountedSample final : public ISample {
public:
    CountedSample(const Time::TimePoint& tp, const Time::TimePoint& duration)
        : tp_(tp), duration_(duration) {}

    /// Called by a delete expression in place of destruction and deallocation.
    static void operator delete(CountedSample* sample, std::destroying_delete_t) { ++sample->nbDeletions_; }

    Time::TimePoint GetTimePoint() const override {
        Note("GetTimePoint");
        return tp_;
    }
    Time::TimePoint GetDuration() const override {
        Note("GetDuration");
        return duration_;
    }
    std::set<std::string> GetPropertyKeys() const override {
        Note("GetPropertyKeys");
        return {};
    }
    std::set<std::string> GetDataKeys() const override {
        Note("GetDataKeys");
        return {};
    }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t& size) const override {
        Note("GetProperty");
        size = 0;
        return nullptr;
    }
    const std::uint8_t* GetData(const std::string&, std::uint64_t& size) const override {
        Note("GetData");
        size = 0;
        return nullptr;
    }
    std::int64_t Protect(std::int64_t protection) override {
        Note("Protect");
        return ISample::Protect(protection);
    }
    std::int64_t Unprotect(std::int64_t protection) override {
        Note("Unprotect");
        return ISample::Unprotect(protection);
    }
    std::int64_t GetProtectionCounter() override {
        Note("GetProtectionCounter");
        return ISample::GetProtectionCounter();
    }

    /// The counter, read by the test: leaves no trace in the calls.
    std::int64_t Counter() { return ISample::GetProtectionCounter(); }

    std::size_t NbDeletions() const { return nbDeletions_; }
    bool Deleted() const { return nbDeletions_ > 0; }
    std::size_t NbUsesAfterDeletion() const { return nbUsesAfterDeletion_; }

    /// The operations called since the construction, oldest first.
    std::vector<std::string> Calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

    std::size_t NbCalls(const std::string& operation) const {
        const std::lock_guard lock(mutex_);
        std::size_t nb = 0;
        for (const std::string& call : calls_) {
            nb += call == operation ? 1 : 0;
        }
        return nb;
    }

private:
    void Note(const char* operation) const {
        nbUsesAfterDeletion_ += Deleted() ? 1 : 0;
        const std::lock_guard lock(mutex_);
        calls_.emplace_back(operation);
    }

    Time::TimePoint tp_;
    Time::TimePoint duration_;
    std::atomic<std::size_t> nbDeletions_ = 0;
    mutable std::atomic<std::size_t> nbUsesAfterDeletion_ = 0;
    mutable std::mutex mutex_;
    mutable std::vector<std::string> calls_;
};

/// Makes counted samples, owns their memory and knows which of them are alive.
///
/// *Threads:* thread-safe.
/// *Ownership:* outlives everything that may delete or use one of its samples.
class SampleCensus {
public:
    /// A sample whose ownership, as far as deleting goes, is with the caller.
    CountedSample* Make(const Time::TimePoint& tp = {}, const Time::TimePoint& duration = {}) {
        const std::lock_guard lock(mutex_);
        return &samples_.emplace_back(tp, duration);
    }

    std::size_t NbMade() const {
        const std::lock_guard lock(mutex_);
        return samples_.size();
    }

    /// The samples not yet deleted.
    std::size_t NbLive() const {
        return Count([](const CountedSample& sample) { return sample.NbDeletions() == 0; });
    }

    /// The samples deleted more than once or used after their deletion; zero in a healthy program.
    std::size_t NbAbused() const {
        return Count([](const CountedSample& sample) {
            return sample.NbDeletions() > 1 || sample.NbUsesAfterDeletion() > 0;
        });
    }

private:
    template <typename Predicate>
    std::size_t Count(Predicate predicate) const {
        const std::lock_guard lock(mutex_);
        std::size_t nb = 0;
        for (const CountedSample& sample : samples_) {
            nb += predicate(sample) ? 1 : 0;
        }
        return nb;
    }

    mutable std::mutex mutex_;
    std::deque<CountedSample> samples_;
};

}  // namespace Tavrin::Player::Testing
