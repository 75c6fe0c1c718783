#include "Playout/Percentiles.h"

#include <gtest/gtest.h>

namespace Tavrin::Playout {
namespace {

Percentiles OneToTwenty() {
    Percentiles values;
    for (int value = 20; value > 0; --value) {
        values.Add(value);
    }
    return values;
}

TEST(Percentiles, AreOfNearestRank) {
    const Percentiles values = OneToTwenty();
    EXPECT_EQ(values.At(50), 10);
    EXPECT_EQ(values.At(51), 11);
    EXPECT_EQ(values.At(95), 19);
    EXPECT_EQ(values.At(96), 20);
}

TEST(Percentiles, EndAtTheSmallestAndTheLargestValue) {
    const Percentiles values = OneToTwenty();
    EXPECT_EQ(values.At(0.001), 1);
    EXPECT_EQ(values.At(100), 20);
}

TEST(Percentiles, OfOneValueAreThatValue) {
    Percentiles values;
    values.Add(7);
    EXPECT_EQ(values.At(1), 7);
    EXPECT_EQ(values.At(99), 7);
    EXPECT_EQ(values.Count(), 1U);
}

TEST(Percentiles, WithoutValuesAreZero) {
    EXPECT_EQ(Percentiles().At(50), 0);
}

}  // namespace
}  // namespace Tavrin::Playout
