#include "Playout/SimulatedTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tavrin::Playout {
namespace {

constexpr double kNanosecondsPerMillisecond = 1e6;

/// In milliseconds, ascending.
std::vector<double> DrawMany(const std::string& text, std::size_t nb = 20'000) {
    const auto time = SimulatedTime::Parse(text);
    SimulatedRandom random(1, 0);
    std::vector<double> drawn;
    for (std::size_t i = 0; i < nb; ++i) {
        drawn.push_back(static_cast<double>(time.Draw(random).Nanoseconds()) / kNanosecondsPerMillisecond);
    }
    std::sort(drawn.begin(), drawn.end());
    return drawn;
}

double Percentile(const std::vector<double>& ascending, double percent) {
    return ascending[static_cast<std::size_t>(static_cast<double>(ascending.size()) * percent / 100)];
}

TEST(SimulatedRandom, IsTheSameForTheSameSeedAndStream) {
    SimulatedRandom one(7, 3);
    SimulatedRandom other(7, 3);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(one.Fraction(), other.Fraction());
    }
}

TEST(SimulatedRandom, DiffersBetweenStreamsAndSeeds) {
    const double first = SimulatedRandom(7, 3).Fraction();
    EXPECT_NE(first, SimulatedRandom(7, 4).Fraction());
    EXPECT_NE(first, SimulatedRandom(8, 3).Fraction());
}

TEST(SimulatedRandom, IsEvenlyDistributedBetweenZeroAndOne) {
    SimulatedRandom random(1, 1);
    std::vector<int> tenths(10);
    for (int i = 0; i < 10'000; ++i) {
        const double drawn = random.Fraction();
        ASSERT_GT(drawn, 0);
        ASSERT_LT(drawn, 1);
        ++tenths[static_cast<std::size_t>(drawn * 10)];
    }
    for (const int nb : tenths) {
        EXPECT_NEAR(nb, 1000, 150);
    }
}

TEST(SimulatedTime, OfANumberIsAlwaysThatNumberOfMilliseconds) {
    const auto drawn = DrawMany("2.5", 10);
    EXPECT_EQ(drawn.front(), 2.5);
    EXPECT_EQ(drawn.back(), 2.5);
}

TEST(SimulatedTime, UniformLiesBetweenItsBounds) {
    const auto drawn = DrawMany("uniform:2,10");
    EXPECT_GE(drawn.front(), 2);
    EXPECT_LE(drawn.back(), 10);
    EXPECT_NEAR(Percentile(drawn, 50), 6, 0.2);
}

TEST(SimulatedTime, LogNormalHasItsPercentiles) {
    const auto drawn = DrawMany("lognormal:5,40");
    EXPECT_NEAR(Percentile(drawn, 50), 5, 0.25);
    EXPECT_NEAR(Percentile(drawn, 99), 40, 5);
}

TEST(SimulatedTime, HeavyHasItsPercentilesAndATailBeyondALogNormalOne) {
    const auto drawn = DrawMany("heavy:5,40");
    EXPECT_NEAR(Percentile(drawn, 50), 5, 0.25);
    EXPECT_NEAR(Percentile(drawn, 99), 40, 6);
    EXPECT_GT(Percentile(drawn, 99.9), 1.5 * Percentile(DrawMany("lognormal:5,40"), 99.9));
}

TEST(SimulatedTime, HeavyIsCutOffAtAHundredTimesThe99thPercentile) {
    EXPECT_LE(DrawMany("heavy:1,50", 200'000).back(), 5000);
}

TEST(SimulatedTime, IsWrittenAsItWasRead) {
    EXPECT_EQ(SimulatedTime::Parse("lognormal:5,40").ToString(), "lognormal:5,40");
}

TEST(SimulatedTime, RefusesWhatIsNoneOfTheFormsNamingIt) {
    for (const std::string text :
         {"", "-1", "1,2", "60001", "8ms", "normal:1,2", "uniform:5", "uniform:5,4", "uniform:1,2,3",
          "lognormal:0,5", "heavy:0,0", "lognormal:40,5", "nan", "inf", "uniform:,", ":5", "1e3"}) {
        try {
            static_cast<void>(SimulatedTime::Parse(text));
            FAIL() << "'" << text << "' was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(std::string(error.what()).rfind("'" + text + "' is no length of time: it must be", 0),
                      0U)
                << error.what();
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
