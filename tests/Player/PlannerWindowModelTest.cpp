// Planners that live long, against their literal model: windows of up to thousands of samples over caches that change
// before, between and after the updates, are cleared, replaced and shared.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Player/Cache.h"
#include "Player/Player.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/CacheModel.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Coverage.h"
#include "Player/Support/Moments.h"
#include "Player/Support/PlannerModel.h"
#include "Player/Support/PlannerPair.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"

namespace Tavrin::Player {
namespace {

using Testing::CachePair;
using Testing::Coverage;
using Testing::Ms;
using Testing::Ns;
using Testing::PlannerModel;
using Testing::PlannerPair;
using Testing::Random;
using Testing::StartOf;
using Time::Ratio;
using Time::TimePoint;

const std::vector<SampleRate>& StreamRates() {
    static const std::vector<SampleRate> rates{{25, 1},       {25, 1},       {50, 1},      {60, 1},
                                               {30000, 1001}, {60000, 1001}, {12345, 678}, {1, 3}};
    return rates;
}

const std::vector<SampleRate>& DisplayRates() {
    static const std::vector<SampleRate> rates{{25, 1},       {50, 1},  {50, 1}, {60, 1},
                                               {60000, 1001}, {17, 13}, {0, 1}};
    return rates;
}

const std::vector<Ratio>& Speeds() {
    static const std::vector<Ratio> speeds{{1, 1},  {1, 1},   {2, 1},     {4, 1},   {1, 2},  {-1, 1},
                                           {-2, 1}, {0, 1},   {0, 1},     {16, 1},  {64, 1}, {7, 3},
                                           {-7, 3}, {-16, 1}, {-1, 1000}, {1, 1000}};
    return speeds;
}

/// Two caches, three generators that share them, and one play head, for a long time.
class PlannerSequence {
public:
    PlannerSequence(std::uint64_t seed, Coverage& coverage) : random_(seed), coverage_(coverage) {
        for (auto& cache : caches_) {
            cache.SetRate(random_.Among(StreamRates()));
        }
        for (auto& planner : planners_) {
            planner.SetCache(&caches_.front());
            Configure(planner);
        }
        player_.GoTo(Ns(random_.Between(0, 600'000'000'000)));
    }

    void Run(int nbBatches) {
        for (int batch = 0; batch < nbBatches; ++batch) {
            SCOPED_TRACE(::testing::Message() << "batch " << batch);
            Move();
            Reconfigure();
            for (auto& cache : caches_) {
                ChangeCache(cache);
            }
            for (auto& planner : planners_) {
                UpdateAndGet(planner);
            }
            CompareStates();
            if (::testing::Test::HasFailure()) {
                return;
            }
        }
    }

private:
    void Move() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 15) {
            player_.SetSpeed(random_.Among(Speeds()));
        } else if (choice <= 22) {
            player_.GoTo(Ns(random_.Between(0, 600'000'000'000)));
            coverage_.Saw("jump");
        } else if (choice <= 25) {
            player_.GoTo(Ns(random_.Between(0, 200'000'000)));
        } else if (choice <= 85) {
            player_.Update(Ms(40));
        } else {
            coverage_.Saw("play head and speed as before");
        }
    }

    void Configure(PlannerPair& planner) {
        const SampleRate& stream =
            random_.Chance(85) ? planner.Source()->Model().Rate() : random_.Among(StreamRates());
        planner.SetRates(stream, random_.Among(DisplayRates()));
        planner.SetNumberPreloads(
            random_.Among(std::vector<std::int64_t>{0, 1, 5, 5, 25, 25, 100, 100, 500, 2000}));
    }

    void Reconfigure() {
        for (auto& planner : planners_) {
            if (random_.Chance(6)) {
                Configure(planner);
            }
            if (random_.Chance(6)) {
                planner.SetCache(planner.Source() == &caches_.front() ? &caches_.back() : &caches_.front());
                coverage_.Saw("other cache");
            }
        }
    }

    /// What a client does to a cache between two updates.
    void ChangeCache(CachePair& cache) {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 35) {
            AnswerSome(cache);
        } else if (choice <= 60) {
            Evict(cache);
        } else if (choice <= 70) {
            InsertAround(cache);
        } else if (choice <= 73) {
            coverage_.SawIf(cache.Model().All().size() >= 100, "clear");
            cache.Clear();
        } else if (choice <= 76) {
            coverage_.SawIf(!cache.Model().All().empty(), "rate changed under entries");
            cache.SetRate(random_.Among(StreamRates()));
        } else if (choice <= 78) {
            coverage_.SawIf(!cache.Model().All().empty(), "another cache at the same address");
            cache.Recreate();
            cache.SetRate(random_.Among(StreamRates()));
            InsertAround(cache);
        }
        if (cache.Model().All().size() > 5000) {
            cache.Clear();
        }
    }

    void AnswerSome(CachePair& cache) {
        const int percent = random_.Among(std::vector<int>{100, 60, 10});
        for (const auto& [key, entry] : cache.Model().All()) {
            if (entry.type == Cache::Pending && random_.Chance(percent)) {
                cache.Answer(key, random_.Chance(90));
            }
        }
        while (cache.Model().HasAnswers() && !::testing::Test::HasFailure()) {
            cache.Update();
        }
    }

    void Evict(CachePair& cache) {
        const SampleRate& rate = cache.Model().Rate();
        const std::int64_t head = player_.GetCurrentTimePoint().SampleNumber(rate);
        const std::int64_t nb = random_.Among(std::vector<std::int64_t>{0, 5, 50, 500});
        const std::size_t nbErased =
            cache.EraseBefore(TimePoint::StartOfSample(head - nb, rate)) +
            cache.EraseAfter(TimePoint::StartOfSample(head + nb, rate), Cache::Not_Found);
        coverage_.SawIf(nbErased >= 20, "evicted");
    }

    /// Entries near the play head that nobody proposed: side by side, strided, or here and there.
    void InsertAround(CachePair& cache) {
        const SampleRate& rate = cache.Model().Rate();
        const std::int64_t nb = random_.Among(std::vector<std::int64_t>{10, 200, 1500});
        const std::int64_t stride = random_.Among(std::vector<std::int64_t>{1, 1, 2, 4, 16});
        const int percent = random_.Among(std::vector<int>{100, 90, 20});
        const std::int64_t head = player_.GetCurrentTimePoint().SampleNumber(rate);
        for (std::int64_t i = -nb / 2; i < nb / 2; ++i) {
            if (random_.Chance(percent)) {
                cache.Insert(TimePoint::StartOfSample(head + i * stride, rate));
            }
        }
    }

    void UpdateAndGet(PlannerPair& planner) {
        if (random_.Chance(10)) {
            Unhook(planner);
        }
        EXPECT_TRUE(planner.Update(player_));
        const std::size_t nbBefore = planner.Model().NbHeld();
        std::vector<TimePoint> proposed;
        if (random_.Chance(30)) {
            proposed = planner.GetAll(static_cast<std::size_t>(random_.Between(0, 10)));
            ChangeBetween(planner);
        }
        const std::size_t nbAtMost =
            random_.Chance(85) ? 5000 : static_cast<std::size_t>(random_.Between(0, 20));
        const std::vector<TimePoint> rest = planner.GetAll(nbAtMost);
        proposed.insert(proposed.end(), rest.begin(), rest.end());
        Note(planner.Model(), nbBefore, proposed.size());
        Record(planner, proposed);
    }

    /// What is proposed is what was not held when the update was made, whatever becomes of the cache.
    void ChangeBetween(PlannerPair& planner) {
        CachePair* const cache = planner.Source();
        const std::int64_t choice = random_.Between(1, 5);
        if (choice == 1) {
            InsertAround(*cache);
            coverage_.Saw("entries between update and get");
        } else if (choice == 2) {
            Evict(*cache);
            coverage_.Saw("eviction between update and get");
        } else if (choice == 3 && random_.Chance(20)) {
            cache->Clear();
            coverage_.Saw("clear between update and get");
        } else if (choice == 4) {
            planner.SetCache(nullptr);
            EXPECT_FALSE(planner.Get());
            planner.SetCache(cache == &caches_.front() ? &caches_.back() : &caches_.front());
            planner.GetAll(3);
            planner.SetCache(cache);
            coverage_.Saw("cache away and back between update and get");
        } else if (choice == 5) {
            planner.SetNumberPreloads(planner.Model().NbToPreload() + random_.Between(0, 3));
        }
    }

    /// An update without a cache leaves the plan of the last one with a cache.
    void Unhook(PlannerPair& planner) {
        CachePair* const cache = planner.Source();
        planner.SetCache(nullptr);
        EXPECT_TRUE(planner.Update(player_));
        EXPECT_FALSE(planner.Get());
        planner.SetCache(cache);
        coverage_.Saw("update without a cache");
    }

    /// A part of what was proposed is asked for, as a client does that has a limit of its own.
    void Record(PlannerPair& planner, const std::vector<TimePoint>& proposed) {
        const int percent = random_.Among(std::vector<int>{100, 100, 50, 0});
        for (const TimePoint& tp : proposed) {
            if (random_.Chance(percent)) {
                planner.Source()->Insert(tp);
            }
        }
    }

    void Note(const PlannerModel& model, std::size_t nbHeld, std::size_t nbProposed) {
        if (nbProposed == 0) {
            coverage_.Saw(model.HasRates() ? "nothing to propose" : "no rates");
            return;
        }
        const std::string mode =
            model.IsStill() ? "still" : (model.Speed().Positive() ? "forward" : "backward");
        coverage_.Saw(mode);
        coverage_.SawIf(model.NbSkipped() >= 100, mode + " over a hundred held");
        coverage_.SawIf(nbHeld >= 1000, mode + " with a thousand held");
        coverage_.SawIf(nbProposed >= 500, mode + " with hundreds proposed");
        coverage_.SawIf(model.IsStill() && model.TurnedBack(), "still, turned back");
        coverage_.SawIf(model.PreloadRate() != model.Source()->Rate(),
                        mode + " at another rate than the cache's");
        coverage_.SawIf(model.Speed() > Ratio(4, 1), "fast");
    }

    void CompareStates() {
        for (const auto& planner : planners_) {
            if (planner.Model().HasRates()) {
                planner.CompareState();
                coverage_.SawIf(planner.Model().NbHeld() >= 100, "state with a hundred held");
            }
        }
        const bool haveDifferentRates =
            planners_[0].Model().PreloadRate() != planners_[1].Model().PreloadRate();
        coverage_.SawIf(haveDifferentRates && planners_[0].Source() == planners_[1].Source(),
                        "two rates on one cache");
    }

    Random random_;
    Coverage& coverage_;
    std::array<CachePair, 2> caches_;
    std::array<PlannerPair, 3> planners_;
    Player player_;
};

TEST(PlannerWindowModel, PlannersThatLiveLongProposeWhatTheLiteralWalkProposes) {
    constexpr int kNbSequences = 20;
    constexpr int kNbBatches = 60;
    const Testing::ScopedSilence silence("Cache");
    const Testing::ScopedSilence playerSilence("Player");
    const std::uint64_t seed = Testing::TestSeed();
    Coverage coverage;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        PlannerSequence(own, coverage).Run(kNbBatches);
    }
    coverage.ExpectSeen(3, {"jump",
                            "play head and speed as before",
                            "other cache",
                            "clear",
                            "rate changed under entries",
                            "another cache at the same address",
                            "evicted",
                            "entries between update and get",
                            "eviction between update and get",
                            "clear between update and get",
                            "cache away and back between update and get",
                            "update without a cache",
                            "nothing to propose",
                            "no rates",
                            "forward",
                            "backward",
                            "still",
                            "fast",
                            "still, turned back",
                            "forward over a hundred held",
                            "backward over a hundred held",
                            "still over a hundred held",
                            "forward with a thousand held",
                            "backward with a thousand held",
                            "forward with hundreds proposed",
                            "backward with hundreds proposed",
                            "still with hundreds proposed",
                            "forward at another rate than the cache's",
                            "backward at another rate than the cache's",
                            "state with a hundred held",
                            "two rates on one cache"});
}

/// One planner at sample 10 of 25 samples per second, for five samples, over a cache that can be replaced.
class PlannerSnapshot : public ::testing::Test {
protected:
    PlannerSnapshot() {
        player_.GoTo(StartOf(10, kRate));
        generator_.SetSampleRate(kRate);
        generator_.SetDisplayRate(SampleRate(50, 1));
    }

    static void Hold(Cache& cache, const std::vector<std::int64_t>& numbers) {
        cache.SetStreamSampleRate(kRate);
        for (const std::int64_t number : numbers) {
            cache.InsertPendingEntry(StartOf(number, kRate));
        }
    }

    std::vector<std::int64_t> Proposed() {
        std::vector<std::int64_t> numbers;
        for (TimePoint tp; generator_.Get(tp);) {
            numbers.push_back(tp.SampleNumber(kRate));
        }
        return numbers;
    }

    std::vector<std::int64_t> UpdatedAndProposed() {
        generator_.Update(&player_);
        return Proposed();
    }

    using Numbers = std::vector<std::int64_t>;
    inline static const SampleRate kRate{25, 1};
    Player player_;
    PreloadTimePointGenerator generator_;
};

TEST_F(PlannerSnapshot, AnotherCacheAtTheSameAddressAfterAsManyChangesIsReadAnew) {
    std::optional<Cache> cache;
    cache.emplace();
    const Cache* const address = &*cache;
    generator_.SetCache(&*cache);
    Hold(*cache, {11, 12});
    EXPECT_EQ(UpdatedAndProposed(), Numbers({13, 14, 15}));
    cache.reset();
    cache.emplace();
    ASSERT_EQ(&*cache, address);
    Hold(*cache, {13, 14});
    EXPECT_EQ(UpdatedAndProposed(), Numbers({11, 12, 15}));
}

TEST_F(PlannerSnapshot, ACacheThatIsPutBackIsReadAnew) {
    Cache one;
    Cache other;
    Hold(one, {11});
    Hold(other, {12});
    generator_.SetCache(&one);
    EXPECT_EQ(UpdatedAndProposed(), Numbers({12, 13, 14, 15}));
    generator_.SetCache(&other);
    EXPECT_EQ(UpdatedAndProposed(), Numbers({11, 13, 14, 15}));
    Hold(one, {14});
    generator_.SetCache(&one);
    EXPECT_EQ(UpdatedAndProposed(), Numbers({12, 13, 15}));
}

TEST_F(PlannerSnapshot, WhatTheCacheLosesAfterTheUpdateIsNotProposedUntilTheNext) {
    Cache cache;
    Hold(cache, {11, 12});
    generator_.SetCache(&cache);
    generator_.Update(&player_);
    cache.Clear();
    EXPECT_EQ(Proposed(), Numbers({13, 14, 15}));
    EXPECT_EQ(UpdatedAndProposed(), Numbers({11, 12, 13, 14, 15}));
}

TEST_F(PlannerSnapshot, WhatTheCacheGetsAfterTheUpdateIsStillProposed) {
    Cache cache;
    Hold(cache, {});
    generator_.SetCache(&cache);
    generator_.Update(&player_);
    Hold(cache, {11, 12});
    EXPECT_EQ(Proposed(), Numbers({11, 12, 13, 14, 15}));
    EXPECT_EQ(UpdatedAndProposed(), Numbers({13, 14, 15}));
}

TEST_F(PlannerSnapshot, AnotherPlannerAtAnotherRateOnTheSameCacheChangesNothing) {
    Cache cache;
    Hold(cache, {12, 14});
    PreloadTimePointGenerator other;
    other.SetSampleRate(kRate);
    other.SetDisplayRate(SampleRate(5, 1));
    other.SetCache(&cache);
    generator_.SetCache(&cache);
    for (int i = 0; i < 3; ++i) {
        generator_.Update(&player_);
        other.Update(&player_);
        EXPECT_EQ(Proposed(), Numbers({11, 13, 15}));
        std::vector<std::int64_t> numbers;
        for (TimePoint tp; other.Get(tp);) {
            numbers.push_back(tp.SampleNumber(SampleRate(25, 8)));
        }
        EXPECT_EQ(numbers, Numbers({2, 3, 4, 5, 6}));
    }
}

TEST_F(PlannerSnapshot, AnUpdateThatThrewLeavesNothingBehindForTheNext) {
    Cache cache;
    Hold(cache, {11});
    generator_.SetCache(&cache);
    EXPECT_EQ(UpdatedAndProposed(), Numbers({12, 13, 14, 15}));
    const SampleRate odd(1'000'000'007, 998'244'353);
    generator_.SetDisplayRate(odd);
    player_.SetSpeed(Ratio(4'611'686'018'427'387'847, 4'611'686'018'427'387'817));
    EXPECT_THROW(generator_.Update(&player_), std::overflow_error);
    EXPECT_THROW(generator_.Update(&player_), std::overflow_error) << "the same again";
    generator_.SetDisplayRate(SampleRate(50, 1));
    player_.SetSpeed(Ratio(1, 1));
    EXPECT_EQ(UpdatedAndProposed(), Numbers({12, 13, 14, 15}));
}

}  // namespace
}  // namespace Tavrin::Player
