#include "Player/DecodeOrderQueue.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <thread>
#include <type_traits>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ISampleDecoder.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

using Testing::Ns;
using Testing::SampleCensus;

DecodeOrder Make(std::int32_t width, std::int64_t ns) {
    DecodeOrder order;
    order.width_ = width;
    order.orderTp_ = Ns(ns);
    return order;
}

TEST(DecodeOrderQueue, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<DecodeOrderQueue>);
    EXPECT_FALSE(std::is_copy_assignable_v<DecodeOrderQueue>);
    EXPECT_TRUE(std::has_virtual_destructor_v<DecodeOrderQueue>);
}

TEST(DecodeOrderQueue, PopOnAnEmptyOneReturnsFalseAndLeavesTheTargetUntouched) {
    DecodeOrderQueue queue;
    DecodeOrder target = Make(7, 40);
    EXPECT_FALSE(queue.Pop(target));
    EXPECT_EQ(target.width_, 7);
    EXPECT_EQ(target.orderTp_, Ns(40));
}

TEST(DecodeOrderQueue, OrdersComeOutWholeInTheOrderOfTheirPushes) {
    SampleCensus census;
    CacheUpdateQueue results;
    DecodeOrderQueue queue;
    std::vector<ISample*> samples;
    for (int i = 0; i < 1000; ++i) {
        DecodeOrder order = Make(i % 3, i % 7);
        samples.push_back(census.Make());
        order.toDecode_ = samples.back();
        order.queue_ = &results;
        order.isInterlace_ = i % 2 == 0;
        order.decodeTopField_ = i % 5 == 0;
        order.fieldSampleRate_ = SampleRate(i, 1);
        order.height_ = i;
        queue.Push(order);
    }
    DecodeOrder popped;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(queue.Pop(popped));
        EXPECT_EQ(popped.width_, i % 3);
        EXPECT_EQ(popped.orderTp_, Ns(i % 7));
        EXPECT_EQ(popped.toDecode_, samples[static_cast<std::size_t>(i)]);
        EXPECT_EQ(popped.queue_, &results);
        EXPECT_EQ(popped.isInterlace_, i % 2 == 0);
        EXPECT_EQ(popped.decodeTopField_, i % 5 == 0);
        EXPECT_EQ(popped.fieldSampleRate_, SampleRate(i, 1));
        EXPECT_EQ(popped.height_, i);
    }
    EXPECT_FALSE(queue.Pop(popped));
}

TEST(DecodeOrderQueue, SizeFollowsPushesPopsAndClear) {
    DecodeOrderQueue queue;
    EXPECT_EQ(queue.GetSize(), 0U);
    for (int i = 0; i < 3; ++i) {
        queue.Push(Make(1, i));
    }
    EXPECT_EQ(queue.GetSize(), 3U);
    DecodeOrder popped;
    queue.Pop(popped);
    EXPECT_EQ(queue.GetSize(), 2U);
    queue.Clear();
    EXPECT_EQ(queue.GetSize(), 0U);
    EXPECT_FALSE(queue.Pop(popped));
}

TEST(DecodeOrderQueue, NeitherClearNorDestructionTouchesTheCompressedSamples) {
    SampleCensus census;
    Testing::CountedSample* cleared = census.Make();
    Testing::CountedSample* left = census.Make();
    {
        DecodeOrderQueue queue;
        DecodeOrder order;
        order.toDecode_ = cleared;
        queue.Push(order);
        queue.Clear();
        order.toDecode_ = left;
        queue.Push(order);
    }
    EXPECT_EQ(census.NbLive(), 2U);
    EXPECT_TRUE(cleared->Calls().empty());
    EXPECT_TRUE(left->Calls().empty());
}

TEST(DecodeOrderQueue, PushesOfOneThreadKeepTheirOrderAmongThoseOfOthers) {
    constexpr int kNbProducers = 4;
    constexpr int kNbEach = 1000;
    DecodeOrderQueue queue;
    std::vector<std::thread> producers;
    producers.reserve(kNbProducers);
    for (int p = 0; p < kNbProducers; ++p) {
        producers.emplace_back([&queue, p] {
            for (int i = 0; i < kNbEach; ++i) {
                queue.Push(Make(p, i));
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    EXPECT_EQ(queue.GetSize(), static_cast<std::size_t>(kNbProducers * kNbEach));
    std::vector<std::int64_t> next(kNbProducers, 0);
    DecodeOrder popped;
    while (queue.Pop(popped)) {
        EXPECT_EQ(popped.orderTp_, Ns(next[static_cast<std::size_t>(popped.width_)]++));
    }
    EXPECT_EQ(next, std::vector<std::int64_t>(kNbProducers, kNbEach));
}

/// Counts what it is asked for and cannot decode anything.
class CountingDecoder final : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder&) override {
        decoded_.Add();
        return nullptr;
    }

    Testing::Counter decoded_;
};

TEST(DecodeOrderQueue, PushWakesAnIdleDecodeWorkerEachTime) {
    const Testing::ScopedSilence silence("DecodeThread");
    SampleCensus census;
    CacheUpdateQueue results;
    DecodeOrderQueue queue;
    CountingDecoder decoder;
    DecodeThread worker;
    worker.SetDecoder(&decoder);
    worker.AddDecodeOrderQueue(&queue);
    worker.Start();
    DecodeOrder order;
    order.toDecode_ = census.Make();
    order.queue_ = &results;
    for (int i = 1; i <= 20; ++i) {
        queue.Push(order);
        ASSERT_TRUE(decoder.decoded_.WaitFor(i));
    }
    worker.Stop();
}

}  // namespace
}  // namespace Tavrin::Player
