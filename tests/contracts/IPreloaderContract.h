#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/Output.h"
#include "Player/PreloadOrder.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"

/// The contract of `IPreloader` as a test suite, to be run by whoever implements one.
///
/// What the implementer guarantees:
///   1. an order with a queue is answered with exactly one `Output`, which is in the order's queue when
///      `Preload` returns, and which carries the order's own time point, aligned or not;
///   2. `SUCCESS_EXIST` comes with a sample that covers that time point; `SUCCESS_MISSING`, `ERROR` and an
///      exception come with a null sample;
///   3. the sample is new and not protected: each belongs to the receiver of its output;
///   4. with a registry, answers go only into queues that are registered: for any other queue nothing is
///      pushed and the sample is deleted (which a leak checker sees); without one they are pushed directly;
///   5. `Preload` may be called by several threads at once.
///
/// What the implementer may assume:
///   1. the order's queue is set, and alive as long as it is registered;
///   2. no lock of the engine is held during `Preload`, which may take as long as the storage does;
///   3. the registry is set while no order is in progress;
///   4. what it throws is logged, and the next order comes all the same.
///
/// To run it, write an adaptor and instantiate the suite for it in this namespace:
///
///     namespace Tavrin::Player::Contracts {
///     struct MyPreloaderAdaptor : PreloaderAdaptor {
///         IPreloader& Preloader() { return preloader_; }
///         PreloadOrder Existing(std::size_t i) { ... }   // i = 0 to 7, of different time points
///         MyPreloader preloader_;
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(MyPreloader, IPreloaderContract, testing::Types<MyPreloaderAdaptor>, );
///     }
namespace Tavrin::Player::Contracts {

/// Where a preloader differs from the contract, and what can be arranged with it, stated by its adaptor.
struct PreloaderAdaptor {
    /// False for a preloader that pushes directly whatever registry it was handed.
    static constexpr bool kUsesRegistry = true;

    /// An order for a sample that storage does not have; nothing when it has all samples. Without a queue.
    std::optional<PreloadOrder> Missing() { return std::nullopt; }

    /// Arranges that the order returned will fail; nothing when failures cannot be arranged. Without a queue.
    std::optional<PreloadOrder> Failing() { return std::nullopt; }
};

template <typename Adaptor>
class IPreloaderContract : public testing::Test {
protected:
    static constexpr std::size_t kNbExisting = 8;

    /// An answer together with its sample.
    struct Answer {
        Output output_;
        std::unique_ptr<ISample> sample_;
    };

    IPreloader& Preloader() { return adaptor_.Preloader(); }

    PreloadOrder Existing(std::size_t i) {
        PreloadOrder order = adaptor_.Existing(i);
        order.queue_ = &answers_;
        return order;
    }

    static std::vector<Answer> Take(CacheUpdateQueue& queue) {
        std::vector<Answer> answers;
        Output output;
        while (queue.Pop(output)) {
            answers.push_back({output, std::unique_ptr<ISample>(output.sample_)});
        }
        return answers;
    }

    static bool Covers(const ISample& sample, const Time::TimePoint& tp) {
        return !(tp < sample.GetTimePoint()) && tp < sample.GetTimePoint() + sample.GetDuration();
    }

    /// Expects the one answer that `order` must have got, with a sample or without.
    void ExpectAnswer(const PreloadOrder& order, bool withSample) {
        const std::vector<Answer> answers = Take(*order.queue_);
        ASSERT_EQ(answers.size(), 1u);
        EXPECT_EQ(answers[0].output_.tp_, order.tp_);
        ASSERT_EQ(answers[0].sample_ != nullptr, withSample);
        if (withSample) {
            EXPECT_TRUE(Covers(*answers[0].sample_, order.tp_))
                << answers[0].sample_->GetTimePoint() << " for " << order.tp_;
        }
    }

    CacheUpdateQueue answers_;
    CacheUpdateQueue otherAnswers_;
    ExistingCacheUpdateQueues registry_;
    Adaptor adaptor_;  ///< Last, so that it goes before what it was handed.
};

TYPED_TEST_SUITE_P(IPreloaderContract);

// Guarantees 1 and 2.

TYPED_TEST_P(IPreloaderContract, AnExistingSampleIsDeliveredOnceForTheOrdersTimePoint) {
    for (std::size_t i = 0; i < this->kNbExisting; ++i) {
        const PreloadOrder order = this->Existing(i);
        EXPECT_EQ(this->Preloader().Preload(order), IPreloader::SUCCESS_EXIST);
        this->ExpectAnswer(order, true);
    }
}

TYPED_TEST_P(IPreloaderContract, AnOrderInsideASampleIsAnsweredForItsOwnTimePoint) {
    PreloadOrder order = this->Existing(1);
    order.tp_ += Time::TimePoint().FromNanoseconds(1);
    EXPECT_EQ(this->Preloader().Preload(order), IPreloader::SUCCESS_EXIST);
    this->ExpectAnswer(order, true);
}

TYPED_TEST_P(IPreloaderContract, OrdersInAnySequenceAreAnswered) {
    for (const std::size_t i : {5u, 0u, 7u, 6u, 1u, 1u, 4u}) {
        const PreloadOrder order = this->Existing(i);
        EXPECT_EQ(this->Preloader().Preload(order), IPreloader::SUCCESS_EXIST);
        this->ExpectAnswer(order, true);
    }
}

TYPED_TEST_P(IPreloaderContract, AMissingSampleIsAnsweredOnceWithNull) {
    std::optional<PreloadOrder> order = this->adaptor_.Missing();
    if (!order) {
        GTEST_SKIP() << "storage has all samples";
    }
    order->queue_ = &this->answers_;
    EXPECT_EQ(this->Preloader().Preload(*order), IPreloader::SUCCESS_MISSING);
    this->ExpectAnswer(*order, false);
}

TYPED_TEST_P(IPreloaderContract, AFailureIsAnsweredOnceWithNull) {
    std::optional<PreloadOrder> order = this->adaptor_.Failing();
    if (!order) {
        GTEST_SKIP() << "failures cannot be arranged";
    }
    order->queue_ = &this->answers_;
    try {
        EXPECT_EQ(this->Preloader().Preload(*order), IPreloader::ERROR);
    } catch (const std::exception& failure) {
        SUCCEED() << failure.what();
    }
    this->ExpectAnswer(*order, false);
}

TYPED_TEST_P(IPreloaderContract, EachAnswerGoesIntoTheQueueOfItsOrder) {
    const PreloadOrder first = this->Existing(0);
    PreloadOrder second = this->Existing(1);
    second.queue_ = &this->otherAnswers_;
    this->Preloader().Preload(first);
    this->Preloader().Preload(second);
    this->ExpectAnswer(first, true);
    this->ExpectAnswer(second, true);
}

// Guarantee 3.

TYPED_TEST_P(IPreloaderContract, TheSamplesAreNotProtected) {
    this->Preloader().Preload(this->Existing(2));
    EXPECT_EQ(this->Take(this->answers_).at(0).sample_->GetProtectionCounter(), 0);
}

TYPED_TEST_P(IPreloaderContract, TheSameOrderTwiceYieldsTwoSamples) {
    this->Preloader().Preload(this->Existing(2));
    this->Preloader().Preload(this->Existing(2));
    const auto answers = this->Take(this->answers_);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_NE(answers[0].sample_, answers[1].sample_);
}

TYPED_TEST_P(IPreloaderContract, ASampleOutlivesThoseDeliveredWithIt) {
    for (std::size_t i = 0; i < this->kNbExisting; ++i) {
        this->Preloader().Preload(this->Existing(i));
    }
    auto answers = this->Take(this->answers_);
    ASSERT_EQ(answers.size(), this->kNbExisting);
    const auto last = std::move(answers.back());
    answers.clear();
    EXPECT_TRUE(this->Covers(*last.sample_, last.output_.tp_));
}

// Guarantee 4.

TYPED_TEST_P(IPreloaderContract, WithARegistryARegisteredQueueIsAnswered) {
    this->registry_.InsertExistingQueue(&this->answers_);
    this->Preloader().SetExistingCacheUpdateQueues(&this->registry_);
    const PreloadOrder order = this->Existing(3);
    EXPECT_EQ(this->Preloader().Preload(order), IPreloader::SUCCESS_EXIST);
    this->ExpectAnswer(order, true);
    this->Preloader().SetExistingCacheUpdateQueues(nullptr);
}

TYPED_TEST_P(IPreloaderContract, WithARegistryNothingGoesIntoAQueueThatIsNotRegistered) {
    if (!TypeParam::kUsesRegistry) {
        GTEST_SKIP() << "this preloader is stated to push directly";
    }
    this->Preloader().SetExistingCacheUpdateQueues(&this->registry_);
    this->Preloader().Preload(this->Existing(3));
    EXPECT_TRUE(this->Take(this->answers_).empty());
    this->Preloader().SetExistingCacheUpdateQueues(nullptr);
}

TYPED_TEST_P(IPreloaderContract, AfterTheRegistryWasTakenAwayEveryQueueIsAnswered) {
    this->Preloader().SetExistingCacheUpdateQueues(&this->registry_);
    this->Preloader().SetExistingCacheUpdateQueues(nullptr);
    const PreloadOrder order = this->Existing(3);
    this->Preloader().Preload(order);
    this->ExpectAnswer(order, true);
}

TYPED_TEST_P(IPreloaderContract, AQueueMayGoAsSoonAsItIsOffTheRegistry) {
    if (!TypeParam::kUsesRegistry) {
        GTEST_SKIP() << "this preloader is stated to push directly";
    }
    this->Preloader().SetExistingCacheUpdateQueues(&this->registry_);
    auto queue = std::make_unique<CacheUpdateQueue>();
    this->registry_.InsertExistingQueue(queue.get());
    PreloadOrder order = this->Existing(3);
    order.queue_ = queue.get();
    std::atomic<bool> over = false;
    std::atomic<int> nbPreloads = 0;
    std::thread worker([&] {
        while (!over) {
            this->Preloader().Preload(order);
            ++nbPreloads;
        }
    });
    while (nbPreloads < 3) {
        std::this_thread::yield();
    }
    this->registry_.RemoveExistingQueue(queue.get());
    queue.reset();
    const int nbBefore = nbPreloads;
    while (nbPreloads < nbBefore + 3) {
        std::this_thread::yield();
    }
    over = true;
    worker.join();
    this->Preloader().SetExistingCacheUpdateQueues(nullptr);
}

// Guarantee 5.

TYPED_TEST_P(IPreloaderContract, OrdersOfSeveralThreadsAreAnsweredOnceEach) {
    constexpr std::size_t kNbThreads = 4;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kNbThreads; ++t) {
        threads.emplace_back([this] {
            for (std::size_t i = 0; i < this->kNbExisting; ++i) {
                EXPECT_EQ(this->Preloader().Preload(this->Existing(i)), IPreloader::SUCCESS_EXIST);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto answers = this->Take(this->answers_);
    for (std::size_t i = 0; i < this->kNbExisting; ++i) {
        std::size_t nb = 0;
        for (const auto& answer : answers) {
            nb += answer.output_.tp_ == this->Existing(i).tp_ ? 1 : 0;
        }
        EXPECT_EQ(nb, kNbThreads);
    }
    for (const auto& answer : answers) {
        ASSERT_NE(answer.sample_, nullptr);
        EXPECT_TRUE(this->Covers(*answer.sample_, answer.output_.tp_));
    }
}

// All together, on the worker that will call it.

TYPED_TEST_P(IPreloaderContract, ServesThePreloadWorkers) {
    constexpr std::chrono::seconds kFailureBound{30};
    PreloadOrderQueue orders;
    PreloadThread workers[2];
    for (PreloadThread& worker : workers) {
        worker.SetPreloader(&this->Preloader());
        worker.SetPreloadOrderQueue(&orders);
        worker.Start();
    }
    for (std::size_t i = 0; i < this->kNbExisting; ++i) {
        orders.Push(this->Existing(i));
    }
    std::size_t nb = 0;
    const auto bound = std::chrono::steady_clock::now() + kFailureBound;
    while (nb < this->kNbExisting && std::chrono::steady_clock::now() < bound) {
        nb += this->Take(this->answers_).size();
        std::this_thread::yield();
    }
    for (PreloadThread& worker : workers) {
        worker.Stop();
    }
    nb += this->Take(this->answers_).size();
    EXPECT_EQ(nb, this->kNbExisting);
}

REGISTER_TYPED_TEST_SUITE_P(IPreloaderContract, AnExistingSampleIsDeliveredOnceForTheOrdersTimePoint,
                            AnOrderInsideASampleIsAnsweredForItsOwnTimePoint, OrdersInAnySequenceAreAnswered,
                            AMissingSampleIsAnsweredOnceWithNull, AFailureIsAnsweredOnceWithNull,
                            EachAnswerGoesIntoTheQueueOfItsOrder, TheSamplesAreNotProtected,
                            TheSameOrderTwiceYieldsTwoSamples, ASampleOutlivesThoseDeliveredWithIt,
                            WithARegistryARegisteredQueueIsAnswered,
                            WithARegistryNothingGoesIntoAQueueThatIsNotRegistered,
                            AfterTheRegistryWasTakenAwayEveryQueueIsAnswered,
                            AQueueMayGoAsSoonAsItIsOffTheRegistry, OrdersOfSeveralThreadsAreAnsweredOnceEach,
                            ServesThePreloadWorkers);

}  // namespace Tavrin::Player::Contracts
