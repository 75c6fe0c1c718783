#include "Player/CacheUpdateQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::Ns;
using Testing::SampleCensus;

Output Make(ISample* sample, const Time::TimePoint& tp) {
    Output output;
    output.sample_ = sample;
    output.tp_ = tp;
    return output;
}

/// Whether a queue type offers to be counted and emptied; this one is neither.
template <typename Queue>
concept IsCounted = requires(Queue queue) {
    queue.GetSize();
};
template <typename Queue>
concept IsClearable = requires(Queue queue) {
    queue.Clear();
};

TEST(CacheUpdateQueue, IsNeitherCopiedNorCountedNorCleared) {
    EXPECT_FALSE(std::is_copy_constructible_v<CacheUpdateQueue>);
    EXPECT_FALSE(std::is_copy_assignable_v<CacheUpdateQueue>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CacheUpdateQueue>);
    EXPECT_FALSE(IsCounted<CacheUpdateQueue>);
    EXPECT_FALSE(IsClearable<CacheUpdateQueue>);
}

TEST(CacheUpdateQueue, PopOnAnEmptyOneReturnsFalseAndLeavesTheTargetUntouched) {
    SampleCensus census;
    CacheUpdateQueue queue;
    Output target = Make(census.Make(), Ms(40));
    const Output before = target;
    EXPECT_FALSE(queue.Pop(target));
    EXPECT_TRUE(target == before);
}

TEST(CacheUpdateQueue, OutputsComeOutInTheOrderOfTheirPushes) {
    SampleCensus census;
    CacheUpdateQueue queue;
    std::vector<Output> pushed;
    for (int i = 0; i < 1000; ++i) {
        pushed.push_back(Make(i % 3 == 0 ? nullptr : census.Make(), Ms(i % 7)));
        queue.Push(pushed.back());
    }
    Output popped;
    for (const Output& expected : pushed) {
        ASSERT_TRUE(queue.Pop(popped));
        EXPECT_TRUE(popped == expected);
    }
    EXPECT_FALSE(queue.Pop(popped));
}

TEST(CacheUpdateQueue, PushTakesACopy) {
    CacheUpdateQueue queue;
    Output output = Make(nullptr, Ms(40));
    queue.Push(output);
    output.tp_ = Ms(80);
    Output popped;
    ASSERT_TRUE(queue.Pop(popped));
    EXPECT_EQ(popped.tp_, Ms(40));
}

TEST(CacheUpdateQueue, DestructionDeletesTheSamplesOfLeftOutputsOnceAndDropsNullOnes) {
    SampleCensus census;
    {
        CacheUpdateQueue queue;
        for (int i = 0; i < 10; ++i) {
            queue.Push(Make(i % 2 == 0 ? census.Make() : nullptr, Ms(i)));
        }
    }
    EXPECT_EQ(census.NbMade(), 5U);
    EXPECT_EQ(census.NbLive(), 0U);
    EXPECT_EQ(census.NbAbused(), 0U);
}

TEST(CacheUpdateQueue, DestructionDeletesProtectedSamplesToo) {
    SampleCensus census;
    Testing::CountedSample* sample = census.Make();
    sample->Protect(1);
    {
        CacheUpdateQueue queue;
        queue.Push(Make(sample, Ms(40)));
    }
    EXPECT_TRUE(sample->Deleted());
}

TEST(CacheUpdateQueue, PoppedSamplesBelongToWhoeverPoppedThem) {
    SampleCensus census;
    {
        CacheUpdateQueue queue;
        queue.Push(Make(census.Make(), Ms(40)));
        Output popped;
        ASSERT_TRUE(queue.Pop(popped));
    }
    EXPECT_EQ(census.NbLive(), 1U);
}

TEST(CacheUpdateQueue, PushesOfOneThreadKeepTheirOrderAmongThoseOfOthers) {
    constexpr std::size_t kNbProducers = 4;
    constexpr int kNbEach = 1000;
    CacheUpdateQueue queue;
    SampleCensus census;
    std::vector<ISample*> marks;
    for (std::size_t p = 0; p < kNbProducers; ++p) {
        marks.push_back(census.Make());
    }
    std::vector<std::thread> producers;
    producers.reserve(kNbProducers);
    for (std::size_t p = 0; p < kNbProducers; ++p) {
        producers.emplace_back([&queue, mark = marks[p]] {
            for (int i = 0; i < kNbEach; ++i) {
                queue.Push(Make(mark, Ns(i)));
            }
        });
    }
    std::vector<int> next(kNbProducers, 0);
    std::size_t nbPopped = 0;
    Output popped;
    const auto take = [&] {
        while (queue.Pop(popped)) {
            ++nbPopped;
            for (std::size_t p = 0; p < kNbProducers; ++p) {
                if (popped.sample_ == marks[p]) {
                    EXPECT_EQ(popped.tp_, Ns(next[p]++));
                }
            }
        }
    };
    for (int i = 0; i < 1000; ++i) {
        take();
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    take();
    EXPECT_EQ(nbPopped, kNbProducers * kNbEach);
    EXPECT_EQ(next, std::vector<int>(kNbProducers, kNbEach));
}

TEST(CacheUpdateQueue, EverySampleIsPoppedByExactlyOneOfSeveralConsumers) {
    constexpr int kNbConsumers = 3;
    constexpr int kNbOutputs = 3000;
    SampleCensus census;
    std::atomic<bool> allPushed = false;
    {
        CacheUpdateQueue queue;
        std::vector<std::thread> consumers;
        consumers.reserve(kNbConsumers);
        for (int c = 0; c < kNbConsumers; ++c) {
            consumers.emplace_back([&] {
                Output popped;
                for (bool last = false; !last;) {
                    last = allPushed;
                    while (queue.Pop(popped)) {
                        delete popped.sample_;
                    }
                }
            });
        }
        for (int i = 0; i < kNbOutputs; ++i) {
            queue.Push(Make(census.Make(), Ns(i)));
        }
        allPushed = true;
        for (std::thread& consumer : consumers) {
            consumer.join();
        }
        EXPECT_EQ(census.NbLive(), 0U);
    }
    EXPECT_EQ(census.NbAbused(), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
