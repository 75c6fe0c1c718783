#include "Playout/LatencyHistogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

/// The finest that times are told apart.
constexpr nanoseconds kUnit{1024};

TEST(LatencyHistogram, OfNothingIsZero) {
    const LatencyHistogram histogram;
    EXPECT_EQ(histogram.Count(), 0U);
    EXPECT_EQ(histogram.Percentile(50), 0ns);
    EXPECT_EQ(histogram.Percentile(100), 0ns);
}

TEST(LatencyHistogram, OfOneTimeAllPercentilesAreThatTime) {
    LatencyHistogram histogram;
    histogram.Add(7ms);
    for (const double percent : {0.1, 50.0, 99.0, 100.0}) {
        EXPECT_EQ(histogram.Percentile(percent), 7ms) << percent;
    }
}

TEST(LatencyHistogram, SumAndLongestAreExact) {
    LatencyHistogram histogram;
    histogram.Add(1ns);
    histogram.Add(12'345'678ns);
    EXPECT_EQ(histogram.Sum(), 12'345'679ns);
    EXPECT_EQ(histogram.Longest(), 12'345'678ns);
}

TEST(LatencyHistogram, ATimeBelowZeroCountsAsZero) {
    LatencyHistogram histogram;
    histogram.Add(-5ms);
    EXPECT_EQ(histogram.Count(), 1U);
    EXPECT_EQ(histogram.Sum(), 0ns);
    EXPECT_EQ(histogram.Percentile(100), 0ns);
}

TEST(LatencyHistogram, TheHundredthPercentileIsTheLongest) {
    LatencyHistogram histogram;
    histogram.Add(1ms);
    histogram.Add(999'999'999ns);
    EXPECT_EQ(histogram.Percentile(100), 999'999'999ns);
}

TEST(LatencyHistogram, HoursAreCountedInTheLastBucket) {
    LatencyHistogram histogram;
    histogram.Add(1ms);
    histogram.Add(nanoseconds::max() / 2);
    EXPECT_EQ(histogram.Percentile(100), nanoseconds::max() / 2);
    EXPECT_LT(histogram.Percentile(50), 2ms);
}

TEST(LatencyHistogram, ASumOfTwoSaysTheSameAsOneOfAll) {
    LatencyHistogram left;
    LatencyHistogram right;
    LatencyHistogram all;
    for (int i = 1; i <= 100; ++i) {
        (i % 3 == 0 ? left : right).Add(i * 100us);
        all.Add(i * 100us);
    }
    left.Add(right);
    EXPECT_EQ(left.Count(), all.Count());
    EXPECT_EQ(left.Sum(), all.Sum());
    EXPECT_EQ(left.Longest(), all.Longest());
    for (int percent = 1; percent <= 100; ++percent) {
        EXPECT_EQ(left.Percentile(percent), all.Percentile(percent)) << percent;
    }
}

TEST(LatencyHistogram, EveryBucketEndsWhereTheNextBegins) {
    // A time a nanosecond longer is never in an earlier bucket, and the end of a bucket is in that bucket.
    nanoseconds end{0};
    for (nanoseconds time = 0ns; time < 68min; time = end + 1ns) {
        LatencyHistogram histogram;
        histogram.Add(time);
        histogram.Add(nanoseconds::max() / 2);
        end = histogram.Percentile(50);
        ASSERT_GE(end, time);
        ASSERT_LE(end - time, time / 8 + kUnit) << time.count();
        LatencyHistogram ofEnd;
        ofEnd.Add(end);
        ofEnd.Add(nanoseconds::max() / 2);
        ASSERT_EQ(ofEnd.Percentile(50), end);
    }
}

TEST(LatencyHistogram, PercentilesAreAtMostAnEighthAboveThoseOfAList) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::lognormal_distribution<double> distribution(15, 2);  // around 3 ms
        LatencyHistogram histogram;
        std::vector<nanoseconds> list;
        for (int i = 0; i < 500; ++i) {
            list.emplace_back(static_cast<nanoseconds::rep>(distribution(random)));
            histogram.Add(list.back());
        }
        std::sort(list.begin(), list.end());
        for (std::size_t percent = 1; percent <= 100; ++percent) {
            const nanoseconds exact = list.at(percent * list.size() / 100 - 1);
            const nanoseconds found = histogram.Percentile(static_cast<double>(percent));
            EXPECT_GE(found, exact) << "seed " << seed << ", " << percent << " %";
            EXPECT_LE(found, exact + exact / 8 + kUnit) << "seed " << seed << ", " << percent << " %";
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
