#include "Tools/LoopRecordingVector.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <thread>

namespace Tavrin::Tools {
namespace {

/// Long enough to hold everything that a test pushes.
constexpr int kLong = 1000000;

LoopRecordingVector& Filled(LoopRecordingVector& ring, int from, int to) {
    for (int value = from; value <= to; ++value) {
        ring.Push(value);
    }
    return ring;
}

TEST(LoopRecordingVector, AverageOfNothingIsZero) {
    LoopRecordingVector ring;
    EXPECT_EQ(ring.AverageSince(1000), 0.0);
    ring.Resize(5);
    EXPECT_EQ(ring.AverageSince(1000), 0.0);
}

TEST(LoopRecordingVector, AverageIsNotTruncated) {
    LoopRecordingVector ring;
    ring.Resize(5);
    ring.Push(1);
    ring.Push(2);
    EXPECT_DOUBLE_EQ(ring.AverageSince(kLong), 1.5);
}

TEST(LoopRecordingVector, OldestIsDroppedWhenFull) {
    LoopRecordingVector ring;
    ring.Resize(3);
    EXPECT_DOUBLE_EQ(Filled(ring, 1, 10).AverageSince(kLong), 9.0) << "8, 9 and 10 are held";
}

TEST(LoopRecordingVector, HoldsNothingBeforeResize) {
    LoopRecordingVector ring;
    EXPECT_EQ(Filled(ring, 1, 10).AverageSince(kLong), 0.0);
}

TEST(LoopRecordingVector, ShrinkingKeepsTheNewest) {
    LoopRecordingVector ring;
    ring.Resize(4);
    Filled(ring, 1, 6);
    ring.Resize(2);
    EXPECT_DOUBLE_EQ(ring.AverageSince(kLong), 5.5) << "5 and 6 are held";
    ring.Push(7);
    EXPECT_DOUBLE_EQ(ring.AverageSince(kLong), 6.5);
}

TEST(LoopRecordingVector, GrowingKeepsWhatIsHeldInOrder) {
    LoopRecordingVector ring;
    ring.Resize(2);
    Filled(ring, 1, 3);
    ring.Resize(3);
    Filled(ring, 4, 5);
    EXPECT_DOUBLE_EQ(ring.AverageSince(kLong), 4.0) << "3, 4 and 5 are held";
}

TEST(LoopRecordingVector, OnlyValuesOfTheLastMillisecondsCount) {
    LoopRecordingVector ring;
    ring.Resize(3);
    ring.Push(100);
    // The clock itself is the subject here: the value must grow old by a few milliseconds.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(ring.AverageSince(10), 0.0);
    EXPECT_EQ(ring.AverageSince(kLong), 100.0);
}

TEST(LoopRecordingVector, ValueIsAsOldAsTheMomentHandedOverWithIt) {
    LoopRecordingVector ring;
    ring.Resize(3);
    const auto now = std::chrono::steady_clock::now();
    ring.Push(100, now - std::chrono::hours(1));
    ring.Push(200, now);
    EXPECT_EQ(ring.AverageSince(kLong), 200.0);
    EXPECT_EQ(ring.AverageSince(2 * 3600 * 1000), 150.0);
}

TEST(LoopRecordingVector, HugeValuesDoNotOverflowTheSum) {
    LoopRecordingVector ring;
    ring.Resize(2);
    const auto huge = std::numeric_limits<std::int64_t>::max();
    ring.Push(huge);
    ring.Push(huge);
    EXPECT_DOUBLE_EQ(ring.AverageSince(kLong), static_cast<double>(huge));
}

TEST(LoopRecordingVector, PushAndAverageMayOverlap) {
    LoopRecordingVector ring;
    ring.Resize(50);
    std::thread pusher([&] {
        for (int i = 0; i < 20000; ++i) {
            ring.Push(7);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        const double average = ring.AverageSince(kLong);
        EXPECT_TRUE(average == 0.0 || average == 7.0) << average;
    }
    pusher.join();
}

}  // namespace
}  // namespace Tavrin::Tools
