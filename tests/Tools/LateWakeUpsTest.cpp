#include "Tools/LateWakeUps.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "Tools/Semaphore.h"

namespace Tavrin::Tools {
namespace {

TEST(LateWakeUps, WhoIsServedMeanwhileHasItsUnitsAndIsAwakeAfterwards) {
    Semaphore semaphore;
    std::thread waiter([&semaphore] { semaphore.Wait(); });
    {
        const LateWakeUps late;
        semaphore.Signal();
        // Given to the waiter if it waits already; free for it otherwise.
        EXPECT_LE(semaphore.GetValue(), 1);
    }
    waiter.join();
    EXPECT_EQ(semaphore.GetValue(), 0);
}

/// Threads that each wait for a unit; destroyed when all have had one.
class Waiters {
public:
    Waiters(Semaphore& semaphore, int nb) {
        for (int i = 0; i < nb; ++i) {
            threads_.emplace_back([this, &semaphore] {
                ++nbOnTheirWay_;
                semaphore.Wait();
            });
        }
        // Most of them sleep then; what holds must hold for those that do not, too.
        while (nbOnTheirWay_ < nb) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ~Waiters() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    Waiters(const Waiters&) = delete;
    Waiters& operator=(const Waiters&) = delete;

private:
    std::atomic<int> nbOnTheirWay_ = 0;
    std::vector<std::thread> threads_;
};

TEST(LateWakeUps, MoreThanCanBePutOffAreAllWoken) {
    constexpr int kNbWaiters = 20;
    Semaphore semaphore;
    const Waiters waiters(semaphore, kNbWaiters);
    const LateWakeUps late;
    for (int i = 0; i < kNbWaiters; ++i) {
        semaphore.Signal();
    }
}

TEST(LateWakeUps, OneWithinAnotherLeavesTheWakingToTheOuterOne) {
    Semaphore semaphore;
    Waiters waiters(semaphore, 3);
    {
        const LateWakeUps outer;
        {
            const LateWakeUps inner;
            semaphore.Signal(3);
        }
        semaphore.Signal(0);
    }
}

/// A producer and a consumer that meet at a queue's lock, as a worker and who pushes its orders do.
TEST(LateWakeUps, NoWakeUpIsLostInManyEncounters) {
    constexpr int kNbRounds = 20000;
    Semaphore semaphore;
    std::mutex mutex;
    int pushed = 0;
    int popped = 0;
    std::thread consumer([&] {
        for (int round = 0; round < kNbRounds; ++round) {
            semaphore.Wait();
            const std::lock_guard<std::mutex> lock(mutex);
            ASSERT_LT(popped, pushed);
            ++popped;
        }
    });
    for (int round = 0; round < kNbRounds; ++round) {
        const LateWakeUps afterTheLock;
        const std::lock_guard<std::mutex> lock(mutex);
        ++pushed;
        semaphore.Signal();
    }
    consumer.join();
    EXPECT_EQ(popped, kNbRounds);
}

}  // namespace
}  // namespace Tavrin::Tools
