#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/Support/CacheModel.h"
#include "Player/Support/Printed.h"
#include "Player/Support/SampleLedger.h"

namespace Tavrin::Player::Testing {

/// A cache and its literal model, which do everything side by side; whatever they answer is compared at once.
///
/// *Threads:* bound to one thread.
class CachePair {
public:
    /// What an operation gave: its result, or the text of what it threw (and then -1).
    using Outcome = std::pair<std::int64_t, std::string>;

    const CacheModel& Model() const { return model_; }
    Cache& Engine() { return *cache_; }

    void SetRate(const SampleRate& rate) {
        cache_->SetStreamSampleRate(rate);
        model_.SetRate(rate);
    }

    Outcome Insert(const Time::TimePoint& tp) {
        Outcome expected = OutcomeOf([&] { return model_.InsertPendingEntry(tp); });
        EXPECT_EQ(OutcomeOf([&] { return cache_->InsertPendingEntry(tp); }), expected) << tp;
        return expected;
    }

    /// An answer into the queue, with a sample or without.
    void Answer(const Time::TimePoint& tp, bool withSample) {
        LedgerSample* const sample = withSample ? ledger_.Make() : nullptr;
        Output output;
        output.sample_ = sample;
        output.tp_ = tp;
        cache_->GetQueue()->Push(output);
        model_.Push({sample, tp});
    }

    /// A rejected answer leaves those behind it in the queue, for one of the next updates.
    Outcome Update() {
        Outcome expected = OutcomeOf([&] { return model_.Update(); });
        EXPECT_EQ(OutcomeOf([&] { return cache_->Update(); }), expected);
        CompareEvents();
        return expected;
    }

    Cache::EntryType LookUp(const Time::TimePoint& tp, const SampleRate& rate, bool best) {
        ISample* expectedSample = &untouched_;
        ISample* sample = &untouched_;
        const Cache::EntryType expected = model_.GetSample(tp, rate, &expectedSample, best);
        EXPECT_EQ(std::string(NameOf(cache_->GetSample(tp, rate, &sample, best))), NameOf(expected))
            << tp << " at " << rate << (best ? ", best match" : "");
        EXPECT_EQ(sample, expectedSample) << tp << " at " << rate << (best ? ", best match" : "");
        return expected;
    }

    /// Both return the number erased.
    std::size_t EraseBefore(const Time::TimePoint& tp) {
        const std::size_t expected = model_.EraseBefore(tp);
        EXPECT_EQ(cache_->EraseBefore(tp), expected) << tp;
        CompareEvents();
        return expected;
    }

    std::size_t EraseAfter(const Time::TimePoint& tp, Cache::EntryType type) {
        const std::size_t expected = model_.EraseAfter(tp, type);
        EXPECT_EQ(cache_->EraseAfter(tp, type), expected) << tp << " " << NameOf(type);
        CompareEvents();
        return expected;
    }

    void Clear() {
        cache_->Clear();
        model_.Clear();
        CompareEvents();
    }

    /// Ends the cache and has another begin at the same address, with nothing in it and no rate.
    void Recreate() {
        model_.Destroy();
        Cache* const place = cache_.get();
        std::destroy_at(place);
        CompareEvents();
        std::construct_at(place);
        model_ = CacheModel();
    }

    /// The counts and the two ends.
    void CompareCounts() {
        const Time::TimePoint lowest =
            Time::TimePoint().FromNanoseconds(std::numeric_limits<std::int64_t>::min());
        const Cache::Information information = cache_->GetInformation();
        const auto count = [&](Cache::EntryType type) {
            return static_cast<std::int64_t>(model_.GetNumberSamples(type, lowest));
        };
        EXPECT_EQ(information.nbValidSamples_, count(Cache::Valid));
        EXPECT_EQ(information.nbPendingSamples_, count(Cache::Pending));
        EXPECT_EQ(information.nbMissingSamples_, count(Cache::Missing));
        EXPECT_EQ(information.nbProtectedSamples_,
                  static_cast<std::int64_t>(model_.GetNumberProtectedSamples(lowest)));
        EXPECT_EQ(information.cacheSize_, static_cast<std::int64_t>(model_.All().size()));
        EXPECT_EQ(cache_->GetFirstEntry(), model_.GetFirstEntry());
        EXPECT_EQ(cache_->GetLastEntry(), model_.GetLastEntry());
        ledger_.Take();
    }

    /// The counts from a time point on.
    void CompareCountsFrom(const Time::TimePoint& tp) {
        for (const auto type : {Cache::Not_Found, Cache::Pending, Cache::Missing, Cache::Valid}) {
            EXPECT_EQ(cache_->GetNumberSamples(type, tp), model_.GetNumberSamples(type, tp)) << tp;
        }
        EXPECT_EQ(cache_->GetNumberProtectedSamples(tp), model_.GetNumberProtectedSamples(tp)) << tp;
        ledger_.Take();
    }

    /// Every entry's number and type.
    void CompareEntries(const SampleRate& rate = SampleRate(1'000'000'000, 1)) {
        EXPECT_EQ(Printed([&] { cache_->OutputSampleNumbers(rate); }), model_.SampleNumbersText(rate));
    }

    void CompareMultiples(const SampleRate& rate) {
        const std::set<std::int64_t> expected = model_.FindMultiples(rate);
        const std::set<std::int64_t> numbers = cache_->FindMultiples(rate);
        if (numbers != expected) {
            ADD_FAILURE() << "held numbers at " << rate << ": " << ::testing::PrintToString(numbers)
                          << " and not " << ::testing::PrintToString(expected);
        }
    }

    /// What happened to the samples since the last time, in its order.
    void CompareEvents() {
        const std::vector<SampleEvent> expected = model_.TakeEvents();
        const std::vector<SampleEvent> events = ledger_.Take();
        const auto differing =
            std::mismatch(events.begin(), events.end(), expected.begin(), expected.end()).first;
        EXPECT_EQ(events.size(), expected.size()) << "too much or too little was done to the samples";
        EXPECT_TRUE(events == expected) << "of what is done to the samples, number "
                                        << differing - events.begin() << " is wrong or comes out of turn";
    }

    void Protect(const Time::TimePoint& key, std::int64_t protection) { SampleAt(key)->Protect(protection); }
    void Unprotect(const Time::TimePoint& key, std::int64_t protection) {
        SampleAt(key)->Unprotect(protection);
    }

    /// The end of the cache's life.
    void Finish() {
        model_.Destroy();
        cache_.reset();
        CompareEvents();
        EXPECT_EQ(ledger_.NbLive(), 0U) << "samples leak";
        EXPECT_EQ(ledger_.NbAbused(), 0U);
    }

private:
    template <typename Action>
    static Outcome OutcomeOf(Action action) {
        try {
            return {static_cast<std::int64_t>(action()), ""};
        } catch (const std::runtime_error& error) {
            return {-1, error.what()};
        }
    }

    LedgerSample* SampleAt(const Time::TimePoint& key) const { return model_.All().at(key).sample; }

    SampleLedger ledger_;
    std::vector<SampleEvent> ignored_;
    LedgerSample untouched_{ignored_};
    std::unique_ptr<Cache> cache_ = std::make_unique<Cache>();
    CacheModel model_;
};

}  // namespace Tavrin::Player::Testing
