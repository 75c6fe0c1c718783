// The planner against a literal model of its rules, over real caches.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Coverage.h"
#include "Player/Support/Moments.h"
#include "Player/Support/PlannerModel.h"
#include "Player/Support/Printed.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/StubPlayer.h"

namespace Tavrin::Player {
namespace {

using Testing::CachePair;
using Testing::Coverage;
using Testing::Ms;
using Testing::Ns;
using Testing::PlannerModel;
using Testing::Printed;
using Testing::Random;
using Testing::StartOf;
using Testing::StubPlayer;
using Time::Ratio;
using Time::TimePoint;

struct Settings {
    SampleRate streamRate;
    SampleRate displayRate;
    std::int64_t nbToPreload = 0;
};

const std::vector<SampleRate>& StreamRates() {
    static const std::vector<SampleRate> rates{{25, 1}, {50, 1},       {60, 1},       {30000, 1001},
                                               {60, 7}, {60000, 1001}, {24000, 1001}, {1, 3},
                                               {1, 1},  {12345, 678},  {0, 1}};
    return rates;
}

const std::vector<SampleRate>& DisplayRates() {
    static const std::vector<SampleRate> rates{{25, 1}, {50, 1},  {60, 1}, {30000, 1001}, {60000, 1001},
                                               {1, 1},  {17, 13}, {0, 1},  {1000, 1}};
    return rates;
}

Ratio AnySpeed(Random& random) {
    static const std::vector<Ratio> usual{{0, 1},  {0, 5},  {1, 1},   {1, 1},    {2, 1},   {4, 1},
                                          {-1, 1}, {-1, 1}, {-2, 1},  {-4, 1},   {1, 2},   {-1, 3},
                                          {7, 5},  {64, 1}, {-64, 1}, {1000, 1}, {-333, 1}};
    return random.Chance(80) ? random.Among(usual)
                             : Ratio(random.Between(-5000, 5000), random.Between(1, 1001));
}

/// One generator with one cache, updated many times.
class Sequence {
public:
    Sequence(std::uint64_t seed, Coverage& seen) : random_(seed), seen_(seen) {
        settings_.streamRate = random_.Chance(3) ? SampleRate() : random_.Among(StreamRates());
        pair_.SetRate(settings_.streamRate);
        generator_.SetCache(&pair_.Engine());
        Configure();
    }

    void Run(int nbUpdates) {
        for (int i = 0; i < nbUpdates && !::testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE(::testing::Message() << "update " << i);
            if (random_.Chance(15)) {
                Configure();
            }
            UpdateAndCompare();
        }
    }

private:
    void Configure() {
        settings_.displayRate = random_.Among(DisplayRates());
        settings_.nbToPreload = random_.Chance(20) ? random_.Between(0, 3) : random_.Between(0, 40);
        generator_.SetSampleRate(settings_.streamRate);
        generator_.SetDisplayRate(settings_.displayRate);
        generator_.SetNumberPreloads(static_cast<std::uint64_t>(settings_.nbToPreload));
    }

    /// Often near the origin or at the edge of a sample; now and then years away.
    TimePoint AnyPlayHead() {
        if (random_.Chance(30)) {
            return Ns(random_.Between(0, 2'000'000'000));
        }
        if (random_.Chance(30) && settings_.streamRate.Numerator() != 0) {
            const TimePoint start = StartOf(random_.Between(1, 4000), settings_.streamRate);
            return start + Ns(random_.Between(-1, 1));
        }
        return Ns(random_.Between(0, random_.Chance(10) ? 3'000'000'000'000'000'000 : 600'000'000'000));
    }

    /// Records entries around the play head: none, a few, or nearly all.
    void FillCache(const TimePoint& tp, const SampleRate& preloadRate) {
        if (random_.Chance(30)) {
            pair_.Clear();
        }
        const int percent = random_.Among(std::vector<int>{0, 5, 30, 60, 95, 100});
        const SampleRate& rate = random_.Chance(70) ? preloadRate : settings_.streamRate;
        const std::int64_t head = tp.SampleNumber(rate);
        for (std::int64_t number = head - 45; number <= head + 45; ++number) {
            if (random_.Chance(percent)) {
                const TimePoint inside = TimePoint::StartOfSample(number, rate);
                pair_.Insert(inside.AlignWith(settings_.streamRate));
            }
        }
    }

    PlannerModel ModelAt(const TimePoint& tp, const Ratio& speed) const {
        PlannerModel model;
        model.SetCache(&pair_.Model());
        model.SetSampleRate(settings_.streamRate);
        model.SetDisplayRate(settings_.displayRate);
        model.SetNumberPreloads(settings_.nbToPreload);
        model.Update(tp, speed);
        return model;
    }

    void UpdateAndCompare() {
        const TimePoint tp = AnyPlayHead();
        const Ratio speed = AnySpeed(random_);
        FillCache(tp, ModelAt(tp, speed).PreloadRate());
        PlannerModel model = ModelAt(tp, speed);
        const StubPlayer player(tp, speed);
        generator_.Update(&player);
        SCOPED_TRACE(::testing::Message()
                     << "at " << tp << " speed " << speed << " stream " << settings_.streamRate << " display "
                     << settings_.displayRate << " N " << settings_.nbToPreload);
        const std::vector<TimePoint> proposed = Compare(model);
        if (model.HasRates()) {
            EXPECT_EQ(Printed([this] { generator_.OutputInternalState(); }), model.StateText());
        }
        See(model, speed, proposed.size());
        Record(proposed, speed);
    }

    /// Sometimes leaves off in the middle, as a client does that has enough orders out.
    std::vector<TimePoint> Compare(PlannerModel& model) {
        std::vector<TimePoint> proposed;
        std::int64_t nbCalls = random_.Chance(80) ? 200 : random_.Between(0, 20);
        int nbRefusals = 0;
        const TimePoint untouched = Ms(-1);
        while (nbCalls-- > 0 && nbRefusals < 3) {
            const std::optional<TimePoint> expected = model.Get();
            TimePoint tp = untouched;
            const bool got = generator_.Get(tp);
            EXPECT_EQ(got, expected.has_value()) << "after " << proposed.size() << " proposals";
            EXPECT_EQ(tp, expected.value_or(untouched)) << "after " << proposed.size() << " proposals";
            if (got != expected.has_value()) {
                break;
            }
            nbRefusals += got ? 0 : 1;
            if (got) {
                proposed.push_back(tp);
            }
        }
        return proposed;
    }

    /// What is proposed can be recorded, and while moving none of it is there yet.
    void Record(const std::vector<TimePoint>& proposed, const Ratio& speed) {
        for (const TimePoint& tp : proposed) {
            EXPECT_GE(tp, TimePoint());
            const bool wasThere = pair_.Insert(tp).first != 0;
            EXPECT_TRUE(!wasThere || speed.Numerator() == 0) << tp;
        }
    }

    void See(const PlannerModel& model, const Ratio& speed, std::size_t nbProposed) {
        const std::string mode =
            speed.Numerator() == 0 ? "still" : (speed.Positive() ? "forward" : "backward");
        seen_.Saw(mode + (nbProposed > 0 ? " with proposals" : " without proposals"));
        seen_.SawIf(model.NbSkipped() > 0 && nbProposed > 0, mode + " skipping");
        seen_.SawIf(mode == "still" && model.TurnedBack() && nbProposed > 0, "still turned back");
        seen_.SawIf(nbProposed > 0 && model.PreloadRate() != settings_.streamRate,
                    mode + " at a coarser rate");
    }

    Random random_;
    Coverage& seen_;
    Settings settings_;
    CachePair pair_;
    PreloadTimePointGenerator generator_;
};

TEST(PreloadTimePointGeneratorModel, RandomUpdatesGiveWhatTheLiteralWalkGives) {
    constexpr int kNbSequences = 400;
    constexpr int kNbUpdates = 30;
    const Testing::ScopedSilence silence("Cache");
    const std::uint64_t seed = Testing::TestSeed();
    Coverage seen;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        Sequence(own, seen).Run(kNbUpdates);
    }
    seen.ExpectSeen(20, {"forward with proposals", "forward without proposals", "forward skipping",
                         "forward at a coarser rate", "backward with proposals", "backward without proposals",
                         "backward skipping", "backward at a coarser rate", "still with proposals",
                         "still without proposals", "still skipping", "still turned back"});
}

}  // namespace
}  // namespace Tavrin::Player
