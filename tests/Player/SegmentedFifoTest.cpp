#include "Player/SegmentedFifo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <new>
#include <stdexcept>
#include <string>

#include "Player/Support/AllocationCount.h"
#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

using Testing::AllocationsAreCounted;
using Testing::NbAllocations;

// NOLINTBEGIN(readability-identifier-naming): the names that a clock of the standard has
/// A clock that the test advances.
struct HandClock {
    using duration = std::chrono::seconds;
    using time_point = std::chrono::time_point<HandClock, duration>;

    static time_point now() { return time_point(duration(second_)); }

    static inline int second_ = 0;
};
// NOLINTEND(readability-identifier-naming)

using Fifo = SegmentedFifo<int, HandClock>;
constexpr auto kPerSegment = static_cast<int>(Fifo::kNbEntriesPerSegment);
constexpr auto kPeriod = static_cast<int>(Fifo::kQuietPeriod.count());
constexpr auto kPerLook = static_cast<int>(Fifo::kNbRoundsPerLook);

template <typename AnyFifo, typename Entry>
void PushTo(AnyFifo& fifo, int nb, const Entry& entry) {
    for (int i = 0; i < nb; ++i) {
        fifo.Push(entry);
    }
}

template <typename AnyFifo, typename Entry>
void PopAll(AnyFifo& fifo, Entry& out) {
    while (fifo.Pop(out)) {
    }
}

/// Fills it with `nb` entries and runs it empty, `nbRounds` times.
void Rounds(Fifo& fifo, int nbRounds, int nb) {
    int out = 0;
    for (int round = 0; round < nbRounds; ++round) {
        PushTo(fifo, nb, round);
        PopAll(fifo, out);
    }
}

TEST(SegmentedFifo, HoldsNoMemoryBeforeTheFirstPush) {
    const std::size_t before = NbAllocations();
    const Fifo fifo;
    EXPECT_EQ(NbAllocations(), before);
    EXPECT_EQ(fifo.GetCapacity(), 0U);
    EXPECT_EQ(fifo.GetSize(), 0U);
}

TEST(SegmentedFifo, PopOfNothingLeavesTheTargetUntouched) {
    Fifo fifo;
    int out = 7;
    EXPECT_FALSE(fifo.Pop(out));
    fifo.Push(1);
    EXPECT_TRUE(fifo.Pop(out));
    EXPECT_FALSE(fifo.Pop(out));
    EXPECT_EQ(out, 1);
}

TEST(SegmentedFifo, EqualsADequeWhateverIsPushedPoppedAndCleared) {
    Testing::Random random(Testing::TestSeed());
    Fifo fifo;
    std::deque<int> literal;
    int next = 0;
    for (int step = 0; step < 2000; ++step) {
        // Runs longer than segments, so that their borders are met at either end.
        const auto run = random.Between(0, 3 * kPerSegment);
        const auto action = random.Between(0, 40);
        if (action == 0) {
            fifo.Clear();
            literal.clear();
        }
        for (int i = 0; i < run; ++i) {
            if (action <= 20) {
                fifo.Push(next);
                literal.push_back(next++);
                continue;
            }
            int out = -1;
            ASSERT_EQ(fifo.Pop(out), !literal.empty());
            if (!literal.empty()) {
                ASSERT_EQ(out, literal.front());
                literal.pop_front();
            }
        }
        ASSERT_EQ(fifo.GetSize(), literal.size());
    }
}

TEST(SegmentedFifo, RoundsOfTheSameSizeAllocateNothingAfterTheFirst) {
    Fifo fifo;
    Rounds(fifo, 1, 1000);
    const std::size_t before = NbAllocations();
    for (int i = 0; i < 3 * kPeriod; ++i) {
        Rounds(fifo, kPerLook, 1000);
        ++HandClock::second_;
    }
    EXPECT_EQ(NbAllocations(), before);
}

TEST(SegmentedFifo, ABacklogThatMovesOnAllocatesNothing) {
    Fifo fifo;
    PushTo(fifo, 5 * kPerSegment, 1);
    int out = 0;
    const auto moveOn = [&] {
        for (int i = 0; i < 20 * kPerSegment; ++i) {
            fifo.Push(i);
            fifo.Pop(out);
        }
    };
    moveOn();
    const std::size_t before = NbAllocations();
    moveOn();
    EXPECT_EQ(NbAllocations(), before);
}

TEST(SegmentedFifo, WhatEntriesAllocateIsReusedToo) {
    const std::string address = "storage-17.recordings.example.org";
    SegmentedFifo<std::string> fifo;
    std::string out;
    // Twice: the segment that was last and half full is first and full the second time.
    for (int round = 0; round < 2; ++round) {
        PushTo(fifo, 100, address);
        PopAll(fifo, out);
    }
    const std::size_t before = NbAllocations();
    PushTo(fifo, 100, address);
    PopAll(fifo, out);
    EXPECT_EQ(NbAllocations(), before);
    EXPECT_EQ(out, address);
}

/// Hardly anything to hold for that long.
void BeQuietFor(Fifo& fifo, int seconds) {
    for (int i = 0; i < seconds; ++i) {
        Rounds(fifo, kPerLook, 10);
        ++HandClock::second_;
    }
    Rounds(fifo, kPerLook, 10);
}

TEST(SegmentedFifo, GivesMemoryBackStepByStepAfterABurst) {
    Fifo fifo;
    Rounds(fifo, 1, 64 * kPerSegment);
    const std::size_t atTheBurst = fifo.GetCapacity();
    EXPECT_EQ(atTheBurst, 64 * Fifo::kNbEntriesPerSegment);
    BeQuietFor(fifo, kPeriod - 1);
    EXPECT_EQ(fifo.GetCapacity(), atTheBurst);
    BeQuietFor(fifo, 1);
    // A few segments each time, so that nobody waits long for the lock under which it happens.
    for (std::size_t before = atTheBurst; before > atTheBurst / 2; before = fifo.GetCapacity()) {
        Rounds(fifo, 1, 10);
        ASSERT_LT(fifo.GetCapacity(), before);
        ASSERT_GE(fifo.GetCapacity() + 8 * Fifo::kNbEntriesPerSegment, before);
    }
    Rounds(fifo, 1, 10);
    EXPECT_EQ(fifo.GetCapacity(), atTheBurst / 2);
    BeQuietFor(fifo, 10 * kPeriod);
    EXPECT_LT(fifo.GetCapacity(), 4 * Fifo::kNbEntriesPerSegment);
}

TEST(SegmentedFifo, KeepsTheMemoryOfBurstsThatComeBack) {
    Fifo fifo;
    for (int i = 0; i < 20; ++i) {
        Rounds(fifo, 1, 64 * kPerSegment);
        BeQuietFor(fifo, kPeriod - 1);
        ASSERT_EQ(fifo.GetCapacity(), 64 * Fifo::kNbEntriesPerSegment);
    }
}

TEST(SegmentedFifo, KeepsTheMemoryOfABurstHoweverOftenItRunsEmptySoonAfter) {
    Fifo fifo;
    Rounds(fifo, 1, 64 * kPerSegment);
    Rounds(fifo, 100000, 1);
    EXPECT_EQ(fifo.GetCapacity(), 64 * Fifo::kNbEntriesPerSegment);
}

TEST(SegmentedFifo, ClearGivesAllMemoryBack) {
    Fifo fifo;
    PushTo(fifo, 1000, 1);
    fifo.Clear();
    EXPECT_EQ(fifo.GetCapacity(), 0U);
    EXPECT_EQ(fifo.GetSize(), 0U);
    int out = 0;
    EXPECT_FALSE(fifo.Pop(out));
    fifo.Push(5);
    EXPECT_TRUE(fifo.Pop(out));
    EXPECT_EQ(out, 5);
}

/// Counts the objects that live, and throws from any copy when told to.
class Fragile {
public:
    explicit Fragile(int number) : number_(number) { ++nbLive; }
    Fragile(const Fragile& other) : number_(other.number_) {
        ThrowIfToldTo();
        ++nbLive;
    }
    Fragile& operator=(const Fragile& other) {
        ThrowIfToldTo();
        number_ = other.number_;
        return *this;
    }
    ~Fragile() { --nbLive; }

    static void ThrowIfToldTo() {
        if (throws) {
            throw std::runtime_error("cannot be copied now");
        }
    }

    int number_;
    static inline int nbLive = 0;
    static inline bool throws = false;
};

/// What is left after pushes, at every fill level from `nbBefore` on, of which each second one throws.
void ExpectUnharmedByThrowingCopies(int nbBefore) {
    SegmentedFifo<Fragile> fifo;
    Fragile out(-1);
    // Slots that held an entry before are assigned, others are constructed: half of each.
    PushTo(fifo, nbBefore / 2, Fragile(-2));
    PopAll(fifo, out);
    constexpr int kNbPushed = 100;
    for (int number = 0; number < kNbPushed; ++number) {
        Fragile::throws = true;
        EXPECT_THROW(fifo.Push(Fragile(-3)), std::runtime_error);
        if (number > 0) {
            EXPECT_THROW(fifo.Pop(out), std::runtime_error);
        }
        Fragile::throws = false;
        ASSERT_EQ(fifo.GetSize(), static_cast<std::size_t>(number));
        fifo.Push(Fragile(number));
    }
    for (int number = 0; number < kNbPushed; ++number) {
        ASSERT_TRUE(fifo.Pop(out));
        ASSERT_EQ(out.number_, number);
    }
    EXPECT_FALSE(fifo.Pop(out));
}

TEST(SegmentedFifo, ACopyThatThrowsLeavesItAsItWas) {
    ExpectUnharmedByThrowingCopies(0);
    ExpectUnharmedByThrowingCopies(100);
}

TEST(SegmentedFifo, EveryEntryEverMadeIsDestroyed) {
    const int before = Fragile::nbLive;
    {
        SegmentedFifo<Fragile> fifo;
        PushTo(fifo, 1000, Fragile(1));
        Fragile out(0);
        PopAll(fifo, out);
        PushTo(fifo, 500, Fragile(2));
        fifo.Clear();
        EXPECT_EQ(Fragile::nbLive, before + 1) << "only the target of Pop";
        PushTo(fifo, 500, Fragile(3));
    }
    EXPECT_EQ(Fragile::nbLive, before);
}

TEST(SegmentedFifo, MemoryThatCannotBeHadLeavesItAsItWas) {
    if (!AllocationsAreCounted()) {
        GTEST_SKIP() << "allocations cannot be made to fail in this build";
    }
    Fifo fifo;
    Testing::FailNextAllocation();
    EXPECT_THROW(fifo.Push(0), std::bad_alloc);
    EXPECT_EQ(fifo.GetSize(), 0U);
    PushTo(fifo, kPerSegment, 1);
    Testing::FailNextAllocation();
    EXPECT_THROW(fifo.Push(2), std::bad_alloc);
    EXPECT_EQ(fifo.GetSize(), Fifo::kNbEntriesPerSegment);
    fifo.Push(3);
    int out = 0;
    PopAll(fifo, out);
    EXPECT_EQ(out, 3);
}

TEST(SegmentedFifo, ALongOneIsFreedWithoutNestedCalls) {
    Fifo fifo;
    PushTo(fifo, 20'000'000, 1);
    fifo.Clear();
    EXPECT_EQ(fifo.GetCapacity(), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
