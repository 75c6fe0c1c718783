#include "Player/ExistingCacheUpdateQueues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISampleDecoder.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

using Testing::CountedSample;
using Testing::Gate;
using Testing::Ms;
using Testing::SampleCensus;
using Testing::StartOf;

/// Does what the test says, and counts how often.
class ScriptedDecoder final : public ISampleDecoder {
public:
    using Script = std::function<ISample*(const DecodeOrder&)>;

    explicit ScriptedDecoder(Script script) : script_(std::move(script)) {}

    ISample* Decode(const DecodeOrder& order) override {
        ++nbCalls_;
        return script_(order);
    }

    int NbCalls() const { return nbCalls_; }

private:
    Script script_;
    std::atomic<int> nbCalls_ = 0;
};

/// A registry with one queue in it and an order for that queue, whose compressed sample is protected twice:
/// once for the order, and once for somebody else.
class ExistingCacheUpdateQueuesTest : public ::testing::Test {
protected:
    ExistingCacheUpdateQueuesTest() {
        registry_.InsertExistingQueue(&queue_);
        compressed_->Protect(2);
        order_.toDecode_ = compressed_;
        order_.orderTp_ = Ms(40);
        order_.queue_ = &queue_;
    }

    Output OutputOf(ISample* sample) {
        Output output;
        output.sample_ = sample;
        output.tp_ = Ms(40);
        return output;
    }

    SampleCensus census_;
    CountedSample* compressed_ = census_.Make(Ms(40), Ms(33));
    CacheUpdateQueue queue_;
    ExistingCacheUpdateQueues registry_;
    DecodeOrder order_;
};

using Registry = ExistingCacheUpdateQueuesTest;

TEST_F(Registry, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<ExistingCacheUpdateQueues>);
    EXPECT_FALSE(std::is_copy_assignable_v<ExistingCacheUpdateQueues>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ExistingCacheUpdateQueues>);
}

TEST_F(Registry, KnowsOnlyWhatWasInserted) {
    CacheUpdateQueue other;
    EXPECT_TRUE(registry_.Exists(&queue_));
    EXPECT_FALSE(registry_.Exists(&other));
    EXPECT_FALSE(registry_.Exists(nullptr));
    EXPECT_FALSE(ExistingCacheUpdateQueues().Exists(&queue_));
}

TEST_F(Registry, QueueInsertedTwiceIsGoneAfterOneRemoval) {
    registry_.InsertExistingQueue(&queue_);
    registry_.RemoveExistingQueue(&queue_);
    EXPECT_FALSE(registry_.Exists(&queue_));
}

TEST_F(Registry, RemovingAQueueThatWasNeverInsertedChangesNothing) {
    CacheUpdateQueue other;
    registry_.RemoveExistingQueue(&other);
    registry_.RemoveExistingQueue(nullptr);
    EXPECT_TRUE(registry_.Exists(&queue_));
}

TEST_F(Registry, RemovingOneQueueKeepsTheOthers) {
    CacheUpdateQueue second;
    CacheUpdateQueue third;
    registry_.InsertExistingQueue(&second);
    registry_.InsertExistingQueue(&third);
    registry_.RemoveExistingQueue(&second);
    EXPECT_TRUE(registry_.Exists(&queue_));
    EXPECT_FALSE(registry_.Exists(&second));
    EXPECT_TRUE(registry_.Exists(&third));
    registry_.RemoveExistingQueue(&queue_);
    EXPECT_FALSE(registry_.Exists(&queue_));
    EXPECT_TRUE(registry_.Exists(&third));
    registry_.InsertExistingQueue(&second);
    EXPECT_TRUE(registry_.Exists(&second));
}

TEST_F(Registry, NullQueueIsRegisteredLikeAnyOtherButNothingIsDeliveredToIt) {
    registry_.InsertExistingQueue(nullptr);
    EXPECT_TRUE(registry_.Exists(nullptr));
    EXPECT_FALSE(registry_.PushIfExists(nullptr, Output()));
    registry_.RemoveExistingQueue(nullptr);
    EXPECT_FALSE(registry_.Exists(nullptr));
}

/// Registered and unregistered at random, and compared with a plain list after every step.
TEST_F(Registry, AnswersAsAPlainListOfQueuesDoes) {
    Testing::Random random(Testing::TestSeed());
    std::vector<CacheUpdateQueue> queues(300);
    std::vector<const CacheUpdateQueue*> literal;
    for (int step = 0; step < 5000; ++step) {
        auto& queue = queues[static_cast<std::size_t>(random.Between(0, 299))];
        const auto found = std::find(literal.begin(), literal.end(), &queue);
        const bool isListed = found != literal.end();
        ASSERT_EQ(registry_.Exists(&queue), isListed);
        ASSERT_EQ(registry_.PushIfExists(&queue, Output()), isListed);
        Output popped;
        ASSERT_EQ(queue.Pop(popped), isListed);
        if (random.Chance(50)) {
            registry_.InsertExistingQueue(&queue);
            if (!isListed) {
                literal.push_back(&queue);
            }
        } else if (isListed) {
            registry_.RemoveExistingQueue(&queue);
            literal.erase(found);
        }
    }
}

TEST_F(Registry, DestructionNeverTouchesTheQueues) {
    CountedSample* sample = census_.Make();
    auto registry = std::make_unique<ExistingCacheUpdateQueues>();
    registry->InsertExistingQueue(&queue_);
    registry->PushIfExists(&queue_, OutputOf(sample));
    {  // A queue that is already gone is not touched either.
        CacheUpdateQueue shortLived;
        registry->InsertExistingQueue(&shortLived);
    }
    registry.reset();
    EXPECT_FALSE(sample->Deleted());
    Output popped;
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_EQ(popped.sample_, sample);
}

TEST_F(Registry, PushIfExistsPushesIntoARegisteredQueue) {
    CountedSample* sample = census_.Make();
    EXPECT_TRUE(registry_.PushIfExists(&queue_, OutputOf(sample)));
    Output popped;
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_TRUE(popped == OutputOf(sample));
    EXPECT_FALSE(queue_.Pop(popped));
}

TEST_F(Registry, PushIfExistsOnAnUnregisteredQueueLeavesTheSampleWithTheCaller) {
    CountedSample* sample = census_.Make();
    registry_.RemoveExistingQueue(&queue_);
    EXPECT_FALSE(registry_.PushIfExists(&queue_, OutputOf(sample)));
    Output popped;
    EXPECT_FALSE(queue_.Pop(popped));
    EXPECT_FALSE(sample->Deleted());
    EXPECT_TRUE(sample->Calls().empty());
}

TEST_F(Registry, DecodeIfExistsDeliversTheDecodedSampleAndReleasesOneProtection) {
    CountedSample* decoded = census_.Make();
    ScriptedDecoder decoder([&](const DecodeOrder& order) {
        EXPECT_EQ(order.toDecode_, compressed_);
        EXPECT_EQ(compressed_->Counter(), 2) << "released only after the decoding";
        return decoded;
    });
    EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &decoder, order_));
    Output popped;
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_EQ(popped.sample_, decoded);
    EXPECT_EQ(popped.tp_, Ms(40));
    EXPECT_FALSE(queue_.Pop(popped));
    EXPECT_EQ(decoder.NbCalls(), 1);
    EXPECT_EQ(compressed_->Counter(), 1);
    EXPECT_FALSE(decoded->Deleted());
    EXPECT_FALSE(compressed_->Deleted());
}

TEST_F(Registry, DecodeIfExistsUsesTheCompressedSampleNoMoreAfterItsRelease) {
    ScriptedDecoder decoder([&](const DecodeOrder&) { return nullptr; });
    registry_.DecodeIfExists(&queue_, &decoder, order_);
    const std::vector<std::string> calls = compressed_->Calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "Unprotect");
    EXPECT_EQ(compressed_->NbCalls("Unprotect"), 1U);
}

TEST_F(Registry, DecodeIfExistsOnAnUnregisteredQueueDoesNothing) {
    ScriptedDecoder decoder([](const DecodeOrder&) { return nullptr; });
    registry_.RemoveExistingQueue(&queue_);
    EXPECT_FALSE(registry_.DecodeIfExists(&queue_, &decoder, order_));
    EXPECT_EQ(decoder.NbCalls(), 0);
    EXPECT_EQ(compressed_->Counter(), 2);
    Output popped;
    EXPECT_FALSE(queue_.Pop(popped));
}

TEST_F(Registry, DecodeIfExistsDeliversIntoTheOrdersOwnQueue) {
    CacheUpdateQueue asked;
    registry_.InsertExistingQueue(&asked);
    ScriptedDecoder decoder([](const DecodeOrder&) { return nullptr; });
    EXPECT_TRUE(registry_.DecodeIfExists(&asked, &decoder, order_));
    Output popped;
    EXPECT_FALSE(asked.Pop(popped));
    EXPECT_TRUE(queue_.Pop(popped));
}

TEST_F(Registry, DecoderThatReturnsNullStillYieldsAnOutput) {
    ScriptedDecoder decoder([](const DecodeOrder&) { return nullptr; });
    EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &decoder, order_));
    Output popped = OutputOf(compressed_);
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_EQ(popped.sample_, nullptr);
    EXPECT_EQ(popped.tp_, Ms(40));
    EXPECT_EQ(compressed_->Counter(), 1);
}

TEST_F(Registry, DecoderThatThrowsARuntimeErrorYieldsAnOutputWithoutASample) {
    const std::vector<ScriptedDecoder::Script> scripts{
        [](const DecodeOrder&) -> ISample* { throw std::runtime_error("damaged"); },
        [](const DecodeOrder&) -> ISample* { throw std::overflow_error("derived"); },
        [](const DecodeOrder&) -> ISample* {
            throw std::system_error(std::make_error_code(std::errc::io_error));
        }};
    for (const auto& script : scripts) {
        compressed_->Protect(1);
        const std::int64_t before = compressed_->Counter();
        ScriptedDecoder decoder(script);
        EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &decoder, order_));
        Output popped = OutputOf(compressed_);
        ASSERT_TRUE(queue_.Pop(popped));
        EXPECT_EQ(popped.sample_, nullptr);
        EXPECT_EQ(popped.tp_, Ms(40));
        EXPECT_EQ(compressed_->Counter(), before - 1);
    }
}

TEST_F(Registry, OtherExceptionsOfTheDecoderPassAndLeaveTheRegistryUsable) {
    const std::vector<ScriptedDecoder::Script> scripts{
        [](const DecodeOrder&) -> ISample* { throw std::logic_error("not a runtime error"); },
        [](const DecodeOrder&) -> ISample* { throw std::bad_alloc(); },
        [](const DecodeOrder&) -> ISample* { throw 42; }};
    for (const auto& script : scripts) {
        ScriptedDecoder decoder(script);
        EXPECT_ANY_THROW(registry_.DecodeIfExists(&queue_, &decoder, order_));
    }
    ScriptedDecoder logical(scripts[0]);
    EXPECT_THROW(registry_.DecodeIfExists(&queue_, &logical, order_), std::logic_error);
    ScriptedDecoder number(scripts[2]);
    EXPECT_THROW(registry_.DecodeIfExists(&queue_, &number, order_), int);

    EXPECT_EQ(compressed_->Counter(), 2) << "nothing is released";
    Output popped;
    EXPECT_FALSE(queue_.Pop(popped)) << "nothing is delivered";
    // Would wait for ever if a lock were still held.
    registry_.RemoveExistingQueue(&queue_);
    registry_.InsertExistingQueue(&queue_);
    ScriptedDecoder healthy([](const DecodeOrder&) { return nullptr; });
    EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &healthy, order_));
}

TEST_F(Registry, InterlacedOrderYieldsTheTimePointOfItsField) {
    const SampleRate fieldRate(50, 1);
    order_.isInterlace_ = true;
    order_.fieldSampleRate_ = fieldRate;
    order_.orderTp_ = StartOf(10, fieldRate);
    ScriptedDecoder decoder([](const DecodeOrder&) { return nullptr; });
    registry_.DecodeIfExists(&queue_, &decoder, order_);
    order_.decodeTopField_ = false;
    registry_.DecodeIfExists(&queue_, &decoder, order_);
    Output popped;
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_EQ(popped.tp_, StartOf(10, fieldRate));
    ASSERT_TRUE(queue_.Pop(popped));
    EXPECT_EQ(popped.tp_, StartOf(11, fieldRate));
    EXPECT_FALSE(queue_.Pop(popped)) << "one order, one output";
}

/// A decode that stays inside the decoder until the test lets it go.
class HeldDecode {
public:
    HeldDecode(ExistingCacheUpdateQueues& registry, CacheUpdateQueue& queue, const DecodeOrder& order,
               ISample* result)
        : decoder_([this, result](const DecodeOrder&) {
              inside_.Open();
              EXPECT_TRUE(release_.Wait());
              return result;
          }),
          done_(std::async(std::launch::async, [this, &registry, &queue, order] {
              return registry.DecodeIfExists(&queue, &decoder_, order);
          })) {
        EXPECT_TRUE(inside_.Wait());
    }

    bool Finish() {
        release_.Open();
        return done_.get();
    }

private:
    Gate inside_;
    Gate release_;
    ScriptedDecoder decoder_;
    std::future<bool> done_;
};

TEST_F(Registry, LookUpsPushesAndOtherDecodesRunWhileADecodeIsInProgress) {
    CacheUpdateQueue other;
    registry_.InsertExistingQueue(&other);
    HeldDecode held(registry_, queue_, order_, nullptr);
    EXPECT_TRUE(registry_.Exists(&queue_));
    EXPECT_TRUE(registry_.PushIfExists(&other, Output()));
    ScriptedDecoder decoder([](const DecodeOrder&) { return nullptr; });
    EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &decoder, order_));
    EXPECT_TRUE(held.Finish());
}

TEST_F(Registry, RemoveReturnsOnlyAfterTheDecodeInProgressHasDelivered) {
    CountedSample* decoded = census_.Make();
    HeldDecode held(registry_, queue_, order_, decoded);
    std::atomic<bool> removed = false;
    std::future<ISample*> remover = std::async(std::launch::async, [&]() -> ISample* {
        registry_.RemoveExistingQueue(&queue_);
        removed = true;
        Output popped;
        return queue_.Pop(popped) ? popped.sample_ : nullptr;
    });
    Testing::LetOthersRun();
    EXPECT_FALSE(removed);
    EXPECT_TRUE(held.Finish());
    EXPECT_EQ(remover.get(), decoded);
    EXPECT_FALSE(registry_.Exists(&queue_));
}

TEST_F(Registry, RemoveWaitsAlsoForADecodeIntoAnotherQueue) {
    CacheUpdateQueue other;
    registry_.InsertExistingQueue(&other);
    HeldDecode held(registry_, queue_, order_, nullptr);
    std::atomic<bool> removed = false;
    std::thread remover([&] {
        registry_.RemoveExistingQueue(&other);
        removed = true;
    });
    Testing::LetOthersRun();
    EXPECT_FALSE(removed);
    EXPECT_TRUE(held.Finish());
    remover.join();
    EXPECT_FALSE(registry_.Exists(&other));
}

TEST_F(Registry, InsertWaitsForADecodeInProgress) {
    CacheUpdateQueue other;
    HeldDecode held(registry_, queue_, order_, nullptr);
    std::atomic<bool> inserted = false;
    std::thread inserter([&] {
        registry_.InsertExistingQueue(&other);
        inserted = true;
    });
    Testing::LetOthersRun();
    EXPECT_FALSE(inserted);
    EXPECT_TRUE(held.Finish());
    inserter.join();
    EXPECT_TRUE(registry_.Exists(&other));
}

TEST_F(Registry, DecoderMayAskAndPushWhileARemovalWaitsForIt) {
    CacheUpdateQueue other;
    registry_.InsertExistingQueue(&other);
    Gate inside;
    Gate goOn;
    ScriptedDecoder decoder([&](const DecodeOrder&) -> ISample* {
        inside.Open();
        EXPECT_TRUE(goOn.Wait());
        EXPECT_TRUE(registry_.Exists(&queue_));
        EXPECT_TRUE(registry_.PushIfExists(&other, Output()));
        return nullptr;
    });
    std::thread worker([&] { registry_.DecodeIfExists(&queue_, &decoder, order_); });
    ASSERT_TRUE(inside.Wait());
    std::thread remover([&] { registry_.RemoveExistingQueue(&queue_); });
    Testing::LetOthersRun();
    goOn.Open();
    worker.join();
    remover.join();
    Output popped;
    EXPECT_TRUE(other.Pop(popped));
    EXPECT_TRUE(queue_.Pop(popped));
}

TEST_F(Registry, DecoderThatInsertsOrRemovesIsRefusedInsteadOfWaitingForItself) {
    ScriptedDecoder decoder([&](const DecodeOrder&) -> ISample* {
        CacheUpdateQueue other;
        EXPECT_THROW(registry_.InsertExistingQueue(&other), std::logic_error);
        EXPECT_THROW(registry_.RemoveExistingQueue(&queue_), std::logic_error);
        return nullptr;
    });
    EXPECT_TRUE(registry_.DecodeIfExists(&queue_, &decoder, order_));
    EXPECT_TRUE(registry_.Exists(&queue_));
}

/// Lets a visitor leave only when another has come in, so that somebody is inside at every moment for as long
/// as visitors keep coming. Who waits alone for a while leaves all the same.
class Relay {
public:
    void Visit() {
        std::unique_lock lock(mutex_);
        const int mine = ++nbVisits_;
        arrived_.notify_all();
        arrived_.wait_for(lock, std::chrono::milliseconds(50), [&] { return nbVisits_ > mine; });
    }

    int NbVisits() {
        const std::lock_guard lock(mutex_);
        return nbVisits_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    int nbVisits_ = 0;
};

TEST_F(Registry, RemoveIsNotStarvedByWorkersThatComeBackAtOnce) {
    CacheUpdateQueue removed;
    registry_.InsertExistingQueue(&removed);
    Relay relay;
    ScriptedDecoder decoder([&](const DecodeOrder&) -> ISample* {
        relay.Visit();
        return nullptr;
    });
    std::atomic<bool> stop = false;
    std::vector<std::thread> workers;
    workers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back([&] {
            while (!stop) {
                registry_.DecodeIfExists(&queue_, &decoder, order_);
            }
        });
    }
    while (relay.NbVisits() < 20) {
        std::this_thread::yield();
    }
    std::future<void> remover =
        std::async(std::launch::async, [&] { registry_.RemoveExistingQueue(&removed); });
    EXPECT_EQ(remover.wait_for(std::chrono::seconds(20)), std::future_status::ready)
        << "the workers never let the removal in";
    stop = true;
    for (std::thread& worker : workers) {
        worker.join();
    }
    remover.get();
    EXPECT_FALSE(registry_.Exists(&removed));
    EXPECT_TRUE(registry_.Exists(&queue_));
}

TEST_F(Registry, QueuesComeAndGoWhileProducersPushAndNoSampleIsLost) {
    constexpr int kNbProducers = 3;
    constexpr int kNbEach = 2000;
    Testing::Counter finished;
    std::atomic<CacheUpdateQueue*> current = nullptr;
    std::vector<std::thread> producers;
    producers.reserve(kNbProducers);
    for (int p = 0; p < kNbProducers; ++p) {
        producers.emplace_back([&] {
            for (int i = 0; i < kNbEach; ++i) {
                // The pointer may be out of date at any moment: that is what the registry is for.
                ISample* sample = census_.Make();
                if (!registry_.PushIfExists(current, OutputOf(sample))) {
                    delete sample;
                    std::this_thread::yield();
                }
            }
            finished.Add();
        });
    }
    while (finished.Value() < kNbProducers) {
        auto queue = std::make_unique<CacheUpdateQueue>();
        registry_.InsertExistingQueue(queue.get());
        current = queue.get();
        std::this_thread::yield();
        registry_.RemoveExistingQueue(queue.get());
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    EXPECT_EQ(census_.NbMade(), 1U + kNbProducers * kNbEach);
    EXPECT_EQ(census_.NbLive(), 1U) << "all but the compressed sample of the fixture";
    EXPECT_EQ(census_.NbAbused(), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
