#include "Player/OrderLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/FakeSample.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"

namespace Tavrin::Player {
namespace {

/// Counts orders as they are run, so that a test can wait for them.
class Counter {
public:
    void Add() {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++nb_;
        changed_.notify_all();
    }

    bool Reaches(std::size_t nb) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return nb_ >= nb; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t nb_ = 0;
};

class CountingPreloader final : public IPreloader {
public:
    explicit CountingPreloader(Counter& counter) : counter_(counter) {}

    PreloadResult Preload(const PreloadOrder&) override {
        counter_.Add();
        return SUCCESS_MISSING;
    }
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

private:
    Counter& counter_;
};

class CountingDecoder final : public ISampleDecoder {
public:
    explicit CountingDecoder(Counter& counter) : counter_(counter) {}

    ISample* Decode(const DecodeOrder&) override {
        counter_.Add();
        return new FakeSample(Time::TimePoint(), Time::TimePoint());
    }

private:
    Counter& counter_;
};

constexpr std::size_t kRounds = 200;

TEST(OrderLoop, PreloadOrderIsServedAlthoughAWorkerOfOtherQueuesTookItsUnit) {
    Counter counter;
    CountingPreloader preloader(counter);
    CacheUpdateQueue destination;
    PreloadOrderQueue served;
    PreloadOrderQueue other;
    std::vector<std::unique_ptr<PreloadThread>> workers;
    for (PreloadOrderQueue* queue : {&served, &other, &other}) {
        workers.push_back(std::make_unique<PreloadThread>());
        workers.back()->SetPreloader(&preloader);
        workers.back()->SetPreloadOrderQueue(queue);
        workers.back()->Start();
    }
    PreloadOrder order;
    order.queue_ = &destination;
    for (std::size_t round = 1; round <= kRounds; ++round) {
        served.Push(order);
        ASSERT_TRUE(counter.Reaches(round)) << "order " << round << " was never run";
    }
}

TEST(OrderLoop, DecodeOrderIsServedAlthoughAWorkerOfOtherQueuesTookItsUnit) {
    Counter counter;
    CountingDecoder decoder(counter);
    // Outlives the workers: they release it after the decode that the test waits for.
    FakeSample compressed{Time::TimePoint(), Time::TimePoint()};
    CacheUpdateQueue destination;
    DecodeOrderQueue served;
    DecodeOrderQueue other;
    std::vector<std::unique_ptr<DecodeThread>> workers;
    for (DecodeOrderQueue* queue : {&served, &other, &other}) {
        workers.push_back(std::make_unique<DecodeThread>());
        workers.back()->SetDecoder(&decoder);
        workers.back()->AddDecodeOrderQueue(queue);
        workers.back()->Start();
    }
    DecodeOrder order;
    order.toDecode_ = &compressed;
    order.queue_ = &destination;
    for (std::size_t round = 1; round <= kRounds; ++round) {
        served.Push(order);
        ASSERT_TRUE(counter.Reaches(round)) << "order " << round << " was never run";
    }
}

TEST(OrderLoop, EachUnitTooManyCostsOneLook) {
    Tools::Semaphore semaphore;
    semaphore.Signal(100);
    int nbOrders = 100;
    int nbLooks = 0;
    bool stop = false;
    RunOrders(
        semaphore, [&] { return stop; },
        [&] {
            ++nbLooks;
            if (nbOrders > 0) {
                --nbOrders;
                return true;
            }
            if (semaphore.GetValue() == 0) {
                // The loop is about to sleep for good: end it, as stopping a worker does.
                stop = true;
                semaphore.Signal();
            }
            return false;
        });
    EXPECT_EQ(nbOrders, 0);
    EXPECT_EQ(nbLooks, 100 + 1 + 100) << "each order, the look that finds no more, and each unit";
}

/// Takes one order from `nbOrders` if there is one.
bool Take(std::atomic<int>& nbOrders) {
    int nb = nbOrders.load();
    while (nb > 0) {
        if (nbOrders.compare_exchange_weak(nb, nb - 1)) {
            return true;
        }
    }
    return false;
}

void Await(const std::atomic<bool>& flag) {
    while (!flag) {
        std::this_thread::yield();
    }
}

/// Once the order stayed for ever: worker A looked in vain for the order of worker B, whose unit it had taken;
/// then A's own order came, B took its unit and spent it on B's order; and A had only B look again.
TEST(OrderLoop, OrderIsServedAlthoughAPeerSpentItsUnitOnAnotherOrder) {
    Tools::Semaphore units;
    std::atomic<bool> stop = false;
    std::atomic<int> ordersOfA = 0;
    std::atomic<int> ordersOfB = 0;
    std::atomic<bool> bHasLooked = false;
    std::atomic<bool> aHasLooked = false;
    std::atomic<bool> bIsDone = false;
    std::atomic<bool> aHasRun = false;
    const auto mustStop = [&] { return stop.load(); };
    std::thread b([&] {
        bool hasRun = false;
        RunOrders(units, mustStop, [&] {
            const bool found = Take(ordersOfB);
            hasRun = hasRun || found;
            if (!found && !bHasLooked.exchange(true)) {
                Await(aHasLooked);  // so that A takes the unit of B's order
            } else if (!found && hasRun) {
                bIsDone = true;
            }
            return found;
        });
    });
    Await(bHasLooked);
    ++ordersOfB;
    units.Signal();
    std::thread a([&] {
        int nbLooks = 0;
        RunOrders(units, mustStop, [&] {
            const bool found = Take(ordersOfA);
            ++nbLooks;
            if (found) {
                aHasRun = true;
            } else if (nbLooks == 2) {
                ++ordersOfA;  // comes just after A has looked, holding the unit of B's order
                units.Signal();
                aHasLooked = true;
                Await(bIsDone);
            }
            return found;
        });
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!aHasRun && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(aHasRun) << "the order of A waits, with " << units.GetValue() << " units left";
    stop = true;
    units.Signal(2);
    units.Recall();
    bIsDone = true;
    a.join();
    b.join();
}

TEST(OrderLoop, WorkerThatIsToldToStopGivesItsUnusedUnitBack) {
    Tools::Semaphore semaphore;
    semaphore.Signal();
    int nbAsked = 0;
    // Goes on when first asked, looks in vain, takes the unit, and must stop when asked again.
    RunOrders(
        semaphore, [&] { return ++nbAsked == 2; }, [] { return false; });
    EXPECT_EQ(semaphore.GetValue(), 1);
}

}  // namespace
}  // namespace Tavrin::Player
