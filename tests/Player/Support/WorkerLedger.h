#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <set>
#include <string>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// A sample for stress tests, which counts its deletion instead of going away.
///
/// Nothing in it orders one thread's accesses after another's: its counts are relaxed and its time point is a
/// plain field, written when the sample is made and when it is deleted. So the thread sanitizer reports every
/// hand-over of a sample that the engine does not synchronise, and every use that overlaps with a deletion.
class LedgerSample final : public ISample {
public:
    LedgerSample() = default;

    static void operator delete(LedgerSample* sample, std::destroying_delete_t) {
        sample->tp_ = Time::TimePoint();
        sample->nbDeletions_.fetch_add(1, std::memory_order_relaxed);
    }

    Time::TimePoint GetTimePoint() const override {
        NoteUse();
        return tp_;
    }
    Time::TimePoint GetDuration() const override {
        NoteUse();
        return tp_ - tp_;
    }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }
    std::int64_t Protect(std::int64_t protection) override {
        balance_.fetch_add(protection, std::memory_order_relaxed);
        return ISample::Protect(protection);
    }
    std::int64_t Unprotect(std::int64_t protection) override {
        NoteUse();
        balance_.fetch_sub(protection, std::memory_order_relaxed);
        return ISample::Unprotect(protection);
    }

private:
    friend class Ledger;

    void NoteUse() const {
        if (nbDeletions_.load(std::memory_order_relaxed) > 0) {
            nbLateUses_.fetch_add(1, std::memory_order_relaxed);
        }
    }

    Time::TimePoint tp_;
    std::atomic<int> nbDeletions_ = 0;
    mutable std::atomic<int> nbLateUses_ = 0;
    /// Unlike the counter it does not stop at zero: a release too many stays to be seen.
    std::atomic<std::int64_t> balance_ = 0;
};

/// The samples of one stress test, all made beforehand, and what became of them.
///
/// *Threads:* `Make` is thread-safe and synchronises nothing; the rest is asked when all threads are done.
/// *Ownership:* outlives everything that may hold one of its samples.
class Ledger {
public:
    explicit Ledger(std::size_t capacity)
        : capacity_(capacity), samples_(std::make_unique<LedgerSample[]>(capacity)) {}

    /// A sample at `tp`, to be deleted by the caller; null when the ledger is full.
    LedgerSample* Make(const Time::TimePoint& tp) {
        const std::size_t index = nbMade_.fetch_add(1, std::memory_order_relaxed);
        if (index >= capacity_) {
            return nullptr;
        }
        samples_[index].tp_ = tp;
        return &samples_[index];
    }

    std::size_t NbMade() const { return nbMade_; }
    bool Overflowed() const { return nbMade_ > capacity_; }

    /// Made and not deleted; leaked once nobody holds them any more.
    std::size_t NbLive() const { return NbLeaked(); }
    std::size_t NbLeaked() const {
        return Count([](const LedgerSample& sample) { return sample.nbDeletions_ == 0; });
    }
    std::size_t NbReleasedTooOften() const {
        return Count([](const LedgerSample& sample) { return sample.balance_ < 0; });
    }
    std::size_t NbDeletedTwice() const {
        return Count([](const LedgerSample& sample) { return sample.nbDeletions_ > 1; });
    }
    std::size_t NbUsedLate() const {
        return Count([](const LedgerSample& sample) { return sample.nbLateUses_ > 0; });
    }

private:
    template <typename Predicate>
    std::size_t Count(Predicate predicate) const {
        std::size_t nb = 0;
        for (std::size_t i = 0; i < nbMade_ && i < capacity_; ++i) {
            nb += predicate(samples_[i]) ? 1 : 0;
        }
        return nb;
    }

    const std::size_t capacity_;
    std::unique_ptr<LedgerSample[]> samples_;
    std::atomic<std::size_t> nbMade_ = 0;
};

}  // namespace Tavrin::Player::Testing
