// The planner against a literal model of its rules, over real caches.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Player/Cache.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/StubPlayer.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::Ns;
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

/// What the generator is to propose between two updates.
class Model {
public:
    Model(const Settings& settings, Cache& cache, const TimePoint& tp, const Ratio& speed)
        : speed_(speed), nb_(settings.nbToPreload) {
        const bool still = speed.Numerator() == 0;
        nothing_ = settings.streamRate.Numerator() == 0 || (!still && settings.displayRate.Numerator() == 0);
        if (nothing_) {
            return;
        }
        timeSampling_ = SampleRate::TimeSamplingRate(settings.streamRate, speed, settings.displayRate);
        preloadRate_ = SampleRate::StreamPreloadRate(settings.streamRate, timeSampling_);
        held_ = cache.FindMultiples(preloadRate_);
        n_ = tp.SampleNumber(preloadRate_);
        m_ = speed.Positive() ? n_ + 1 : n_ - 1;
        if (still && m_ < 0) {
            m_ = 0;
        }
    }

    std::optional<TimePoint> Next() {
        if (nothing_) {
            return std::nullopt;
        }
        if (speed_.Numerator() == 0) {
            return NextStandingStill();
        }
        if (speed_.Positive()) {
            SkipUpward();
            return n_ + nb_ < m_ ? std::nullopt : Propose(preloadRate_, +1);
        }
        SkipDownward();
        return n_ - nb_ > m_ || m_ < 0 ? std::nullopt : Propose(preloadRate_, -1);
    }

    /// How many numbers of the walk so far were passed over because the cache holds them.
    std::size_t NbSkipped() const { return nbSkipped_; }
    bool TurnedBack() const { return !upward_; }
    const SampleRate& PreloadRate() const { return preloadRate_; }

private:
    std::optional<TimePoint> NextStandingStill() {
        if (upward_) {
            SkipUpward();
            if (n_ + nb_ / 2 >= m_) {
                return Propose(timeSampling_, +1);
            }
            upward_ = false;
            m_ = n_ - 1;
        }
        SkipDownward();
        return n_ - nb_ / 2 > m_ || m_ < 0 ? std::nullopt : Propose(timeSampling_, -1);
    }

    void SkipUpward() {
        for (; held_.count(m_) != 0; ++m_) {
            ++nbSkipped_;
        }
    }

    void SkipDownward() {
        for (; held_.count(m_) != 0; --m_) {
            ++nbSkipped_;
        }
    }

    std::optional<TimePoint> Propose(const SampleRate& rate, std::int64_t step) {
        const TimePoint tp = StartOf(m_, rate);
        m_ += step;
        return tp;
    }

    Ratio speed_;
    std::int64_t nb_;
    bool nothing_ = false;
    SampleRate timeSampling_;
    SampleRate preloadRate_;
    std::set<std::int64_t> held_;
    std::int64_t n_ = 0;
    std::int64_t m_ = 0;
    bool upward_ = true;
    std::size_t nbSkipped_ = 0;
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
    Sequence(std::uint64_t seed, std::map<std::string, std::size_t>& seen) : random_(seed), seen_(seen) {
        settings_.streamRate = random_.Chance(3) ? SampleRate() : random_.Among(StreamRates());
        cache_.SetStreamSampleRate(settings_.streamRate);
        generator_.SetCache(&cache_);
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
            cache_.Clear();
        }
        const int percent = random_.Among(std::vector<int>{0, 5, 30, 60, 95, 100});
        const SampleRate& rate = random_.Chance(70) ? preloadRate : settings_.streamRate;
        const std::int64_t head = tp.SampleNumber(rate);
        for (std::int64_t number = head - 45; number <= head + 45; ++number) {
            if (random_.Chance(percent)) {
                const TimePoint inside = TimePoint::StartOfSample(number, rate);
                cache_.InsertPendingEntry(inside.AlignWith(settings_.streamRate));
            }
        }
    }

    void UpdateAndCompare() {
        const TimePoint tp = AnyPlayHead();
        const Ratio speed = AnySpeed(random_);
        FillCache(tp, Model(settings_, cache_, tp, speed).PreloadRate());
        Model model(settings_, cache_, tp, speed);
        const StubPlayer player(tp, speed);
        generator_.Update(&player);
        SCOPED_TRACE(::testing::Message()
                     << "at " << tp << " speed " << speed << " stream " << settings_.streamRate << " display "
                     << settings_.displayRate << " N " << settings_.nbToPreload);
        const std::vector<TimePoint> proposed = Compare(model);
        See(model, speed, proposed.size());
        Record(proposed, speed);
    }

    /// Sometimes leaves off in the middle, as a client does that has enough orders out.
    std::vector<TimePoint> Compare(Model& model) {
        std::vector<TimePoint> proposed;
        std::int64_t nbCalls = random_.Chance(80) ? 200 : random_.Between(0, 20);
        int nbRefusals = 0;
        const TimePoint untouched = Ms(-1);
        while (nbCalls-- > 0 && nbRefusals < 3) {
            const std::optional<TimePoint> expected = model.Next();
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
            const bool wasThere = cache_.InsertPendingEntry(tp);
            EXPECT_TRUE(!wasThere || speed.Numerator() == 0) << tp;
        }
    }

    void See(const Model& model, const Ratio& speed, std::size_t nbProposed) {
        const std::string mode =
            speed.Numerator() == 0 ? "still" : (speed.Positive() ? "forward" : "backward");
        ++seen_[mode + (nbProposed > 0 ? " with proposals" : " without proposals")];
        seen_[mode + " skipping"] += model.NbSkipped() > 0 && nbProposed > 0 ? 1 : 0;
        seen_["still turned back"] += mode == "still" && model.TurnedBack() && nbProposed > 0 ? 1 : 0;
        seen_[mode + " at a coarser rate"] += nbProposed > 0 && model.PreloadRate() != settings_.streamRate;
    }

    Random random_;
    std::map<std::string, std::size_t>& seen_;
    Settings settings_;
    Cache cache_;
    PreloadTimePointGenerator generator_;
};

TEST(PreloadTimePointGeneratorModel, RandomUpdatesGiveWhatTheLiteralWalkGives) {
    constexpr int kNbSequences = 400;
    constexpr int kNbUpdates = 30;
    const Testing::ScopedSilence silence("Cache");
    const std::uint64_t seed = Testing::TestSeed();
    std::map<std::string, std::size_t> seen;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        Sequence(own, seen).Run(kNbUpdates);
    }
    for (const char* situation :
         {"forward with proposals", "forward without proposals", "forward skipping",
          "forward at a coarser rate", "backward with proposals", "backward without proposals",
          "backward skipping", "backward at a coarser rate", "still with proposals",
          "still without proposals", "still skipping", "still turned back"}) {
        EXPECT_GT(seen[situation], 20U) << situation << " hardly ever happened";
    }
}

}  // namespace
}  // namespace Tavrin::Player
