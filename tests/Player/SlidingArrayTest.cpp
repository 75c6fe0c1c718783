#include "Player/SlidingArray.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "Player/Support/AllocationCount.h"
#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

using Array = SlidingArray<int>;

std::vector<int> All(const Array& array) {
    return {array.begin(), array.end()};
}

TEST(SlidingArray, IsEmptyAtFirst) {
    const Array array;
    EXPECT_TRUE(array.empty());
    EXPECT_EQ(array.Capacity(), 0U);
    EXPECT_EQ(All(Array(array)), std::vector<int>());
}

TEST(SlidingArray, RandomChangesGiveWhatAVectorGives) {
    Testing::Random random(Testing::TestSeed());
    constexpr int kNbSequences = 100;
    constexpr int kNbSteps = 600;
    for (int sequence = 0; sequence < kNbSequences; ++sequence) {
        Array array;
        std::vector<int> model;
        const int endPercent = static_cast<int>(random.Between(0, 90));
        for (int step = 0; step < kNbSteps; ++step) {
            const auto place = [&](std::size_t last) -> std::size_t {
                if (random.Chance(endPercent)) {
                    return random.Chance(50) ? 0 : last;
                }
                return static_cast<std::size_t>(random.Between(0, static_cast<std::int64_t>(last)));
            };
            if (model.empty() || random.Chance(step < kNbSteps / 2 ? 60 : 40)) {
                const std::size_t at = place(model.size());
                array.Insert(at, step);
                model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), step);
            } else {
                const std::size_t from = place(model.size() - 1);
                const std::size_t to = std::min(model.size(), from + (random.Chance(80) ? 1 : 5));
                array.Erase(from, to);
                model.erase(model.begin() + static_cast<std::ptrdiff_t>(from),
                            model.begin() + static_cast<std::ptrdiff_t>(to));
            }
            if (random.Chance(2)) {
                array.GiveBack(4);
                ASSERT_LE(array.Capacity(), std::max<std::size_t>(4, 4 * array.size()));
            }
            ASSERT_EQ(All(array), model);
            if (!model.empty()) {
                ASSERT_EQ(array.Front(), model.front());
                ASSERT_EQ(array.Back(), model.back());
            }
        }
        Array copy;
        copy.Insert(0, 7);
        copy = array;
        ASSERT_EQ(All(copy), model);
        array.Clear();
        ASSERT_TRUE(array.empty());
    }
}

TEST(SlidingArray, AWindowThatSlidesAllocatesNothing) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "this build's operator new cannot be counted";
    }
    for (const bool isForward : {true, false}) {
        Array array;
        for (int i = 0; i < 100; ++i) {
            array.Insert(array.size(), i);
        }
        const std::size_t before = Testing::NbAllocations();
        for (int i = 0; i < 10'000; ++i) {
            array.Insert(isForward ? array.size() : 0, i);
            array.Erase(isForward ? 0 : array.size() - 1);
        }
        EXPECT_LE(Testing::NbAllocations(), before + 1) << "the first lap may still find too little room";
        const std::size_t settled = Testing::NbAllocations();
        for (int i = 0; i < 10'000; ++i) {
            array.Insert(isForward ? array.size() : 0, i);
            array.Erase(isForward ? 0 : array.size() - 1);
        }
        EXPECT_EQ(Testing::NbAllocations(), settled);
    }
}

TEST(SlidingArray, WithoutMemoryAFullArrayIsUnchangedAndAnotherGoesOn) {
    if (!Testing::AllocationsAreCounted()) {
        GTEST_SKIP() << "this build's operator new cannot be made to fail";
    }
    Array array;
    array.Reserve(10);
    // With so few places left at the end it looks for more memory, and does without.
    for (int i = 0; i < 10; ++i) {
        if (i >= 8) {
            Testing::FailNextAllocation();
        }
        array.Insert(array.size(), i);
    }
    ASSERT_EQ(array.Capacity(), 10U);
    Testing::FailNextAllocation();
    EXPECT_THROW(array.Insert(array.size(), 10), std::bad_alloc);
    EXPECT_EQ(All(array), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

}  // namespace
}  // namespace Tavrin::Player
