#include "Player/BriefLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

TEST(BriefLock, HoldsTheMutexForItsScopeOnly) {
    std::mutex mutex;
    const auto isFree = [&] {
        bool free = false;
        std::thread([&] {
            free = mutex.try_lock();
            if (free) {
                mutex.unlock();
            }
        }).join();
        return free;
    };
    {
        const BriefLock lock(mutex);
        EXPECT_FALSE(isFree());
    }
    EXPECT_TRUE(isFree());
}

TEST(BriefLock, WaitsForAMutexThatIsHeldForLong) {
    std::mutex mutex;
    std::atomic<bool> isInside = false;
    std::unique_lock<std::mutex> held(mutex);
    std::thread other([&] {
        const BriefLock lock(mutex);
        isInside = true;
    });
    Testing::LetOthersRun();
    EXPECT_FALSE(isInside);
    held.unlock();
    other.join();
    EXPECT_TRUE(isInside);
}

TEST(BriefLock, LetsOneThreadInAtATime) {
    constexpr int kNbThreads = 4;
    constexpr int kNbRounds = 20000;
    std::mutex mutex;
    int plain = 0;  // Not atomic: two at a time lose counts, and thread sanitizer reports them.
    std::vector<std::thread> threads;
    for (int i = 0; i < kNbThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kNbRounds; ++round) {
                const BriefLock lock(mutex);
                ++plain;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(plain, kNbThreads * kNbRounds);
}

}  // namespace
}  // namespace Tavrin::Player
