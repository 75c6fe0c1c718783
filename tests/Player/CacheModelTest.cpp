// The cache against a literal model of its rules: a plain map, and plain walks over all of it.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Player/Cache.h"
#include "Player/Support/CacheModel.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Coverage.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"

namespace Tavrin::Player {
namespace {

using Testing::CacheModel;
using Testing::CachePair;
using Testing::Coverage;
using Testing::NameOf;
using Testing::Ns;
using Testing::Random;
using Time::TimePoint;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

const std::vector<SampleRate>& StreamRates() {
    static const std::vector<SampleRate> rates{
        {25, 1}, {50, 1}, {30000, 1001}, {60000, 1001}, {24000, 1001},     {25, 2},
        {1, 1},  {1, 7},  {0, 1},        {12345, 678},  {1'000'000'000, 1}};
    return rates;
}

const std::vector<SampleRate>& RequestRates() {
    static const std::vector<SampleRate> rates{{25, 1},
                                               {50, 1},
                                               {100, 1},
                                               {30000, 1001},
                                               {15000, 1001},
                                               {60000, 1001},
                                               {25, 2},
                                               {25, 4},
                                               {15, 2},
                                               {1, 1},
                                               {1, 7},
                                               {1, 1000},
                                               {7, 3},
                                               {12345, 678},
                                               {0, 1},
                                               {1, kHighest},
                                               {1'000'000'000, 1},
                                               {2'000'000'000, 1},
                                               {3, 10},
                                               {kHighest, 1},
                                               {kHighest, 2}};
    return rates;
}

/// One random sequence of operations, run on a cache and on the model side by side.
class Sequence {
public:
    Sequence(std::uint64_t seed, Coverage& coverage) : random_(seed), coverage_(coverage) {
        SetRate(random_.Among(StreamRates()));
        base_ = random_.Chance(70) ? 0 : random_.Between(-1000, 1000) * 1'000'000'000;
    }

    void Run(int nbSteps) {
        for (int step = 0; step < nbSteps; ++step) {
            SCOPED_TRACE(::testing::Message() << "step " << step);
            Step();
            pair_.CompareMultiples(SampleRate(1'000'000'000, 1));
            pair_.CompareCounts();
            if (::testing::Test::HasFailure()) {
                return;
            }
        }
        pair_.CompareEntries();
        pair_.Finish();
    }

private:
    const CacheModel& Model() const { return pair_.Model(); }

    void Step() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 28) {
            Insert();
        } else if (choice <= 50) {
            Answers();
        } else if (choice <= 75) {
            LookUp();
        } else if (choice <= 83) {
            Protect();
        } else if (choice <= 88) {
            const std::size_t nb = pair_.EraseBefore(AnyTimePoint());
            coverage_.Saw(nb == 0 ? "nothing erased before" : "erased before");
        } else if (choice <= 94) {
            EraseAfter();
        } else if (choice <= 97) {
            Count();
        } else if (choice <= 99) {
            SetRate(random_.Among(StreamRates()));
        } else {
            coverage_.Saw("clear");
            pair_.Clear();
        }
    }

    void SetRate(const SampleRate& rate) {
        coverage_.Saw(Model().All().empty() ? "rate set" : "rate changed under entries");
        pair_.SetRate(rate);
    }

    /// A time point near the others, often one that means something.
    TimePoint AnyTimePoint() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 4) {
            return Ns(random_.Chance(50) ? kLowest : kHighest);
        }
        if (choice <= 8) {
            return Ns(random_.Chance(50) ? kLowest + random_.Between(0, 3'000'000'000)
                                         : kHighest - random_.Between(0, 3'000'000'000));
        }
        if (choice <= 45 && !Model().All().empty()) {
            return AnyKey() + Ns(random_.Among(std::vector<std::int64_t>{-1, 0, 0, 1}));
        }
        if (choice <= 65 && Model().All().size() > 1) {
            // Halfway between two entries, where distances tie.
            const std::int64_t a = AnyKey().ToNanoseconds() / 2;
            const std::int64_t b = AnyKey().ToNanoseconds() / 2;
            return Ns(a + b);
        }
        return Ns(base_ + random_.Between(-2'000'000'000, 3'000'000'000));
    }

    TimePoint AnyKey() {
        auto item = Model().All().begin();
        std::advance(item, random_.Between(0, static_cast<std::int64_t>(Model().All().size()) - 1));
        return item->first;
    }

    /// A time point on the grid of the stream's rate, close enough to others for samples to be shared.
    TimePoint AnyAligned() {
        if (random_.Chance(5)) {
            return AnyTimePoint().AlignWith(Model().Rate());
        }
        const TimePoint start = Ns(base_).AlignWith(Model().Rate());
        return TimePoint::StartOfSample(start.SampleNumber(Model().Rate()) + random_.Between(-15, 25),
                                        Model().Rate());
    }

    void Insert() {
        for (std::int64_t nb = random_.Between(1, 4); nb > 0; --nb) {
            const std::int64_t result =
                pair_.Insert(random_.Chance(90) ? AnyAligned() : AnyTimePoint()).first;
            coverage_.Saw(result < 0 ? "misaligned insert" : (result == 0 ? "new entry" : "entry was there"));
        }
    }

    /// Mostly for pending entries, at any place inside their samples; sometimes for anything.
    void Answers() {
        for (const auto& [key, entry] : Model().All()) {
            if (entry.type == Cache::Pending && random_.Chance(40)) {
                const TimePoint inside = key + Ns(random_.Chance(70) ? 0 : random_.Between(0, 30'000'000));
                pair_.Answer(inside, random_.Chance(75));
            }
        }
        if (random_.Chance(25)) {
            pair_.Answer(AnyTimePoint(), random_.Chance(70));
        }
        const auto [result, text] = pair_.Update();
        coverage_.Saw(result >= 0 ? "update" : (text[0] == 'N' ? "unknown answer" : "second answer"));
        coverage_.Saw(Model().HasAnswers() ? "answers left in the queue" : "queue drained");
    }

    void LookUp() {
        for (std::int64_t nb = random_.Between(1, 5); nb > 0; --nb) {
            const TimePoint tp = AnyTimePoint();
            const SampleRate& rate = random_.Among(RequestRates());
            const bool best = random_.Chance(60);
            coverage_.Saw(std::string(best ? "best match " : "exact ") +
                          NameOf(pair_.LookUp(tp, rate, best)));
            NoteTies(tp, rate, best);
        }
    }

    /// Notes whether the nearest valid entry was one of two at the same distance.
    void NoteTies(const TimePoint& tp, const SampleRate& rate, bool best) {
        std::map<TimePoint, int> byDistance;
        for (const auto& [key, entry] : Model().All()) {
            if (best && entry.type == Cache::Valid) {
                if (key.SampleNumber(rate) == tp.SampleNumber(rate)) {
                    return;
                }
                ++byDistance[(tp - key).Abs()];
            }
        }
        if (!byDistance.empty() && byDistance.begin()->second > 1) {
            const bool saturated = byDistance.begin()->first == TimePoint::GetHighestTimePoint();
            coverage_.Saw(saturated ? "tie of saturated distances" : "tie");
        }
    }

    void Protect() {
        if (Model().All().empty()) {
            return;
        }
        const TimePoint key = AnyKey();
        if (Model().All().at(key).type != Cache::Valid) {
            return;
        }
        if (random_.Chance(50)) {
            pair_.Protect(key, random_.Chance(85) ? 1 : -1);
        } else {
            pair_.Unprotect(key, random_.Between(1, 2));
        }
    }

    void EraseAfter() {
        const TimePoint tp = AnyTimePoint();
        const auto type = static_cast<Cache::EntryType>(random_.Between(0, 3));
        const std::size_t nb = pair_.EraseAfter(tp, type);
        coverage_.Saw(std::string(nb == 0 ? "nothing erased after " : "erased after ") + NameOf(type));
    }

    void Count() {
        pair_.CompareCountsFrom(AnyTimePoint());
        for (const SampleRate& rate : RequestRates()) {
            pair_.CompareMultiples(rate);
            pair_.CompareEntries(rate);
        }
    }

    Random random_;
    Coverage& coverage_;
    CachePair pair_;
    std::int64_t base_ = 0;
};

TEST(CacheModel, RandomSequencesGiveWhatTheLiteralWalksGive) {
    constexpr int kNbSequences = 400;
    constexpr int kNbSteps = 80;
    const Testing::ScopedSilence silence("Cache");
    const std::uint64_t seed = Testing::TestSeed();
    Coverage coverage;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        Sequence(own, coverage).Run(kNbSteps);
    }
    coverage.ExpectSeen(20, {"tie",
                             "tie of saturated distances",
                             "exact Valid",
                             "exact Missing",
                             "exact Pending",
                             "exact Not_Found",
                             "best match Valid",
                             "best match Missing",
                             "best match Pending",
                             "erased before",
                             "erased after Not_Found",
                             "erased after Valid",
                             "erased after Missing",
                             "nothing erased after Pending",
                             "unknown answer",
                             "second answer",
                             "answers left in the queue",
                             "misaligned insert",
                             "entry was there",
                             "rate changed under entries",
                             "clear"});
    EXPECT_EQ(coverage.Count("erased after Pending"), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
