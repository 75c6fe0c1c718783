#include "Player/Cache.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "Player/Support/AllocationCount.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/StandardOutput.h"

namespace Tavrin::Player {
namespace {

using Testing::CountedSample;
using Testing::Ms;
using Testing::Ns;
using Testing::SampleCensus;
using Testing::ScopedRecorder;
using Testing::ScopedSilence;
using Testing::Sec;
using Texts = std::vector<std::string>;
using Time::TimePoint;
using namespace qor::kp::logging;

const SampleRate kStreamRate(25, 1);
const SampleRate kSecondRate(1, 1);

/// At this rate the number of a sample is its time point in nanoseconds.
const SampleRate kNanosecondRate(1'000'000'000, 1);

/// A cache of track 7 at 25 samples per second: sample n begins at n times 40 ms.
class CacheTest : public ::testing::Test {
protected:
    CacheTest() {
        cache_.SetStreamSampleRate(kStreamRate);
        cache_.SetTrackId(TrackId(StorageId("a", 1), 7));
    }

    void Push(ISample* sample, const TimePoint& tp) {
        Output output;
        output.sample_ = sample;
        output.tp_ = tp;
        cache_.GetQueue()->Push(output);
    }

    void Pend(const TimePoint& tp) { EXPECT_FALSE(cache_.InsertPendingEntry(tp)) << tp; }

    CountedSample* Fill(const TimePoint& tp) {
        Pend(tp);
        CountedSample* sample = census_.Make(tp, Ms(40));
        Push(sample, tp);
        EXPECT_EQ(cache_.Update(), 1U);
        return sample;
    }

    void Miss(const TimePoint& tp) {
        Pend(tp);
        Push(nullptr, tp);
        EXPECT_EQ(cache_.Update(), 1U);
    }

    /// The text that the next Update throws with, or "nothing thrown".
    std::string UpdateFailure() {
        try {
            cache_.Update();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing thrown";
    }

    /// The recorded time points, in milliseconds.
    std::set<std::int64_t> Keys() {
        std::set<std::int64_t> keys;
        for (const std::int64_t ns : cache_.FindMultiples(kNanosecondRate)) {
            keys.insert(ns / 1'000'000);
        }
        return keys;
    }

    Cache::EntryType TypeAt(const TimePoint& tp) {
        for (const Cache::EntryType type : {Cache::Pending, Cache::Missing, Cache::Valid}) {
            if (cache_.GetNumberSamples(type, tp) != cache_.GetNumberSamples(type, tp + Ns(1))) {
                return type;
            }
        }
        return Cache::Not_Found;
    }

    Cache::EntryType Get(const TimePoint& tp, const SampleRate& rate, ISample** sample) {
        return cache_.GetSample(tp, rate, sample, false);
    }

    Cache::EntryType GetBest(const TimePoint& tp, const SampleRate& rate, ISample** sample) {
        return cache_.GetSample(tp, rate, sample, true);
    }

    /// Makes the entry at `tp` the one that eviction spares.
    void Use(const TimePoint& tp) {
        ISample* sample = nullptr;
        ASSERT_EQ(Get(tp, kStreamRate, &sample), Cache::Valid);
    }

    SampleCensus census_;
    ScopedRecorder log_{"Cache", Level_Warning};
    Cache cache_;
};

using Set = std::set<std::int64_t>;

// Construction and the simplest questions.

TEST_F(CacheTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Cache>);
    EXPECT_FALSE(std::is_copy_assignable_v<Cache>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Cache>);
}

TEST_F(CacheTest, EntryTypesHaveTheirPublishedNumbersAndBothSpellings) {
    EXPECT_EQ(static_cast<int>(Cache::Not_Found), 0);
    EXPECT_EQ(static_cast<int>(Cache::EntryType::Pending), 1);
    EXPECT_EQ(static_cast<int>(Cache::EntryType::Missing), 2);
    EXPECT_EQ(static_cast<int>(Cache::Valid), 3);
    EXPECT_EQ(sizeof(Cache::EntryType), sizeof(std::int32_t));
}

TEST_F(CacheTest, EmptyOneKnowsNothing) {
    ISample* const before = census_.Make();
    ISample* sample = before;
    EXPECT_EQ(Get(TimePoint(), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(GetBest(TimePoint(), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(sample, before);
    EXPECT_EQ(cache_.GetFirstEntry(), TimePoint());
    EXPECT_EQ(cache_.GetLastEntry(), TimePoint());
    EXPECT_TRUE(cache_.FindMultiples(kStreamRate).empty());
    EXPECT_EQ(cache_.Update(), 0U);
    EXPECT_EQ(cache_.EraseBefore(Sec(9)), 0U);
    EXPECT_EQ(cache_.EraseAfter(Sec(-9), Cache::Not_Found), 0U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Valid, Sec(-9)), 0U);
    EXPECT_EQ(cache_.GetNumberProtectedSamples(Sec(-9)), 0U);
    EXPECT_EQ(cache_.GetInformation().cacheSize_, 0);
}

TEST_F(CacheTest, QueueIsAlwaysTheSame) {
    CacheUpdateQueue* queue = cache_.GetQueue();
    ASSERT_NE(queue, nullptr);
    Fill(Ms(40));
    cache_.Clear();
    EXPECT_EQ(cache_.GetQueue(), queue);
}

TEST_F(CacheTest, FirstAndLastEntryAreTheLowestAndHighestTimePointsOfAnyType) {
    Pend(Ms(-80));
    Fill(Ms(40));
    Miss(Ms(120));
    EXPECT_EQ(cache_.GetFirstEntry(), Ms(-80));
    EXPECT_EQ(cache_.GetLastEntry(), Ms(120));
}

// InsertPendingEntry.

TEST_F(CacheTest, InsertPendingEntryReturnsFalseWhenItRecordsAndTrueWhenAnEntryWasThere) {
    EXPECT_FALSE(cache_.InsertPendingEntry(Ms(40)));
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Pending);
    EXPECT_TRUE(cache_.InsertPendingEntry(Ms(40)));
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Pending);
    EXPECT_EQ(cache_.GetInformation().cacheSize_, 1);
}

TEST_F(CacheTest, InsertPendingEntryLeavesValidAndMissingEntriesAsTheyAre) {
    CountedSample* filled = Fill(Ms(40));
    Miss(Ms(80));
    EXPECT_TRUE(cache_.InsertPendingEntry(Ms(40)));
    EXPECT_TRUE(cache_.InsertPendingEntry(Ms(80)));
    EXPECT_EQ(TypeAt(Ms(80)), Cache::Missing);
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, filled);
}

TEST_F(CacheTest, MisalignedTimePointIsRefusedNamingTheGivenAndTheAlignedOne) {
    try {
        cache_.InsertPendingEntry(Ms(41));
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(
            error.what(),
            "Timepoint 0.041000000 must be aligned to streamRate 25/1. It should have been 0.040000000");
    }
    const auto lines = log_->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text_,
              "Timepoint 0.041000000 must be aligned to streamRate 25/1. It should have been 0.040000000");
    EXPECT_EQ(lines[0].level_, Level_Error);
    EXPECT_EQ(lines[0].file_, "Player/Cache");
    EXPECT_GT(lines[0].line_, 0);
    EXPECT_TRUE(Keys().empty());
}

TEST_F(CacheTest, MisalignedNegativeTimePointIsAlignedDownward) {
    try {
        cache_.InsertPendingEntry(Ms(-1));
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(
            error.what(),
            "Timepoint -0.001000000 must be aligned to streamRate 25/1. It should have been -0.040000000");
    }
}

TEST_F(CacheTest, MisalignedTimePointIsRefusedSilentlyAboveErrorAndWithoutALogger) {
    log_->SetLevel(static_cast<Level>(Level_Error + 1));
    EXPECT_THROW(cache_.InsertPendingEntry(Ms(41)), std::runtime_error);
    EXPECT_EQ(log_->TakeTexts(), Texts());

    const ScopedSilence silence("Cache");
    Cache silent;
    silent.SetStreamSampleRate(kStreamRate);
    EXPECT_THROW(silent.InsertPendingEntry(Ms(41)), std::runtime_error);
    EXPECT_EQ(log_->TakeTexts(), Texts());
}

TEST_F(CacheTest, MisalignedTimePointIsLoggedAtExactlyTheErrorLevel) {
    log_->SetLevel(Level_Error);
    EXPECT_THROW(cache_.InsertPendingEntry(Ms(41)), std::runtime_error);
    EXPECT_EQ(log_->TakeTexts().size(), 1U);
}

TEST_F(CacheTest, DuplicateInsertNamesTrackTimePointAndTypeAtTrace) {
    Pend(Ms(40));
    Fill(Ms(80));
    Miss(Ms(120));
    log_->SetLevel(Level_Trace);
    for (const std::int64_t ms : {40, 80, 120}) {
        cache_.InsertPendingEntry(Ms(ms));
    }
    const auto lines = log_->Take();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text_,
              "T7: Cannot InsertPendingEntry at 0.040000000: we already have a Pending entry");
    EXPECT_EQ(lines[1].text_, "T7: Cannot InsertPendingEntry at 0.080000000: we already have a Valid entry");
    EXPECT_EQ(lines[2].text_,
              "T7: Cannot InsertPendingEntry at 0.120000000: we already have a Missing entry");
    for (const auto& line : lines) {
        EXPECT_EQ(line.level_, Level_Trace);
        EXPECT_EQ(line.file_, "Player/Cache");
        EXPECT_GT(line.line_, 0);
    }
    log_->SetLevel(static_cast<Level>(Level_Trace + 1));
    cache_.InsertPendingEntry(Ms(40));
    EXPECT_EQ(log_->TakeTexts(), Texts());
}

TEST_F(CacheTest, NewEntryIsNotWorthALine) {
    log_->SetLevel(Level_Trace);
    Pend(Ms(40));
    EXPECT_EQ(log_->TakeTexts(), Texts());
}

TEST_F(CacheTest, LogsUnderTheNameItWasGiven) {
    const ScopedRecorder other("Decoded");
    Cache named("Decoded");
    named.SetStreamSampleRate(kStreamRate);
    named.InsertPendingEntry(Ms(40));
    named.InsertPendingEntry(Ms(40));
    EXPECT_EQ(other->TakeTexts(),
              Texts{"T0: Cannot InsertPendingEntry at 0.040000000: we already have a Pending entry"});
    EXPECT_EQ(log_->TakeTexts(), Texts());
}

TEST_F(CacheTest, WithoutAStreamRateOnlyTheOriginCanBeRecorded) {
    cache_.SetStreamSampleRate(SampleRate());
    EXPECT_THROW(cache_.InsertPendingEntry(Ms(40)), std::runtime_error);
    EXPECT_EQ(log_->TakeTexts(), Texts{"Timepoint 0.040000000 must be aligned to streamRate 0/1. It should "
                                       "have been 0.000000000"});
    EXPECT_FALSE(cache_.InsertPendingEntry(TimePoint()));
    Push(census_.Make(), Sec(5));
    EXPECT_EQ(cache_.Update(), 1U) << "every time point aligns with the origin";
    EXPECT_EQ(TypeAt(TimePoint()), Cache::Valid);
}

TEST_F(CacheTest, FreshOneHasNoStreamRate) {
    Cache fresh;
    EXPECT_THROW(fresh.InsertPendingEntry(Ms(40)), std::runtime_error);
}

TEST_F(CacheTest, EveryStartOfASampleOfANonIntegerRateIsAligned) {
    const SampleRate ntsc(30000, 1001);
    cache_.SetStreamSampleRate(ntsc);
    for (std::int64_t n = 0; n < 500; ++n) {
        Pend(Testing::StartOf(n, ntsc));
    }
    EXPECT_THROW(cache_.InsertPendingEntry(Testing::StartOf(3, ntsc) + Ns(1)), std::runtime_error);
    EXPECT_THROW(cache_.InsertPendingEntry(Testing::StartOf(3, ntsc) - Ns(1)), std::runtime_error);
}

// GetSample.

TEST_F(CacheTest, EarliestValidEntryOfTheRequestedSampleWins) {
    Pend(Ms(1000));
    CountedSample* first = Fill(Ms(1040));
    Fill(Ms(1080));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(1999), kSecondRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, first);
}

TEST_F(CacheTest, ValidEntryWinsOverAnEarlierPendingOne) {
    Pend(Ms(0));
    CountedSample* later = Fill(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(TimePoint(), kSecondRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, later);
}

TEST_F(CacheTest, MissingThenPendingInOneSampleIsMissing) {
    Miss(Ms(0));
    Pend(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(TimePoint(), kSecondRate, &sample), Cache::Missing);
    EXPECT_EQ(sample, nullptr);
}

TEST_F(CacheTest, PendingThenMissingInOneSampleIsMissing) {
    Pend(Ms(0));
    Miss(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(TimePoint(), kSecondRate, &sample), Cache::Missing);
    EXPECT_EQ(sample, nullptr);
}

TEST_F(CacheTest, OnlyPendingEntriesInTheSampleAreReportedAsPending) {
    Pend(Ms(0));
    Pend(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(999), kSecondRate, &sample), Cache::Pending);
    EXPECT_EQ(GetBest(Ms(999), kSecondRate, &sample), Cache::Pending);
    EXPECT_EQ(sample, nullptr);
}

TEST_F(CacheTest, EntriesOfOtherSamplesAreIgnoredWithoutBestMatch) {
    Fill(Ms(0));
    Fill(Ms(80));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(sample, nullptr);
}

TEST_F(CacheTest, SampleBeginsAtItsStartAndEndsBeforeTheNext) {
    CountedSample* filled = Fill(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ns(39'999'999), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(Get(Ms(80), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(sample, nullptr);
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(Get(Ns(79'999'999), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, filled);
}

TEST_F(CacheTest, BestMatchPrefersTheRequestedSampleToANearerNeighbour) {
    Fill(Ms(1000));
    CountedSample* inside = Fill(Ms(1960));
    Fill(Ms(2000));
    ISample* sample = nullptr;
    EXPECT_EQ(GetBest(Ms(2000) - Ns(1), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, inside);
}

TEST_F(CacheTest, BestMatchAtEqualDistanceTakesTheEarlierOne) {
    CountedSample* earlier = Fill(Ms(0));
    Fill(Ms(80));
    ISample* sample = nullptr;
    EXPECT_EQ(GetBest(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, earlier);
}

TEST_F(CacheTest, BestMatchTakesTheLaterOneWhenItIsOneNanosecondNearer) {
    Fill(Ms(0));
    CountedSample* later = Fill(Ms(80));
    ISample* sample = nullptr;
    EXPECT_EQ(GetBest(Ms(40) + Ns(1), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, later);
}

TEST_F(CacheTest, BestMatchTakesAFarValidEntryRatherThanPendingOrMissing) {
    Pend(Ms(0));
    Miss(Ms(40));
    CountedSample* far = Fill(Sec(3600));
    for (const TimePoint& tp : {Ms(0), Ms(40), Ms(80)}) {
        ISample* sample = nullptr;
        EXPECT_EQ(GetBest(tp, kStreamRate, &sample), Cache::Valid);
        EXPECT_EQ(sample, far);
    }
}

TEST_F(CacheTest, BestMatchWithoutAnyValidEntryReportsTheRequestedSample) {
    Pend(Ms(0));
    Miss(Ms(40));
    ISample* sample = nullptr;
    EXPECT_EQ(GetBest(Ms(0), kStreamRate, &sample), Cache::Pending);
    EXPECT_EQ(GetBest(Ms(40), kStreamRate, &sample), Cache::Missing);
    EXPECT_EQ(GetBest(Ms(80), kStreamRate, &sample), Cache::Not_Found);
    EXPECT_EQ(sample, nullptr);
}

TEST_F(CacheTest, BestMatchBetweenDistancesThatSaturateTakesTheEarlierOne) {
    const TimePoint lowest = Ns(std::numeric_limits<std::int64_t>::min());
    cache_.SetStreamSampleRate(kSecondRate);
    CountedSample* earlier = Fill(lowest);
    Fill(Sec(-9'000'000'000));
    ISample* sample = nullptr;
    EXPECT_EQ(GetBest(TimePoint::GetHighestTimePoint(), kSecondRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, earlier) << "both distances are the highest there is";
}

TEST_F(CacheTest, UnsetRequestRateHasOneSampleThatHoldsEverything) {
    Pend(Ms(-80));
    CountedSample* first = Fill(Ms(-40));
    Fill(Ms(800));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Sec(-100), SampleRate(), &sample), Cache::Valid);
    EXPECT_EQ(sample, first);
}

TEST_F(CacheTest, NumbersThatSaturateShareOneSample) {
    const SampleRate fast(2'000'000'000, 1);
    const TimePoint lowest = Ns(std::numeric_limits<std::int64_t>::min());
    const TimePoint highest = TimePoint::GetHighestTimePoint();
    cache_.SetStreamSampleRate(kNanosecondRate);
    CountedSample* low = Fill(lowest);
    CountedSample* high = Fill(highest - Ns(100));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(lowest + Ns(1'000'000), fast, &sample), Cache::Valid);
    EXPECT_EQ(sample, low);
    EXPECT_EQ(Get(highest, fast, &sample), Cache::Valid);
    EXPECT_EQ(sample, high);
}

TEST_F(CacheTest, GetSampleAsksNothingOfTheSamples) {
    CountedSample* filled = Fill(Ms(40));
    ISample* sample = nullptr;
    Get(Ms(40), kStreamRate, &sample);
    GetBest(Ms(400), kStreamRate, &sample);
    EXPECT_EQ(sample, filled);
    EXPECT_TRUE(filled->Calls().empty());
}

TEST_F(CacheTest, GetSampleChangesNoEntry) {
    Pend(Ms(0));
    Fill(Ms(40));
    Miss(Ms(80));
    ISample* sample = nullptr;
    for (const std::int64_t ms : {0, 40, 80, 120}) {
        Get(Ms(ms), kStreamRate, &sample);
        GetBest(Ms(ms), kSecondRate, &sample);
    }
    EXPECT_EQ(Keys(), (Set{0, 40, 80}));
    EXPECT_EQ(TypeAt(Ms(0)), Cache::Pending);
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Valid);
    EXPECT_EQ(TypeAt(Ms(80)), Cache::Missing);
}

// The entry in use.

TEST_F(CacheTest, SampleHandedOutLastIsSparedByEviction) {
    Fill(Ms(40));
    Fill(Ms(80));
    Use(Ms(40));
    Use(Ms(80));
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 1U);
    EXPECT_EQ(Keys(), Set{80});
}

TEST_F(CacheTest, NeighbourHandedOutByBestMatchIsTheOneInUse) {
    Fill(Ms(40));
    Pend(Ms(400));
    Fill(Ms(800));
    ISample* sample = nullptr;
    Use(Ms(40));
    EXPECT_EQ(GetBest(Ms(440), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 1U);
    EXPECT_EQ(Keys(), (Set{400, 800}));
}

TEST_F(CacheTest, LookUpThatFindsNoValidSampleLeavesTheOneInUse) {
    Fill(Ms(40));
    Pend(Ms(80));
    Miss(Ms(120));
    Use(Ms(40));
    ISample* sample = nullptr;
    for (const std::int64_t ms : {80, 120, 160}) {
        EXPECT_NE(Get(Ms(ms), kStreamRate, &sample), Cache::Valid);
    }
    cache_.EraseBefore(Sec(1));
    EXPECT_EQ(Keys(), (Set{40, 80}));
}

TEST_F(CacheTest, BeforeAnythingWasHandedOutTheSampleAtTheOriginCountsAsInUse) {
    Fill(Ms(-40));
    Fill(Ms(0));
    Fill(Ms(40));
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 2U);
    EXPECT_EQ(Keys(), Set{0});
    EXPECT_EQ(cache_.EraseAfter(Sec(-1), Cache::Not_Found), 0U);
    EXPECT_EQ(Keys(), Set{0});
}

TEST_F(CacheTest, MissingEntryAtTheTimePointInUseIsEvicted) {
    Miss(Ms(0));
    EXPECT_EQ(cache_.EraseBefore(Ms(40)), 1U);
    EXPECT_TRUE(Keys().empty());
}

TEST_F(CacheTest, ClearForgetsTheOneInUse) {
    Fill(Ms(40));
    Use(Ms(40));
    cache_.Clear();
    Fill(Ms(0));
    Fill(Ms(40));
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 1U);
    EXPECT_EQ(Keys(), Set{0}) << "the origin is the default again";
}

// FindMultiples.

TEST_F(CacheTest, FindMultiplesMergesTheNumbersOfEntriesOfEveryType) {
    Pend(Ms(-40));
    Fill(Ms(0));
    Miss(Ms(960));
    Pend(Ms(1000));
    EXPECT_EQ(cache_.FindMultiples(kSecondRate), (Set{-1, 0, 1}));
    EXPECT_EQ(cache_.FindMultiples(kStreamRate), (Set{-1, 0, 24, 25}));
    EXPECT_EQ(cache_.FindMultiples(SampleRate()), Set{0});
}

// A rate changed after insertion.

TEST_F(CacheTest, ChangedRateKeepsTheEntriesWhereTheyWere) {
    CountedSample* filled = Fill(Ms(40));
    Fill(Ms(80));
    Pend(Ms(120));
    cache_.SetStreamSampleRate({30, 1});
    EXPECT_EQ(Keys(), (Set{40, 80, 120}));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, filled);
    EXPECT_THROW(cache_.InsertPendingEntry(Ms(40)), std::runtime_error) << "no start of a sample any more";
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 1U);
    EXPECT_EQ(Keys(), (Set{40, 120})) << "the one in use and the pending one";
}

TEST_F(CacheTest, AnswersAreAlignedWithTheRateInForceWhenTheyAreFiled) {
    Pend(Ms(40));
    CountedSample* rejected = census_.Make();
    cache_.SetStreamSampleRate({30, 1});
    Push(rejected, Ms(40));
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.033333334");
    EXPECT_EQ(rejected->NbDeletions(), 1U);
    cache_.SetStreamSampleRate({50, 1});
    Push(census_.Make(), Ms(59));
    EXPECT_EQ(cache_.Update(), 1U);
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Valid);
}

// Update.

TEST_F(CacheTest, UpdateOfAnEmptyQueueReturnsZeroAndChangesNothing) {
    Pend(Ms(0));
    Fill(Ms(40));
    EXPECT_EQ(cache_.Update(), 0U);
    EXPECT_EQ(TypeAt(Ms(0)), Cache::Pending);
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Valid);
}

TEST_F(CacheTest, UpdateFilesSamplesAsValidAndNullsAsMissingAndCountsBoth) {
    Pend(Ms(0));
    Pend(Ms(40));
    Pend(Ms(80));
    CountedSample* filed = census_.Make();
    Push(filed, Ms(40));
    Push(nullptr, Ms(0));
    EXPECT_EQ(cache_.Update(), 2U);
    EXPECT_EQ(TypeAt(Ms(0)), Cache::Missing);
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Valid);
    EXPECT_EQ(TypeAt(Ms(80)), Cache::Pending);
    ISample* sample = nullptr;
    Get(Ms(40), kStreamRate, &sample);
    EXPECT_EQ(sample, filed);
}

TEST_F(CacheTest, AnswerInsideASampleIsFiledUnderTheAlignedTimePoint) {
    Pend(Ms(40));
    CountedSample* filed = census_.Make();
    Push(filed, Ms(79));
    EXPECT_EQ(cache_.Update(), 1U);
    EXPECT_EQ(Keys(), Set{40});
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, filed);
}

TEST_F(CacheTest, UnknownAnswerInTheMiddleIsRejectedAndTheRestStaysInTheQueue) {
    Pend(Ms(0));
    Pend(Ms(80));
    Push(census_.Make(), Ms(0));
    CountedSample* unknown = census_.Make();
    Push(unknown, Ms(41));
    Push(census_.Make(), Ms(80));
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.040000000");
    EXPECT_EQ(TypeAt(Ms(0)), Cache::Valid);
    EXPECT_EQ(unknown->NbDeletions(), 1U);
    EXPECT_EQ(TypeAt(Ms(80)), Cache::Pending);
    EXPECT_EQ(cache_.Update(), 1U) << "the third answer";
    EXPECT_EQ(TypeAt(Ms(80)), Cache::Valid);
    EXPECT_EQ(census_.NbLive(), 2U);
    EXPECT_EQ(census_.NbAbused(), 0U);
}

TEST_F(CacheTest, RejectedAnswerIsLoggedAtErrorWithTheTextOfTheException) {
    Push(nullptr, Ms(41));
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.040000000");
    Fill(Ms(80));
    Push(nullptr, Ms(80));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.080000000, it's Valid");
    Miss(Ms(120));
    Push(nullptr, Ms(121));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.120000000, it's Missing");
    const auto lines = log_->Take();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text_, "No entry for aligned order tp 0.040000000");
    EXPECT_EQ(lines[1].text_, "Entry should be Pending at 0.080000000, it's Valid");
    EXPECT_EQ(lines[2].text_, "Entry should be Pending at 0.120000000, it's Missing");
    for (const auto& line : lines) {
        EXPECT_EQ(line.level_, Level_Error);
        EXPECT_EQ(line.file_, "Player/Cache");
        EXPECT_GT(line.line_, 0);
    }
}

TEST_F(CacheTest, RejectedAnswerThrowsSilentlyAboveErrorAndWithoutALogger) {
    log_->SetLevel(static_cast<Level>(Level_Error + 1));
    Push(nullptr, Ms(40));
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.040000000");
    Fill(Ms(80));
    Push(nullptr, Ms(80));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.080000000, it's Valid");
    EXPECT_EQ(log_->TakeTexts(), Texts());

    const ScopedSilence silence("Cache");
    Cache silent;
    Output output;
    output.sample_ = census_.Make();
    silent.SetStreamSampleRate(kStreamRate);
    silent.GetQueue()->Push(output);
    EXPECT_THROW(silent.Update(), std::runtime_error);
    silent.InsertPendingEntry(Ms(0));
    output.sample_ = census_.Make();
    silent.GetQueue()->Push(output);
    EXPECT_EQ(silent.Update(), 1U);
    silent.InsertPendingEntry(Ms(0));
    EXPECT_EQ(census_.NbAbused(), 0U);
}

TEST_F(CacheTest, SecondAnswerIsRejectedItsSampleDeletedOnceAndTheFirstKept) {
    CountedSample* first = Fill(Ms(40));
    CountedSample* second = census_.Make();
    Push(second, Ms(40));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.040000000, it's Valid");
    EXPECT_EQ(second->NbDeletions(), 1U);
    EXPECT_EQ(first->NbDeletions(), 0U);
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, first);
    cache_.Clear();
    EXPECT_EQ(census_.NbLive(), 0U);
    EXPECT_EQ(census_.NbAbused(), 0U);
}

TEST_F(CacheTest, SampleForAMissingEntryIsRejectedAndDeletedOnce) {
    Miss(Ms(40));
    CountedSample* late = census_.Make();
    Push(late, Ms(40));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.040000000, it's Missing");
    EXPECT_EQ(late->NbDeletions(), 1U);
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Missing);
    cache_.Clear();
    EXPECT_EQ(census_.NbAbused(), 0U);
}

TEST_F(CacheTest, NullForAValidEntryIsRejectedAndTheSampleKept) {
    CountedSample* filled = Fill(Ms(40));
    Push(nullptr, Ms(40));
    EXPECT_EQ(UpdateFailure(), "Entry should be Pending at 0.040000000, it's Valid");
    EXPECT_FALSE(filled->Deleted());
    EXPECT_EQ(TypeAt(Ms(40)), Cache::Valid);
}

TEST_F(CacheTest, ProtectedSampleOfARejectedAnswerIsDeletedToo) {
    CountedSample* unknown = census_.Make();
    unknown->Protect(1);
    Push(unknown, Ms(40));
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.040000000");
    EXPECT_EQ(unknown->NbDeletions(), 1U);
}

TEST_F(CacheTest, AnswerThatComesAfterClearIsRejected) {
    Pend(Ms(40));
    CountedSample* late = census_.Make();
    Push(late, Ms(40));
    cache_.Clear();
    EXPECT_EQ(UpdateFailure(), "No entry for aligned order tp 0.040000000");
    EXPECT_EQ(late->NbDeletions(), 1U);
}

TEST_F(CacheTest, FiledSampleIsLoggedAtTraceWithItsNumberAndTheCountFromTheOriginOn) {
    Fill(Ms(-40));
    Fill(Ms(0));
    log_->SetLevel(Level_Trace);
    Pend(Ms(80));
    Push(census_.Make(), Ms(85));
    cache_.Update();
    const auto lines = log_->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text_, "T7: inserted valid sample at 0.080000000 (2) : 2 valid samples");
    EXPECT_EQ(lines[0].level_, Level_Trace);
    EXPECT_EQ(lines[0].file_, "Player/Cache");
    EXPECT_GT(lines[0].line_, 0);
    Fill(Ms(-80));
    EXPECT_EQ(log_->TakeTexts(), Texts{"T7: inserted valid sample at -0.080000000 (-2) : 2 valid samples"});
}

TEST_F(CacheTest, MissingAnswerAndSilencedSampleAreNotLogged) {
    log_->SetLevel(Level_Trace);
    Miss(Ms(40));
    log_->SetLevel(static_cast<Level>(Level_Trace + 1));
    Fill(Ms(80));
    EXPECT_EQ(log_->TakeTexts(), Texts());
}

// Counts.

TEST_F(CacheTest, NumberSamplesCountsOneTypeFromTheTimePointOn) {
    Fill(Ms(0));
    Fill(Ms(40));
    Pend(Ms(80));
    Fill(Ms(120));
    Miss(Ms(160));
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Valid, Ms(40)), 2U) << "at and after, never before";
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Valid, Ms(41)), 1U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Valid, Ms(121)), 0U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Pending, Ms(80)), 1U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Pending, Ms(81)), 0U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Missing, Sec(-1)), 1U);
    EXPECT_EQ(cache_.GetNumberSamples(Cache::Not_Found, Sec(-1)), 0U);
}

TEST_F(CacheTest, NumberProtectedSamplesCountsValidOnesAboveZeroFromTheTimePointOn) {
    Fill(Ms(0))->Protect(1);
    Fill(Ms(40))->Protect(2);
    Fill(Ms(80));
    Fill(Ms(120))->Protect(-1);
    Pend(Ms(160));
    EXPECT_EQ(cache_.GetNumberProtectedSamples(Ms(0)), 2U);
    EXPECT_EQ(cache_.GetNumberProtectedSamples(Ms(40)), 1U);
    EXPECT_EQ(cache_.GetNumberProtectedSamples(Ms(41)), 0U);
}

TEST_F(CacheTest, InformationCountsEveryType) {
    Fill(Ms(-40))->Protect(1);
    Fill(Ms(0));
    Fill(Ms(40))->Protect(-1);
    Pend(Ms(80));
    Pend(Ms(120));
    Pend(Ms(160));
    Pend(Ms(200));
    Miss(Ms(240));
    Miss(Ms(280));
    const Cache::Information information = cache_.GetInformation();
    EXPECT_EQ(information.nbValidSamples_, 3);
    EXPECT_EQ(information.nbProtectedSamples_, 1);
    EXPECT_EQ(information.nbMissingSamples_, 2);
    EXPECT_EQ(information.nbPendingSamples_, 4);
    EXPECT_EQ(information.cacheSize_, 9);
    EXPECT_EQ(information.ToString(), "03V, (1), 4P, 2M (9)");
}

TEST_F(CacheTest, InformationTextPadsOnlyTheValidCountAndOnlyBelowTen) {
    Cache::Information information;
    EXPECT_EQ(information.ToString(), "00V, (0), 0P, 0M (0)");
    information.nbValidSamples_ = 5;
    information.nbProtectedSamples_ = 2;
    information.nbPendingSamples_ = 3;
    information.cacheSize_ = 8;
    EXPECT_EQ(information.ToString(), "05V, (2), 3P, 0M (8)");
    information.nbValidSamples_ = 9;
    EXPECT_EQ(information.ToString(), "09V, (2), 3P, 0M (8)");
    information.nbValidSamples_ = 10;
    EXPECT_EQ(information.ToString(), "10V, (2), 3P, 0M (8)");
    information.nbValidSamples_ = 12;
    information.nbMissingSamples_ = 1234567;
    EXPECT_EQ(information.ToString(), "12V, (2), 3P, 1234567M (8)");
}

TEST_F(CacheTest, SampleNumbersArePrintedWithTheirTypesInAscendingOrder) {
    Miss(Ms(120));
    Pend(Ms(-40));
    Fill(Ms(40));
    EXPECT_EQ(Testing::WrittenToStandardOutput([&] { cache_.OutputSampleNumbers(kStreamRate); }),
              "For 25/1: -1(P) 1(V) 3(M) \n");
    EXPECT_EQ(Testing::WrittenToStandardOutput([&] { cache_.OutputSampleNumbers(kSecondRate); }),
              "For 1/1: -1(P) 0(V) 0(M) \n");
}

TEST_F(CacheTest, SampleNumbersOfAnEmptyOneAreAnEmptyLine) {
    EXPECT_EQ(Testing::WrittenToStandardOutput([&] {
                  cache_.OutputSampleNumbers({30000, 1001});
              }),
              "For 30000/1001: \n");
}

// Eviction.

TEST_F(CacheTest, EraseBeforeKeepsPendingProtectedAndUsedEntriesAndEverythingFromTheTimePointOn) {
    Pend(Ms(40));
    Fill(Ms(80))->Protect(1);
    Fill(Ms(120));
    CountedSample* evicted = Fill(Ms(160));
    Miss(Ms(200));
    Fill(Ms(240));
    Miss(Ms(280));
    Use(Ms(120));
    EXPECT_EQ(cache_.EraseBefore(Ms(240)), 2U);
    EXPECT_EQ(Keys(), (Set{40, 80, 120, 240, 280}));
    EXPECT_EQ(evicted->NbDeletions(), 1U);
    EXPECT_EQ(census_.NbLive(), 3U);
}

TEST_F(CacheTest, EraseAfterKeepsPendingProtectedAndUsedEntriesAndEverythingUpToTheTimePoint) {
    Miss(Ms(40));
    Fill(Ms(80));
    Pend(Ms(120));
    Fill(Ms(160))->Protect(1);
    Fill(Ms(200));
    CountedSample* evicted = Fill(Ms(240));
    Miss(Ms(280));
    Use(Ms(200));
    EXPECT_EQ(cache_.EraseAfter(Ms(80), Cache::Not_Found), 2U);
    EXPECT_EQ(Keys(), (Set{40, 80, 120, 160, 200}));
    EXPECT_EQ(evicted->NbDeletions(), 1U);
    EXPECT_EQ(census_.NbLive(), 3U);
}

TEST_F(CacheTest, EntryAtExactlyTheTimePointIsRemovedByNeither) {
    Fill(Ms(40));
    EXPECT_EQ(cache_.EraseBefore(Ms(40)), 0U);
    EXPECT_EQ(cache_.EraseAfter(Ms(40), Cache::Not_Found), 0U);
    EXPECT_EQ(Keys(), Set{40});
    EXPECT_EQ(cache_.EraseBefore(Ms(40) + Ns(1)), 1U);
    Fill(Ms(40));
    EXPECT_EQ(cache_.EraseAfter(Ms(40) - Ns(1), Cache::Not_Found), 1U);
}

TEST_F(CacheTest, EraseAfterReachesTheFirstEntry) {
    Fill(Ms(40));
    Miss(Ms(80));
    EXPECT_EQ(cache_.EraseAfter(Ms(-1000), Cache::Not_Found), 2U);
    EXPECT_TRUE(Keys().empty());
}

TEST_F(CacheTest, EraseBeforeReachesTheLastEntry) {
    Miss(Ms(40));
    Fill(Ms(80));
    EXPECT_EQ(cache_.EraseBefore(TimePoint::GetHighestTimePoint()), 2U);
    EXPECT_TRUE(Keys().empty());
}

TEST_F(CacheTest, EraseAfterPendingRemovesNothing) {
    Pend(Ms(40));
    Fill(Ms(80));
    Miss(Ms(120));
    EXPECT_EQ(cache_.EraseAfter(Sec(-1), Cache::Pending), 0U);
    EXPECT_EQ(Keys(), (Set{40, 80, 120}));
    EXPECT_EQ(census_.NbLive(), 1U);
}

TEST_F(CacheTest, EraseAfterValidRemovesOnlyValidEntries) {
    Pend(Ms(40));
    Fill(Ms(80));
    Miss(Ms(120));
    Fill(Ms(160))->Protect(1);
    EXPECT_EQ(cache_.EraseAfter(Sec(-1), Cache::Valid), 1U);
    EXPECT_EQ(Keys(), (Set{40, 120, 160}));
}

TEST_F(CacheTest, EraseAfterMissingRemovesOnlyMissingEntries) {
    Pend(Ms(40));
    Fill(Ms(80));
    Miss(Ms(120));
    EXPECT_EQ(cache_.EraseAfter(Sec(-1), Cache::Missing), 1U);
    EXPECT_EQ(Keys(), (Set{40, 80}));
    EXPECT_EQ(census_.NbLive(), 1U);
}

TEST_F(CacheTest, NegativeProtectionKeepsASampleFromEvictionThoughItIsNotCounted) {
    Fill(Ms(40))->Protect(-1);
    EXPECT_EQ(cache_.GetNumberProtectedSamples(Sec(-1)), 0U);
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 0U);
    EXPECT_EQ(cache_.EraseAfter(Sec(-1), Cache::Not_Found), 0U);
    EXPECT_EQ(Keys(), Set{40});
}

TEST_F(CacheTest, ReleasedSampleIsEvictedByTheNextPass) {
    CountedSample* filled = Fill(Ms(40));
    filled->Protect(2);
    filled->Unprotect(1);
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 0U);
    filled->Unprotect(1);
    EXPECT_EQ(cache_.EraseBefore(Sec(1)), 1U);
    EXPECT_EQ(filled->NbDeletions(), 1U);
    EXPECT_EQ(filled->NbUsesAfterDeletion(), 0U);
}

TEST_F(CacheTest, EvictionReadsEachProtectionOnceAndNoneOutsideItsRange) {
    CountedSample* evicted = Fill(Ms(40));
    CountedSample* kept = Fill(Ms(80));
    CountedSample* outside = Fill(Ms(120));
    kept->Protect(1);
    cache_.EraseBefore(Ms(120));
    EXPECT_EQ(evicted->NbCalls("GetProtectionCounter"), 1U);
    EXPECT_EQ(kept->NbCalls("GetProtectionCounter"), 1U);
    EXPECT_EQ(outside->NbCalls("GetProtectionCounter"), 0U);
}

TEST_F(CacheTest, EvictedEntryCanBeAskedForAgain) {
    Fill(Ms(40));
    Miss(Ms(80));
    cache_.EraseBefore(Sec(1));
    CountedSample* again = Fill(Ms(40));
    Miss(Ms(80));
    ISample* sample = nullptr;
    EXPECT_EQ(Get(Ms(40), kStreamRate, &sample), Cache::Valid);
    EXPECT_EQ(sample, again);
}

TEST_F(CacheTest, EvictionDoesNotAllocateOnceItHasSeenTheLargestSize) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "this build's operator new cannot be counted";
    }
    constexpr std::int64_t kNbEntries = 100;
    const auto fill = [&] {
        for (std::int64_t n = 1; n <= kNbEntries; ++n) {
            Miss(Ms(40 * n));
        }
    };
    fill();
    const std::size_t start = Testing::NbAllocations();
    EXPECT_EQ(cache_.EraseBefore(Sec(100)), static_cast<std::size_t>(kNbEntries));
    fill();
    ASSERT_GT(Testing::NbAllocations(), start) << "allocations are not counted";
    const std::size_t before = Testing::NbAllocations();
    const std::size_t nbBefore = cache_.EraseBefore(Sec(2));
    const std::size_t nbAfter = cache_.EraseAfter(Sec(2), Cache::Not_Found);
    EXPECT_EQ(Testing::NbAllocations(), before);
    EXPECT_EQ(nbBefore, 49U);
    EXPECT_EQ(nbAfter, 50U);
}

// Clear and destruction.

TEST_F(CacheTest, ClearDeletesProtectedAndUsedSamplesTooAndEmptiesTheMap) {
    Pend(Ms(40));
    Fill(Ms(80))->Protect(3);
    Fill(Ms(120));
    Miss(Ms(160));
    Use(Ms(120));
    cache_.Clear();
    EXPECT_EQ(census_.NbLive(), 0U);
    EXPECT_EQ(census_.NbAbused(), 0U);
    EXPECT_TRUE(Keys().empty());
    EXPECT_EQ(cache_.GetInformation().cacheSize_, 0);
}

TEST_F(CacheTest, ClearKeepsRateTrackAndQueueContents) {
    Pend(Ms(40));
    Push(census_.Make(), Ms(40));
    cache_.Clear();
    Pend(Ms(40));
    log_->SetLevel(Level_Trace);
    EXPECT_EQ(cache_.Update(), 1U);
    EXPECT_EQ(log_->TakeTexts(), Texts{"T7: inserted valid sample at 0.040000000 (1) : 1 valid samples"});
}

TEST_F(CacheTest, ClearTwiceDeletesOnce) {
    Fill(Ms(40));
    cache_.Clear();
    cache_.Clear();
    EXPECT_EQ(census_.NbAbused(), 0U);
}

TEST_F(CacheTest, DestructionDeletesFiledAndWaitingSamplesOnce) {
    auto cache = std::make_unique<Cache>();
    cache->SetStreamSampleRate(kStreamRate);
    for (std::int64_t n = 0; n < 10; ++n) {
        cache->InsertPendingEntry(Ms(40 * n));
        Output output;
        output.sample_ = census_.Make();
        output.tp_ = Ms(40 * n);
        output.sample_->Protect(n % 2);
        cache->GetQueue()->Push(output);
        if (n == 6) {
            EXPECT_EQ(cache->Update(), 7U);
        }
    }
    EXPECT_EQ(census_.NbLive(), 10U);
    cache.reset();
    EXPECT_EQ(census_.NbLive(), 0U);
    EXPECT_EQ(census_.NbAbused(), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
