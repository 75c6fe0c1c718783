// A machine may have no thread left to give. A worker that cannot be started says so, holds nothing, and can be started
// later: the orders wait.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <system_error>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAVRIN_TEST_KEEPS_PTHREAD_CREATE
#elif defined(__clang__)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAVRIN_TEST_KEEPS_PTHREAD_CREATE
#endif
#endif

namespace {

std::atomic<bool> noThreads{false};

}  // namespace

#ifndef TAVRIN_TEST_KEEPS_PTHREAD_CREATE

// Found before that of the C library, also by the standard library.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) noexcept {
    if (noThreads.load()) {
        return EAGAIN;
    }
    static const auto create =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, run, argument);
}

#endif

namespace Tavrin::Player {
namespace {

class ThreadFault : public ::testing::Test {
protected:
    void SetUp() override {
#ifdef TAVRIN_TEST_KEEPS_PTHREAD_CREATE
        GTEST_SKIP() << "the sanitizer makes threads in its own way";
#endif
    }
    void TearDown() override {
        noThreads.store(false);
    }

    /// Starts the worker in vain, twice, and stops what never ran.
    template <typename Worker>
    void StartInVain(Worker& worker) {
        noThreads.store(true);
        for (int i = 0; i < 2; ++i) {
            try {
                worker.Start();
                ADD_FAILURE() << "a thread was made";
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
            }
        }
        worker.Stop();
        noThreads.store(false);
    }
};

TEST_F(ThreadFault, APreloadWorkerSaysSoAndServesItsOrdersOnceItCanBeStarted) {
    Testing::ScriptedPreloader preloader;
    PreloadOrderQueue orders;
    CacheUpdateQueue answers;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    worker.SetPreloadOrderQueue(&orders);
    orders.Push(Testing::OrderAt(1, &answers));
    StartInVain(worker);
    EXPECT_EQ(orders.GetSize(), 1U);
    worker.Start();
    EXPECT_TRUE(preloader.Done().WaitFor(1));
    worker.Stop();
}

TEST_F(ThreadFault, ARunningPreloadWorkerThatCannotBeStartedAnewIsStopped) {
    Testing::ScriptedPreloader preloader;
    PreloadOrderQueue orders;
    CacheUpdateQueue answers;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    worker.SetPreloadOrderQueue(&orders);
    worker.Start();
    StartInVain(worker);
    orders.Push(Testing::OrderAt(1, &answers));
    worker.Start();
    EXPECT_TRUE(preloader.Done().WaitFor(1));
}

TEST_F(ThreadFault, ADecodeWorkerSaysSoAndServesItsOrdersOnceItCanBeStarted) {
    Testing::ScriptedDecoder decoder;
    DecodeOrderQueue orders;
    CacheUpdateQueue answers;
    DecodeThread worker;
    worker.SetDecoder(&decoder);
    worker.AddDecodeOrderQueue(&orders);
    DecodeOrder order;
    order.queue_ = &answers;
    orders.Push(order);
    StartInVain(worker);
    EXPECT_EQ(orders.GetSize(), 1U);
    worker.Start();
    EXPECT_TRUE(decoder.Calls().Entered().WaitFor(1));
    worker.Stop();
    Output output;
    EXPECT_TRUE(answers.Pop(output));
}

TEST_F(ThreadFault, ATimedWorkerSaysSoAndCanBeStartedLater) {
    Testing::ScriptedPreloader preloader;
    PreloadOrderQueue orders;
    CacheUpdateQueue answers;
    TimedPreloadThread worker;
    const std::size_t nbSlots = worker.SetSendingUnitPeriod(50);
    for (std::size_t slot = 0; slot < nbSlots; ++slot) {
        worker.RegisterOrder(Testing::OrderAt(1, &answers).id_, slot);
    }
    worker.SetPreloader(&preloader);
    worker.SetPreloadOrderQueue(&orders);
    orders.Push(Testing::OrderAt(1, &answers));
    StartInVain(worker);
    worker.Start();
    EXPECT_TRUE(preloader.Done().WaitFor(1));
    worker.Stop();
}

}  // namespace
}  // namespace Tavrin::Player
