#include "Player/PreloadOrderQueue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <thread>
#include <type_traits>
#include <vector>

#include "Player/PreloadThread.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

using Testing::Counter;
using Testing::Ns;

constexpr int kUnitLeft = 10;
constexpr int kNoUnitLeft = 11;

PreloadOrder Make(std::int64_t track, std::int64_t ns) {
    return PreloadOrder(Ns(ns), SampleRate(25, 1), nullptr, TrackId(StorageId("a", 1), track));
}

TEST(PreloadOrderQueue, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<PreloadOrderQueue>);
    EXPECT_FALSE(std::is_copy_assignable_v<PreloadOrderQueue>);
    EXPECT_TRUE(std::has_virtual_destructor_v<PreloadOrderQueue>);
}

TEST(PreloadOrderQueue, PopOnAnEmptyOneReturnsFalseAndLeavesTheTargetUntouched) {
    PreloadOrderQueue queue;
    PreloadOrder target = Make(7, 40);
    target.SetPriority(3);
    EXPECT_FALSE(queue.Pop(target));
    EXPECT_TRUE(target == Make(7, 40));
    EXPECT_EQ(target.Priority(), 3);
}

TEST(PreloadOrderQueue, OrdersComeOutInTheOrderOfTheirPushesWhateverTheirPriority) {
    PreloadOrderQueue queue;
    for (int i = 0; i < 1000; ++i) {
        PreloadOrder order = Make(i % 3, i % 7);
        order.SetPriority(i % 5);
        queue.Push(order);
    }
    PreloadOrder popped;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(queue.Pop(popped));
        EXPECT_TRUE(popped == Make(i % 3, i % 7));
        EXPECT_EQ(popped.Priority(), i % 5);
    }
    EXPECT_FALSE(queue.Pop(popped));
}

TEST(PreloadOrderQueue, SizeFollowsPushesPopsAndClear) {
    PreloadOrderQueue queue;
    EXPECT_EQ(queue.GetSize(), 0U);
    queue.Push(Make(1, 1));
    queue.Push(Make(1, 1));
    queue.Push(Make(1, 2));
    EXPECT_EQ(queue.GetSize(), 3U);
    PreloadOrder popped;
    queue.Pop(popped);
    EXPECT_EQ(queue.GetSize(), 2U);
    queue.Clear();
    EXPECT_EQ(queue.GetSize(), 0U);
    EXPECT_FALSE(queue.Pop(popped));
    queue.Clear();
    EXPECT_EQ(queue.GetSize(), 0U);
}

TEST(PreloadOrderQueue, PushesOfOneThreadKeepTheirOrderAmongThoseOfOthers) {
    constexpr int kNbProducers = 4;
    constexpr int kNbEach = 1000;
    PreloadOrderQueue queue;
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
    PreloadOrder popped;
    while (queue.Pop(popped)) {
        EXPECT_EQ(popped.tp_, Ns(next[static_cast<std::size_t>(popped.id_.Id())]++));
    }
    EXPECT_EQ(next, std::vector<std::int64_t>(kNbProducers, kNbEach));
}

/// A worker without orders, which counts how often it looks for one: once when it starts, and then only when
/// a unit of the semaphore of its class tells it to.
class PassCounter final : public PreloadThread {
public:
    ~PassCounter() override { Stop(); }
    PassCounter() = default;
    PassCounter(const PassCounter&) = delete;
    PassCounter& operator=(const PassCounter&) = delete;

    bool Dequeue(PreloadOrder&) override {
        passes_.Add();
        return false;
    }

    Counter passes_;
};

/// Ends the process, with whether `pushes`, run before any worker exists, leave a unit in the semaphore for
/// one that is started later. A process of its own, since other tests have left units behind in this one. A
/// unit that is there is noticed at once; `bound` is how long to look for one.
[[noreturn]] void ExitWithUnitLeft(const std::function<void()>& pushes,
                                   std::chrono::milliseconds bound = Testing::kFailureBound) {
    pushes();
    PassCounter worker;
    worker.Start();
    const bool started = worker.passes_.WaitFor(1);
    const bool woken = started && worker.passes_.WaitFor(2, bound);
    worker.Stop();
    std::exit(woken ? kUnitLeft : (started ? kNoUnitLeft : EXIT_FAILURE));
}

class PreloadOrderQueueUnits : public ::testing::Test {
protected:
    // The style that starts the test's program anew instead of forking it.
    void SetUp() override { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(PreloadOrderQueueUnits, WithoutAPushThereIsNone) {
    EXPECT_EXIT(ExitWithUnitLeft([] { const PreloadOrderQueue queue; }, std::chrono::milliseconds(100)),
                ::testing::ExitedWithCode(kNoUnitLeft), "");
}

TEST_F(PreloadOrderQueueUnits, PushBeforeAnyWorkerExistsLeavesOneForAWorkerStartedLater) {
    EXPECT_EXIT(ExitWithUnitLeft([] {
                    PreloadOrderQueue queue;
                    queue.Push(Make(1, 1));
                }),
                ::testing::ExitedWithCode(kUnitLeft), "");
}

TEST_F(PreloadOrderQueueUnits, PopTakesNoneAway) {
    EXPECT_EXIT(ExitWithUnitLeft([] {
                    PreloadOrderQueue queue;
                    queue.Push(Make(1, 1));
                    PreloadOrder popped;
                    queue.Pop(popped);
                }),
                ::testing::ExitedWithCode(kUnitLeft), "");
}

TEST_F(PreloadOrderQueueUnits, ClearTakesNoneAway) {
    EXPECT_EXIT(ExitWithUnitLeft([] {
                    PreloadOrderQueue queue;
                    queue.Push(Make(1, 1));
                    queue.Clear();
                }),
                ::testing::ExitedWithCode(kUnitLeft), "");
}

TEST(PreloadOrderQueue, PushWakesAnIdleWorkerOfItsClass) {
    PassCounter worker;
    worker.Start();
    ASSERT_TRUE(worker.passes_.WaitFor(1));
    PreloadOrderQueue queue;
    for (int i = 0; i < 3; ++i) {
        const int before = worker.passes_.Value();
        queue.Push(Make(1, i));
        EXPECT_TRUE(worker.passes_.WaitFor(before + 1));
    }
}

}  // namespace
}  // namespace Tavrin::Player
