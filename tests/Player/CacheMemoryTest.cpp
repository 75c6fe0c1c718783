// What a cache costs in memory, for each of its entries, and that it gives back what it no longer needs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Player/Cache.h"
#include "Player/Player.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/UncountedSample.h"

namespace Tavrin::Player {
namespace {

using Testing::LiveBytes;
using Testing::StartOf;
using Testing::UncountedSample;
using Time::TimePoint;

const SampleRate kRate(25, 1);

/// Room for the key, the type and the output, with as much again for what finds them.
constexpr std::int64_t kBytesPerEntry = 200;

using Numbers = std::vector<std::int64_t>;

Numbers Row(std::int64_t nb, std::int64_t stride = 1) {
    Numbers numbers(static_cast<std::size_t>(nb));
    std::generate(numbers.begin(), numbers.end(),
                  [next = -stride, stride]() mutable { return next += stride; });
    return numbers;
}

/// Which of the samples filed are protected, by number; null for none.
using IsProtected = bool (*)(std::int64_t);

/// Asks and answers one by one, as in play, so that the queue stays short and what is measured is the entries.
void Fill(Cache& cache, const Numbers& numbers, IsProtected isProtected = nullptr) {
    for (const std::int64_t number : numbers) {
        Output output;
        output.tp_ = StartOf(number, kRate);
        if (cache.InsertPendingEntry(output.tp_)) {
            continue;
        }
        output.sample_ = new UncountedSample(output.tp_);
        if (isProtected != nullptr && isProtected(number)) {
            output.sample_->Protect(1);
        }
        cache.GetQueue()->Push(output);
        cache.Update();
    }
}

std::int64_t NbEntries(const Cache& cache) {
    return cache.GetInformation().cacheSize_;
}

class CacheMemory : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Testing::AllocationsAreCounted()) {
            GTEST_SKIP() << "this build's operator new cannot be counted";
        }
        cache_.SetStreamSampleRate(kRate);
        start_ = LiveBytes();
    }

    /// What the cache holds beyond an empty one that has never held anything.
    std::int64_t Held() const { return LiveBytes() - start_; }

    void ExpectAtMostPerEntry(std::int64_t nbBytes) {
        const std::int64_t held = Held();
        const std::int64_t nbEntries = NbEntries(cache_);
        ASSERT_GT(nbEntries, 0);
        EXPECT_GE(held, 16 * nbEntries) << "no cache can be that small: bytes are not counted";
        EXPECT_LE(held, nbBytes * nbEntries) << held / nbEntries << " bytes per entry";
        RecordProperty("bytesPerEntry", std::to_string(held / nbEntries));
        std::cout << held / nbEntries << " bytes per entry" << std::endl;
    }

    Cache cache_;
    std::int64_t start_ = 0;
};

TEST_F(CacheMemory, OfAThousandEntriesInARowIsBounded) {
    Fill(cache_, Row(1000));
    ExpectAtMostPerEntry(kBytesPerEntry);
}

TEST_F(CacheMemory, OfAThousandEntriesSixteenSamplesApartIsBounded) {
    Fill(cache_, Row(1000, 16));
    ExpectAtMostPerEntry(kBytesPerEntry);
}

TEST_F(CacheMemory, OfAThousandEntriesAddedBackwardIsBounded) {
    Numbers numbers = Row(1000);
    std::reverse(numbers.begin(), numbers.end());
    Fill(cache_, numbers);
    ExpectAtMostPerEntry(kBytesPerEntry);
}

TEST_F(CacheMemory, OfAThousandEntriesAddedInAnyOrderIsBounded) {
    Numbers numbers = Row(1000);
    Testing::Random random(Testing::TestSeed());
    random.Shuffle(numbers);
    start_ = LiveBytes();  // the numbers are not the cache's
    Fill(cache_, numbers);
    ExpectAtMostPerEntry(2 * kBytesPerEntry);
}

TEST_F(CacheMemory, OfAHundredEntriesIsBounded) {
    Fill(cache_, Row(100));
    ExpectAtMostPerEntry(2 * kBytesPerEntry);
}

TEST_F(CacheMemory, OfOneInTenEntriesThatStayScatteredIsBounded) {
    Fill(cache_, Row(10'000), [](std::int64_t number) { return number * 7919 % 10'007 < 1000; });
    cache_.EraseBefore(TimePoint::GetHighestTimePoint());
    ASSERT_LT(NbEntries(cache_), 1100);
    ExpectAtMostPerEntry(4 * kBytesPerEntry);
}

TEST_F(CacheMemory, OfAWindowThatShrinksFromTenThousandEntriesToTenIsGivenBack) {
    Fill(cache_, Row(10'000));
    const std::int64_t peak = Held();
    cache_.EraseBefore(StartOf(9990, kRate));
    // The entry at the origin counts as the one in use until another is looked up.
    ASSERT_LE(NbEntries(cache_), 11);
    EXPECT_LE(Held(), peak / 20);
}

TEST_F(CacheMemory, OfAWindowThatShrinksFromItsEndIsGivenBack) {
    Fill(cache_, Row(10'000));
    const std::int64_t peak = Held();
    cache_.EraseAfter(StartOf(9, kRate), Cache::Not_Found);
    ASSERT_EQ(NbEntries(cache_), 10);
    EXPECT_LE(Held(), peak / 20);
}

TEST_F(CacheMemory, IsGivenBackByClear) {
    Fill(cache_, Row(10'000));
    const std::int64_t peak = Held();
    cache_.Clear();
    EXPECT_LE(Held(), peak / 20);
}

/// Once each entry had a block of its own there.
TEST_F(CacheMemory, OfAWindowFilledBackwardBehindAFullBlockIsBounded) {
    Numbers behind(1000);
    std::generate(behind.begin(), behind.end(), [next = std::int64_t{5000}]() mutable { return --next; });
    for (const std::int64_t nbFirst :
         {8, 16, 24, 32, 48, 64}) {  // some of them fill a block to its last slot
        cache_.Clear();
        start_ = LiveBytes();
        Fill(cache_, Row(nbFirst));
        Fill(cache_, behind);
        ExpectAtMostPerEntry(kBytesPerEntry);
    }
}

TEST_F(CacheMemory, OfAWindowDoesNotGrowWithTheDistanceItHasMoved) {
    Fill(cache_, Row(200));
    const std::int64_t atFirst = Held();
    for (std::int64_t head = 200; head < 50'000; ++head) {
        Fill(cache_, {head});
        cache_.EraseBefore(StartOf(head - 200, kRate));
    }
    EXPECT_LE(Held(), 2 * atFirst + 4096);
}

TEST_F(CacheMemory, WithAPlannerIsBoundedAndGivenBackWhenTheWindowShrinks) {
    PreloadTimePointGenerator planner;
    planner.SetSampleRate(kRate);
    planner.SetDisplayRate(kRate);
    planner.SetCache(&cache_);
    Player player;
    start_ = LiveBytes();
    Fill(cache_, Row(10'000, 2));  // no two in a row: nothing can be said of several at once
    planner.Update(&player);
    ExpectAtMostPerEntry(2 * kBytesPerEntry);
    const std::int64_t peak = Held();
    cache_.EraseBefore(StartOf(19'980, kRate));
    ASSERT_LE(NbEntries(cache_), 11);
    planner.Update(&player);
    EXPECT_LE(Held(), peak / 20);
}

TEST_F(CacheMemory, OfAWholeTrackWithAHundredEntriesIsBounded) {
    const std::int64_t before = LiveBytes();
    const auto cache = std::make_unique<Cache>();
    const auto planner = std::make_unique<PreloadTimePointGenerator>();
    cache->SetStreamSampleRate(kRate);
    planner->SetSampleRate(kRate);
    planner->SetDisplayRate(kRate);
    planner->SetCache(cache.get());
    Fill(*cache, Row(100));
    Player player;
    const std::int64_t withPlayer = LiveBytes();
    planner->Update(&player);
    const std::int64_t nbBytes = LiveBytes() - before;
    ASSERT_GE(withPlayer - before, 16 * 100);
    EXPECT_LE(nbBytes, 40'000);
    RecordProperty("bytesPerTrack", std::to_string(nbBytes));
    std::cout << nbBytes << " bytes per track" << std::endl;
}

}  // namespace
}  // namespace Tavrin::Player
