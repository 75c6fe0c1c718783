#include "Tools/Semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Tavrin::Tools {
namespace {

using namespace std::chrono_literals;

/// How long something that must not happen is given to happen, and something that must is given at most.
constexpr auto kNotYet = 20ms;
constexpr auto kDeadline = 30s;

bool IsDone(const std::future<void>& future) {
    return future.wait_for(kNotYet) == std::future_status::ready;
}

bool Finishes(const std::future<void>& future) {
    return future.wait_for(kDeadline) == std::future_status::ready;
}

/// Runs `wait` on a thread of its own, and returns when that thread is about to begin: on a busy machine it
/// may take longer to start than `kNotYet`.
template <typename WaitFunction>
std::future<void> Begin(WaitFunction wait) {
    auto began = std::make_shared<std::promise<void>>();
    std::future<void> hasBegun = began->get_future();
    std::future<void> waiter = std::async(std::launch::async, [began, wait] {
        began->set_value();
        wait();
    });
    hasBegun.wait();
    return waiter;
}

TEST(Semaphore, BeginsWithoutUnits) {
    const Semaphore semaphore;
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, SetupReplacesTheCount) {
    Semaphore semaphore;
    semaphore.Setup(5);
    semaphore.Setup(2);
    EXPECT_EQ(semaphore.GetValue(), 2);
}

TEST(Semaphore, SignalsBeforeAnyWaiterAreKept) {
    Semaphore semaphore;
    for (int i = 0; i < 7; ++i) {
        semaphore.Signal();
    }
    EXPECT_EQ(semaphore.GetValue(), 7);
    for (int i = 0; i < 7; ++i) {
        semaphore.Wait();
    }
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, FormsWithACountTakeAndAddThatMany) {
    Semaphore semaphore;
    semaphore.Signal(5);
    semaphore.Wait(3);
    EXPECT_EQ(semaphore.GetValue(), 2);
}

TEST(Semaphore, WaitBlocksUntilSignalled) {
    Semaphore semaphore;
    const auto waiter = Begin([&] { semaphore.Wait(); });
    EXPECT_FALSE(IsDone(waiter));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(waiter));
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, WaitForSeveralTakesThemOnlyTogether) {
    Semaphore semaphore;
    const auto waiter = Begin([&] { semaphore.Wait(3); });
    semaphore.Signal(2);
    EXPECT_FALSE(IsDone(waiter));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(waiter));
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, WaitForNoneReturnsAtOnceEvenBehindAWaiter) {
    Semaphore semaphore;
    const auto waiter = Begin([&] { semaphore.Wait(); });
    EXPECT_FALSE(IsDone(waiter));
    semaphore.Wait(0);
    semaphore.Signal();
    EXPECT_TRUE(Finishes(waiter));
}

TEST(Semaphore, SetupServesWaiters) {
    Semaphore semaphore;
    const auto waiter = Begin([&] { semaphore.Wait(2); });
    EXPECT_FALSE(IsDone(waiter));
    semaphore.Setup(3);
    EXPECT_TRUE(Finishes(waiter));
    EXPECT_EQ(semaphore.GetValue(), 1);
}

TEST(Semaphore, CountStopsAtTheHighestInt) {
    Semaphore semaphore;
    semaphore.Setup(std::numeric_limits<int>::max() - 1);
    semaphore.Signal(5);
    EXPECT_EQ(semaphore.GetValue(), std::numeric_limits<int>::max());
}

TEST(Semaphore, NegativeCountsAreRefusedByNameAndChangeNothing) {
    Semaphore semaphore;
    semaphore.Setup(1);
    EXPECT_THROW(semaphore.Setup(-1), std::invalid_argument);
    EXPECT_THROW(semaphore.Wait(-1), std::invalid_argument);
    try {
        semaphore.Signal(-4);
        FAIL() << "a negative count was taken";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Semaphore::Signal: count is -4, it must not be negative");
    }
    EXPECT_EQ(semaphore.GetValue(), 1);
}

/// Starts threads that wait one behind the other and note in which order they are served.
class Line {
public:
    explicit Line(Semaphore& semaphore) : semaphore_(semaphore) {}

    void Join(int name) {
        waiters_.push_back(Begin([this, name] {
            semaphore_.Wait();
            const std::lock_guard<std::mutex> lock(mutex_);
            served_.push_back(name);
        }));
        EXPECT_FALSE(IsDone(waiters_.back()));
    }

    std::vector<int> Served() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return served_;
    }

    const std::future<void>& Waiter(std::size_t index) const { return waiters_[index]; }

private:
    Semaphore& semaphore_;
    std::vector<std::future<void>> waiters_;
    std::mutex mutex_;
    std::vector<int> served_;
};

TEST(Semaphore, WaitersAreServedInTheOrderInWhichTheyCame) {
    Semaphore semaphore;
    Line line(semaphore);
    for (int name = 0; name < 4; ++name) {
        line.Join(name);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        semaphore.Signal();
        EXPECT_TRUE(Finishes(line.Waiter(i)));
    }
    EXPECT_EQ(line.Served(), (std::vector<int>{0, 1, 2, 3}));
}

TEST(Semaphore, OneSignalWakesOneWaiter) {
    Semaphore semaphore;
    Line line(semaphore);
    line.Join(0);
    line.Join(1);
    semaphore.Signal();
    EXPECT_TRUE(Finishes(line.Waiter(0)));
    EXPECT_FALSE(IsDone(line.Waiter(1)));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(line.Waiter(1)));
}

TEST(Semaphore, NewcomerDoesNotOvertakeAWaiterForMore) {
    Semaphore semaphore;
    const auto first = Begin([&] { semaphore.Wait(2); });
    EXPECT_FALSE(IsDone(first));
    semaphore.Signal();
    const auto second = Begin([&] { semaphore.Wait(); });
    EXPECT_FALSE(IsDone(second));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(first));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(second));
}

TEST(Semaphore, RecallWakesEveryRecallableWaiterWithoutAUnit) {
    Semaphore semaphore;
    std::atomic<int> nbUnits = 0;
    std::vector<std::future<void>> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.push_back(Begin(
            [&, seen = semaphore.NbRecalls()] { nbUnits += semaphore.WaitUnlessRecalled(seen) ? 1 : 0; }));
        EXPECT_FALSE(IsDone(waiters.back()));
    }
    semaphore.Recall();
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(Finishes(waiter));
    }
    EXPECT_EQ(nbUnits, 0);
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, RecallIsNotMissedByAThreadOnItsWayToWait) {
    Semaphore semaphore;
    semaphore.Signal();
    const auto seen = semaphore.NbRecalls();
    EXPECT_EQ(semaphore.Recall(), seen + 1);
    EXPECT_FALSE(semaphore.WaitUnlessRecalled(seen));
    EXPECT_EQ(semaphore.GetValue(), 1) << "the unit is still there";
    EXPECT_TRUE(semaphore.WaitUnlessRecalled(semaphore.NbRecalls()));
}

TEST(Semaphore, RecallLeavesPlainWaitersInTheirOrder) {
    Semaphore semaphore;
    Line line(semaphore);
    line.Join(0);
    const auto recallable = Begin([&, seen = semaphore.NbRecalls()] { semaphore.WaitUnlessRecalled(seen); });
    EXPECT_FALSE(IsDone(recallable));
    line.Join(1);
    semaphore.Recall();
    EXPECT_TRUE(Finishes(recallable));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(line.Waiter(0)));
    EXPECT_FALSE(IsDone(line.Waiter(1)));
    semaphore.Signal();
    EXPECT_TRUE(Finishes(line.Waiter(1)));
}

TEST(Semaphore, NoUnitIsLostOrMadeUnderLoad) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    Semaphore semaphore;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                semaphore.Signal();
            }
        });
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                semaphore.Wait();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(semaphore.GetValue(), 0);
}

/// Units go through the line when somebody stands in it and past it otherwise: the sums must be those of a
/// plain number either way.
TEST(Semaphore, CountsAsAPlainNumberDoes) {
    Semaphore semaphore;
    std::int64_t literal = 0;
    std::uint64_t nbRecalls = 0;
    std::mt19937 random(20'260'101);
    for (int step = 0; step < 20000; ++step) {
        const int count = static_cast<int>(random() % 5);
        switch (random() % 5) {
            case 0:
                semaphore.Signal(count);
                literal += count;
                break;
            case 1:
                if (literal >= count) {
                    semaphore.Wait(count);
                    literal -= count;
                }
                break;
            case 2:
                ASSERT_EQ(semaphore.Recall(), ++nbRecalls);
                break;
            case 3:
                if (literal > 0) {
                    const bool isUpToDate = random() % 2 == 0;
                    ASSERT_EQ(semaphore.WaitUnlessRecalled(isUpToDate ? nbRecalls : nbRecalls + 1),
                              isUpToDate);
                    literal -= isUpToDate ? 1 : 0;
                }
                break;
            default:
                if (random() % 100 == 0) {
                    semaphore.Setup(count);
                    literal = count;
                }
                break;
        }
        ASSERT_EQ(semaphore.GetValue(), literal);
        ASSERT_EQ(semaphore.NbRecalls(), nbRecalls);
    }
}

TEST(Semaphore, NeitherARecallNorAUnitIsMissedUnderLoad) {
    constexpr int kWaiters = 3;
    constexpr int kRounds = 20000;
    Semaphore semaphore;
    std::atomic<int> nbTaken = 0;
    std::atomic<bool> over = false;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&] {
            for (;;) {
                const auto seen = semaphore.NbRecalls();
                if (over) {
                    return;
                }
                // A recall after `seen` was read ends this, or it would never end.
                nbTaken += semaphore.WaitUnlessRecalled(seen) ? 1 : 0;
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        semaphore.Signal();
        if (round % 3 == 0) {
            semaphore.Recall();
        }
    }
    while (nbTaken < kRounds) {
        std::this_thread::yield();
    }
    over = true;
    semaphore.Recall();
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(nbTaken, kRounds);
    EXPECT_EQ(semaphore.GetValue(), 0);
}

TEST(Semaphore, CountThatReachesTheHighestIntIsTakenFromAsBefore) {
    Semaphore semaphore;
    semaphore.Setup(std::numeric_limits<int>::max());
    semaphore.Signal();
    semaphore.Wait(2);
    EXPECT_EQ(semaphore.GetValue(), std::numeric_limits<int>::max() - 2);
    semaphore.Signal(std::numeric_limits<int>::max());
    EXPECT_EQ(semaphore.GetValue(), std::numeric_limits<int>::max());
}

TEST(Semaphore, WhatWasDoneBeforeSignalIsSeenAfterWait) {
    Semaphore semaphore;
    int plain = 0;  // Not atomic: a missing happens-before is a race that thread sanitizer reports.
    std::thread writer([&] {
        plain = 42;
        semaphore.Signal();
    });
    semaphore.Wait();
    EXPECT_EQ(plain, 42);
    writer.join();
}

TEST(Semaphore, EachTakingOfUnitsIsCounted) {
    Semaphore semaphore;
    semaphore.Signal(10);
    EXPECT_EQ(semaphore.NbTakes(), 0U);
    semaphore.Wait();
    semaphore.Wait(3);
    EXPECT_EQ(semaphore.NbTakes(), 2U);
    EXPECT_TRUE(semaphore.WaitUnlessRecalled(semaphore.NbRecalls()));
    EXPECT_EQ(semaphore.NbTakes(), 3U);
    EXPECT_EQ(semaphore.GetValue(), 5);
}

TEST(Semaphore, AUnitThatAWaiterIsGivenCountsAsTaken) {
    Semaphore semaphore;
    std::thread waiter([&semaphore] { semaphore.Wait(2); });
    semaphore.Signal(2);
    waiter.join();
    EXPECT_EQ(semaphore.NbTakes(), 1U);
}

TEST(Semaphore, TheHighestCountAndTheTakingsDoNotTouchEachOther) {
    Semaphore semaphore;
    semaphore.Setup(std::numeric_limits<int>::max());
    semaphore.Wait();
    semaphore.Signal(5);
    EXPECT_EQ(semaphore.GetValue(), std::numeric_limits<int>::max());
    EXPECT_EQ(semaphore.NbTakes(), 1U);
    semaphore.Wait(std::numeric_limits<int>::max());
    EXPECT_EQ(semaphore.GetValue(), 0);
    EXPECT_EQ(semaphore.NbTakes(), 2U);
}

/// Once a unit that came after a recall was taken by who had been recalled.
TEST(Semaphore, AUnitThatComesAfterARecallIsNotTakenByWhoWasRecalled) {
    constexpr int kNbRounds = 20000;
    for (int round = 0; round < kNbRounds; ++round) {
        Semaphore semaphore;
        std::atomic<bool> go = false;
        const auto nbSeen = semaphore.NbRecalls();
        std::thread other([&] {
            while (!go) {
            }
            semaphore.Recall();
            semaphore.Signal();
        });
        go = true;
        const bool took = semaphore.WaitUnlessRecalled(nbSeen);
        other.join();
        ASSERT_FALSE(took) << "round " << round;
        ASSERT_EQ(semaphore.GetValue(), 1);
    }
}

}  // namespace
}  // namespace Tavrin::Tools
