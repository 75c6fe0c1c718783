#include "Player/PreloadTimePointGenerator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "Player/Cache.h"
#include "Player/IPreloadTimePointGenerator.h"
#include "Player/Player.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/Moments.h"
#include "Player/Support/StandardOutput.h"
#include "Player/Support/StubPlayer.h"

namespace Tavrin::Player {
namespace {

using Numbers = std::vector<std::int64_t>;
using Testing::Ms;
using Testing::Ns;
using Testing::Sec;
using Testing::StartOf;
using Testing::StubPlayer;
using Time::Ratio;
using Time::TimePoint;

const SampleRate kStreamRate(25, 1);

/// A generator of a stream at 25 samples per second, shown at 50, with an empty cache and 5 to preload.
class PreloadTimePointGeneratorTest : public ::testing::Test {
protected:
    PreloadTimePointGeneratorTest() {
        cache_.SetStreamSampleRate(kStreamRate);
        generator_.SetSampleRate(kStreamRate);
        generator_.SetDisplayRate({50, 1});
        generator_.SetCache(&cache_);
    }

    void UpdateAt(const TimePoint& tp, const Ratio& speed) {
        const StubPlayer player(tp, speed);
        generator_.Update(&player);
    }

    /// With the play head inside sample `number` of the stream.
    void UpdateAtSample(std::int64_t number, const Ratio& speed) {
        UpdateAt(StartOf(number, kStreamRate) + Ms(3), speed);
    }

    void Hold(const Numbers& numbers) {
        for (const std::int64_t number : numbers) {
            EXPECT_FALSE(cache_.InsertPendingEntry(StartOf(number, kStreamRate)));
        }
    }

    /// The numbers, at `rate`, of the time points that the generator proposes until it has no more; each is
    /// the start of its sample.
    Numbers Proposed(const SampleRate& rate = kStreamRate) {
        Numbers numbers;
        TimePoint tp;
        while (numbers.size() < 100 && generator_.Get(tp)) {
            numbers.push_back(tp.SampleNumber(rate));
            EXPECT_EQ(tp, tp.AlignWith(rate));
        }
        return numbers;
    }

    std::string State() {
        return Testing::WrittenToStandardOutput([this] { generator_.OutputInternalState(); });
    }

    Cache cache_;
    PreloadTimePointGenerator generator_;
};

// Moving forward.

TEST_F(PreloadTimePointGeneratorTest, ForwardGivesTheSamplesAfterThePlayHeadThenNone) {
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{11, 12, 13, 14, 15}));
    TimePoint tp;
    EXPECT_FALSE(generator_.Get(tp));
}

TEST_F(PreloadTimePointGeneratorTest, ForwardSkipsHeldSamplesWithoutReachingFurther) {
    Hold({11, 13});
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{12, 14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, ForwardWithEverythingHeldGivesNone) {
    Hold({11, 12, 13, 14, 15, 16, 17});
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, ForwardReachesNSamplesAndNoFurther) {
    for (const std::int64_t nb : {0, 1, 2, 7}) {
        generator_.SetNumberPreloads(static_cast<std::uint64_t>(nb));
        UpdateAtSample(10, {1, 1});
        Numbers expected;
        for (std::int64_t number = 11; number <= 10 + nb; ++number) {
            expected.push_back(number);
        }
        EXPECT_EQ(Proposed(), expected);
    }
}

TEST_F(PreloadTimePointGeneratorTest, PlayHeadOnTheFirstNanosecondOfASampleIsInThatSample) {
    UpdateAt(StartOf(10, kStreamRate), {1, 1});
    EXPECT_EQ(Proposed().front(), 11);
    UpdateAt(StartOf(10, kStreamRate) - Ns(1), {1, 1});
    EXPECT_EQ(Proposed().front(), 10);
}

TEST_F(PreloadTimePointGeneratorTest, EntriesOfEveryTypeAreHeld) {
    Hold({11, 12, 13});
    Output missing;
    missing.tp_ = StartOf(12, kStreamRate);
    cache_.GetQueue()->Push(missing);
    cache_.Update();
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, FastForwardCountsAtThePreloadRate) {
    UpdateAt(Sec(4), {4, 1});
    const SampleRate preloadRate(25, 2);
    EXPECT_EQ(Proposed(preloadRate), (Numbers{51, 52, 53, 54, 55}));
}

TEST_F(PreloadTimePointGeneratorTest, FastForwardTakesASampleForHeldWhenAnyEntryFallsIntoIt) {
    Hold({103, 105});
    UpdateAt(Sec(4), {4, 1});
    EXPECT_EQ(Proposed({25, 2}), (Numbers{53, 54, 55}));
}

TEST_F(PreloadTimePointGeneratorTest, PreloadRateIsAHalvingOfTheStreamRateNoFasterThanTheTimeSampling) {
    cache_.SetStreamSampleRate({60, 1});
    generator_.SetSampleRate({60, 1});
    UpdateAt(Sec(4), {4, 1});
    EXPECT_EQ(Proposed({15, 2}), (Numbers{31, 32, 33, 34, 35}));
}

TEST_F(PreloadTimePointGeneratorTest, NtscStartsAreThoseOfTheStreamsOwnSamples) {
    const SampleRate ntsc(30000, 1001);
    cache_.SetStreamSampleRate(ntsc);
    generator_.SetSampleRate(ntsc);
    generator_.SetNumberPreloads(40);
    UpdateAt(Sec(3600), {7, 1});
    TimePoint tp;
    std::size_t nb = 0;
    while (generator_.Get(tp)) {
        EXPECT_FALSE(cache_.InsertPendingEntry(tp)) << tp;
        ++nb;
    }
    EXPECT_EQ(nb, 40U);
}

// Moving backward.

TEST_F(PreloadTimePointGeneratorTest, BackwardGivesTheSamplesBeforeThePlayHeadNearestFirst) {
    UpdateAtSample(10, {-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 8, 7, 6, 5}));
    TimePoint tp;
    EXPECT_FALSE(generator_.Get(tp));
}

TEST_F(PreloadTimePointGeneratorTest, BackwardStopsAtSampleZero) {
    UpdateAtSample(3, {-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{2, 1, 0}));
    UpdateAtSample(0, {-1, 1});
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, BackwardSkipsHeldSamplesWithoutReachingFurther) {
    Hold({9, 6});
    UpdateAtSample(10, {-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{8, 7, 5}));
}

TEST_F(PreloadTimePointGeneratorTest, BackwardPastHeldSamplesDownToZeroGivesNone) {
    Hold({0, 1, 2});
    UpdateAtSample(3, {-1, 1});
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, BackwardFromANegativePlayHeadGivesNone) {
    UpdateAt(Ms(-1000), {-1, 1});
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, ForwardFromANegativePlayHeadProposesNoNegativeSample) {
    UpdateAt(Ms(-100), {1, 1});
    for (const std::int64_t number : Proposed()) {
        EXPECT_GE(number, 0);
    }
}

// Standing still.

TEST_F(PreloadTimePointGeneratorTest, StandingStillGivesSampleBeforeThePlayHeadTwice) {
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10, 11, 12, 9, 8}));
    TimePoint tp;
    EXPECT_FALSE(generator_.Get(tp));
}

TEST_F(PreloadTimePointGeneratorTest, ZeroSpeedIsRecognisedByValue) {
    UpdateAtSample(10, {0, 2});
    EXPECT_EQ(Proposed(), (Numbers{9, 10, 11, 12, 9, 8}));
}

TEST_F(PreloadTimePointGeneratorTest, StandingStillSkipsHeldSamplesOnBothSides) {
    Hold({9, 11});
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{10, 12, 8}));
}

TEST_F(PreloadTimePointGeneratorTest, StandingStillHalvesAnOddNumberDownward) {
    generator_.SetNumberPreloads(3);
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10, 11, 9}));
    generator_.SetNumberPreloads(1);
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10}));
    generator_.SetNumberPreloads(0);
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10}));
}

TEST_F(PreloadTimePointGeneratorTest, StandingInSampleZeroBeginsAtSampleZero) {
    UpdateAtSample(0, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{0, 1, 2}));
}

TEST_F(PreloadTimePointGeneratorTest, StandingInSampleOneReachesBackToZeroOnly) {
    UpdateAtSample(1, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{0, 1, 2, 3, 0}));
}

TEST_F(PreloadTimePointGeneratorTest, StandingStillNeedsNoDisplayRate) {
    generator_.SetDisplayRate(SampleRate());
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10, 11, 12, 9, 8}));
}

TEST_F(PreloadTimePointGeneratorTest, EveryUpdateAtSpeedZeroRestartsTheForwardWalk) {
    UpdateAtSample(10, {0, 1});
    Proposed();
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 10, 11, 12, 9, 8}));
}

TEST_F(PreloadTimePointGeneratorTest, ChangingDirectionInTheMiddleOfAWalkStartsAnew) {
    TimePoint tp;
    UpdateAtSample(10, {1, 1});
    EXPECT_TRUE(generator_.Get(tp));
    UpdateAtSample(10, {-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 8, 7, 6, 5}));
    UpdateAtSample(10, {0, 1});
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(generator_.Get(tp));
    }
    UpdateAtSample(20, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{21, 22, 23, 24, 25}));
}

// What takes effect when.

TEST_F(PreloadTimePointGeneratorTest, ProposingASampleDoesNotMakeItHeld) {
    UpdateAtSample(10, {1, 1});
    const Numbers first = Proposed();
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), first);
}

TEST_F(PreloadTimePointGeneratorTest, EntriesRecordedAfterTheUpdateAreHeldFromTheNextOneOn) {
    UpdateAtSample(10, {1, 1});
    Hold({12});
    EXPECT_EQ(Proposed(), (Numbers{11, 12, 13, 14, 15}));
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{11, 13, 14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, EvictedEntriesAreProposedAgainAfterTheNextUpdate) {
    Hold({11});
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed().front(), 12);
    cache_.Clear();
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed().front(), 11);
}

TEST_F(PreloadTimePointGeneratorTest, RatesTakeEffectAtTheNextUpdate) {
    UpdateAtSample(10, {1, 1});
    generator_.SetSampleRate({50, 1});
    generator_.SetDisplayRate({1, 1});
    EXPECT_EQ(Proposed(), (Numbers{11, 12, 13, 14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, PlayerIsReadAtTheUpdateOnly) {
    Player player;
    player.GoTo(Ms(403));
    generator_.Update(&player);
    player.GoTo(Sec(100));
    player.SetSpeed({-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{11, 12, 13, 14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, LargerNumberOfPreloadsExtendsAWalkThatHasEnded) {
    generator_.SetNumberPreloads(2);
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{11, 12}));
    generator_.SetNumberPreloads(4);
    EXPECT_EQ(Proposed(), (Numbers{13, 14}));
}

TEST_F(PreloadTimePointGeneratorTest, HighestNumberOfPreloadsDoesNotWrap) {
    generator_.SetNumberPreloads(static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed().size(), 100U);
    UpdateAtSample(10, {-1, 1});
    EXPECT_EQ(Proposed(), (Numbers{9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
    UpdateAtSample(10, {0, 1});
    EXPECT_EQ(Proposed().size(), 100U);
}

TEST_F(PreloadTimePointGeneratorTest, AtTheEndOfTimeTheWalkEnds) {
    const SampleRate nanosecondRate(1'000'000'000, 1);
    generator_.SetSampleRate(nanosecondRate);
    generator_.SetDisplayRate(nanosecondRate);
    UpdateAt(TimePoint::GetHighestTimePoint(), {1, 1});
    EXPECT_EQ(Proposed(nanosecondRate), Numbers());
    const std::int64_t last = std::numeric_limits<std::int64_t>::max();
    UpdateAt(TimePoint::GetHighestTimePoint() - Ns(3), {1, 1});
    EXPECT_EQ(Proposed(nanosecondRate), (Numbers{last - 2, last - 1}));
}

TEST_F(PreloadTimePointGeneratorTest, UpdateThrowsWhenADerivedRateDoesNotFit) {
    generator_.SetDisplayRate({1, 2});
    EXPECT_THROW(UpdateAtSample(10, {std::numeric_limits<std::int64_t>::max(), 1}), std::overflow_error);
}

// What nobody has set.

TEST_F(PreloadTimePointGeneratorTest, WithoutACacheThereIsNothingToPropose) {
    PreloadTimePointGenerator fresh;
    TimePoint tp;
    EXPECT_FALSE(fresh.Get(tp));
    fresh.SetSampleRate(kStreamRate);
    fresh.SetDisplayRate({50, 1});
    for (const Ratio& speed : {Ratio(1, 1), Ratio(0, 1), Ratio(-1, 1)}) {
        const StubPlayer player(Sec(1), speed);
        fresh.Update(&player);
        EXPECT_FALSE(fresh.Get(tp));
    }
}

TEST_F(PreloadTimePointGeneratorTest, TakingTheCacheAwayEndsTheProposals) {
    UpdateAtSample(10, {1, 1});
    generator_.SetCache(nullptr);
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, BeforeTheFirstUpdateThereIsNothingToPropose) {
    EXPECT_EQ(Proposed(), Numbers());
}

TEST_F(PreloadTimePointGeneratorTest, CacheSetAfterAMovingUpdateProposesNothingUntilTheNext) {
    PreloadTimePointGenerator late;
    late.SetSampleRate(kStreamRate);
    late.SetDisplayRate({50, 1});
    const StubPlayer player(Sec(1), {1, 1});
    late.Update(&player);
    late.SetCache(&cache_);
    TimePoint tp;
    EXPECT_FALSE(late.Get(tp));
    late.Update(&player);
    ASSERT_TRUE(late.Get(tp));
    EXPECT_EQ(tp, StartOf(26, kStreamRate));
}

TEST_F(PreloadTimePointGeneratorTest, WithoutAStreamRateNothingIsProposed) {
    generator_.SetSampleRate(SampleRate());
    for (const Ratio& speed : {Ratio(1, 1), Ratio(0, 1), Ratio(-1, 1)}) {
        UpdateAtSample(10, speed);
        EXPECT_EQ(Proposed(), Numbers()) << speed;
    }
}

TEST_F(PreloadTimePointGeneratorTest, WithoutADisplayRateNothingIsProposedWhileMoving) {
    generator_.SetDisplayRate(SampleRate());
    for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(1, 7)}) {
        UpdateAtSample(10, speed);
        EXPECT_EQ(Proposed(), Numbers()) << speed;
    }
}

TEST_F(PreloadTimePointGeneratorTest, RateThatWasTakenAwayAndGivenBackIsHarmless) {
    Hold({11});
    UpdateAtSample(10, {1, 1});
    generator_.SetDisplayRate(SampleRate());
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), Numbers());
    EXPECT_NO_THROW(State());
    generator_.SetDisplayRate({50, 1});
    UpdateAtSample(10, {1, 1});
    EXPECT_EQ(Proposed(), (Numbers{12, 13, 14, 15}));
}

TEST_F(PreloadTimePointGeneratorTest, IsUsedThroughItsInterface) {
    EXPECT_TRUE(std::has_virtual_destructor_v<IPreloadTimePointGenerator>);
    const std::unique_ptr<IPreloadTimePointGenerator> generator =
        std::make_unique<PreloadTimePointGenerator>();
    generator->SetSampleRate(kStreamRate);
    generator->SetDisplayRate({50, 1});
    generator->SetCache(&cache_);
    generator->SetNumberPreloads(1);
    const StubPlayer player(Sec(1), {1, 1});
    generator->Update(&player);
    TimePoint tp;
    EXPECT_TRUE(generator->Get(tp));
    EXPECT_EQ(tp, Ms(1040));
    EXPECT_FALSE(generator->Get(tp));
}

// The state, printed.

TEST_F(PreloadTimePointGeneratorTest, StateOfAFreshOneIsPrintedLineByLine) {
    const PreloadTimePointGenerator fresh;
    EXPECT_EQ(Testing::WrittenToStandardOutput([&] { fresh.OutputInternalState(); }),
              "playerTp 0.000000000\n"
              "streamRate 0/1\n"
              "displayRate 0/1\n"
              "player speed 0/1\n"
              "time sampling rate 0/1\n"
              "nbToPreloads 5\n"
              "playerTp sample number 0\n"
              "current mul. 0\n"
              "multipliers: \n");
}

TEST_F(PreloadTimePointGeneratorTest, StatePrintsHeldSamplesAtTheTimeSamplingRate) {
    const SampleRate streamRate(60, 1);
    cache_.SetStreamSampleRate(streamRate);
    generator_.SetSampleRate(streamRate);
    generator_.SetNumberPreloads(7);
    generator_.SetTrackId(TrackId(StorageId("a", 1), 7));
    cache_.InsertPendingEntry(TimePoint());
    cache_.InsertPendingEntry(StartOf(66, streamRate));
    UpdateAt(Sec(1), {4, 1});
    EXPECT_EQ(State(),
              "playerTp 1.000000000\n"
              "streamRate 60/1\n"
              "displayRate 50/1\n"
              "player speed 4/1\n"
              "time sampling rate 25/2\n"
              "nbToPreloads 7\n"
              "playerTp sample number 7\n"
              "current mul. 8\n"
              "multipliers: 0 (0.000000000) 8 (0.640000000) \n")
        << "sample 8 of the preload rate 15/2 begins at 1.066666667";
}

TEST_F(PreloadTimePointGeneratorTest, StateShowsHowFarTheWalkHasCome) {
    UpdateAtSample(10, {-1, 1});
    TimePoint tp;
    generator_.Get(tp);
    generator_.Get(tp);
    const std::string state = State();
    EXPECT_NE(state.find("playerTp sample number 10\ncurrent mul. 7\n"), std::string::npos) << state;
}

TEST_F(PreloadTimePointGeneratorTest, UpdateWithoutACacheStillComputesTheTimeSamplingRate) {
    generator_.SetCache(nullptr);
    UpdateAt(Sec(1), {4, 1});
    const std::string state = State();
    EXPECT_NE(state.find("time sampling rate 25/2\n"), std::string::npos) << state;
    EXPECT_NE(state.find("playerTp 1.000000000\n"), std::string::npos) << state;
    EXPECT_NE(state.find("player speed 4/1\n"), std::string::npos) << state;
    EXPECT_NE(state.find("playerTp sample number 0\n"), std::string::npos) << state;
}

TEST_F(PreloadTimePointGeneratorTest, StateWithNegativeHeldSamplesIsPrintable) {
    EXPECT_FALSE(cache_.InsertPendingEntry(Ms(-40)));
    UpdateAtSample(10, {1, 1});
    EXPECT_NE(State().find("multipliers: -1 (-0.040000000) \n"), std::string::npos) << State();
}

// Cost.

TEST_F(PreloadTimePointGeneratorTest, GetDoesNotAllocate) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "this build's operator new cannot be counted";
    }
    const std::size_t start = Testing::NbAllocations();
    Hold({2, 3, 9, 11, 13, 14});
    ASSERT_GT(Testing::NbAllocations(), start) << "the cache holds entries: allocations are not counted";
    TimePoint tp;
    for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(0, 1)}) {
        UpdateAtSample(10, speed);
        const std::size_t before = Testing::NbAllocations();
        int nb = 0;
        while (generator_.Get(tp)) {
            ++nb;
        }
        EXPECT_EQ(Testing::NbAllocations(), before) << speed;
        EXPECT_GT(nb, 0);
    }
}

}  // namespace
}  // namespace Tavrin::Player
