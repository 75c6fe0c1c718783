#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrder.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/ISample.h"
#include "Player/ISampleDecoder.h"
#include "Player/Output.h"
#include "Player/SampleRate.h"

/// The contract of `ISampleDecoder` as a test suite, to be run by whoever implements one.
///
/// What the implementer guarantees:
///   1. `Decode` yields a new sample, which the caller owns and which is not protected, with the time point
///      and the duration of `DecodeOrder::GenerateTimePointAndDuration`;
///   2. what cannot be decoded yields null or throws `std::runtime_error`, and nothing else; the orders
///      after it are decoded all the same;
///   3. the compressed sample is only read: it is not deleted, and its protection is left to the worker;
///   4. nothing of the compressed sample is used after `Decode` has returned (which a sanitizer sees);
///   5. orders may come in any sequence;
///   6. `Decode` may be called by several threads at once.
///
/// What the implementer may assume:
///   1. the compressed sample is protected, and so alive, during the call;
///   2. the returned sample is delivered or deleted once, through `ISample`.
///
/// To run it, write an adaptor and instantiate the suite for it in this namespace:
///
///     namespace Tavrin::Player::Contracts {
///     struct MyDecoderAdaptor : DecoderAdaptor {
///         ISampleDecoder& Decoder() { return decoder_; }
///         std::unique_ptr<ISample> Compressed(std::size_t i) { ... }  // i = 0 to 7, of different times
///         MyDecoder decoder_;
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(MyDecoder, ISampleDecoderContract, testing::Types<MyDecoderAdaptor>, );
///     }
namespace Tavrin::Player::Contracts {

/// Where a decoder differs from the contract, and what can be arranged with it, stated by its adaptor.
struct DecoderAdaptor {
    /// The protections that the decoder releases itself; a real decoder leaves all to the worker.
    static constexpr std::int64_t kNbReleases = 0;

    /// The order that decodes this sample; the suite sets its queue.
    DecodeOrder OrderFor(ISample& compressed) {
        DecodeOrder order;
        order.toDecode_ = &compressed;
        order.orderTp_ = compressed.GetTimePoint();
        return order;
    }

    /// A compressed sample that cannot be decoded; null when there is none.
    std::unique_ptr<ISample> Undecodable() { return nullptr; }

    /// The field rate of interlaced material that the samples can be decoded as; nothing when they cannot.
    std::optional<SampleRate> FieldRate() { return std::nullopt; }
};

template <typename Adaptor>
class ISampleDecoderContract : public testing::Test {
protected:
    static constexpr std::size_t kNbSamples = 8;

    ISampleDecoderContract() {
        for (std::size_t i = 0; i < kNbSamples; ++i) {
            compressed_.push_back(adaptor_.Compressed(i));
        }
    }

    ISampleDecoder& Decoder() { return adaptor_.Decoder(); }

    /// The order for one of the samples, which now carries as many protections as running the order releases.
    DecodeOrder Protected(std::size_t i) {
        compressed_[i]->Protect(1 + Adaptor::kNbReleases);
        DecodeOrder order = adaptor_.OrderFor(*compressed_[i]);
        order.queue_ = &answers_;
        return order;
    }

    /// Decodes as a worker does, but for the delivery.
    std::unique_ptr<ISample> Decode(const DecodeOrder& order) {
        std::unique_ptr<ISample> decoded(Decoder().Decode(order));
        order.toDecode_->Unprotect(1);
        return decoded;
    }

    static void ExpectGenerated(const ISample* decoded, const DecodeOrder& order) {
        ASSERT_NE(decoded, nullptr);
        Time::TimePoint tp;
        Time::TimePoint duration;
        order.GenerateTimePointAndDuration(tp, duration);
        EXPECT_EQ(decoded->GetTimePoint(), tp);
        EXPECT_EQ(decoded->GetDuration(), duration);
    }

    std::vector<std::unique_ptr<ISample>> TakeAnswers() {
        std::vector<std::unique_ptr<ISample>> samples;
        Output output;
        while (answers_.Pop(output)) {
            samples.emplace_back(output.sample_);
        }
        return samples;
    }

    /// Has two workers decode all samples, and expects an answer and the right releases for each.
    void ServeWorkers(ExistingCacheUpdateQueues* registry) {
        constexpr std::chrono::seconds kFailureBound{30};
        DecodeOrderQueue orders;
        DecodeThread workers[2];
        for (DecodeThread& worker : workers) {
            worker.SetDecoder(&Decoder());
            worker.SetExistingUncompressedCacheUpdateQueues(registry);
            worker.AddDecodeOrderQueue(&orders);
            worker.Start();
        }
        for (std::size_t i = 0; i < kNbSamples; ++i) {
            orders.Push(Protected(i));
        }
        std::vector<std::unique_ptr<ISample>> decoded;
        const auto bound = std::chrono::steady_clock::now() + kFailureBound;
        while (decoded.size() < kNbSamples && std::chrono::steady_clock::now() < bound) {
            for (auto& sample : TakeAnswers()) {
                decoded.push_back(std::move(sample));
            }
            std::this_thread::yield();
        }
        for (DecodeThread& worker : workers) {
            worker.Stop();
        }
        EXPECT_EQ(decoded.size() + TakeAnswers().size(), kNbSamples);
        for (std::size_t i = 0; i < kNbSamples; ++i) {
            EXPECT_EQ(compressed_[i]->GetProtectionCounter(), 0);
        }
        for (const auto& sample : decoded) {
            EXPECT_NE(sample, nullptr);
        }
    }

    CacheUpdateQueue answers_;
    ExistingCacheUpdateQueues registry_;
    Adaptor adaptor_;
    std::vector<std::unique_ptr<ISample>> compressed_;
};

TYPED_TEST_SUITE_P(ISampleDecoderContract);

// Guarantee 1.

TYPED_TEST_P(ISampleDecoderContract, TheResultHasTheTimePointAndTheDurationOfTheOrder) {
    for (std::size_t i = 0; i < this->kNbSamples; ++i) {
        const DecodeOrder order = this->Protected(i);
        const std::unique_ptr<ISample> decoded(this->Decoder().Decode(order));
        this->ExpectGenerated(decoded.get(), order);
    }
}

TYPED_TEST_P(ISampleDecoderContract, TheResultIsANewSampleEachTime) {
    const auto first = this->Decode(this->Protected(0));
    const auto second = this->Decode(this->Protected(0));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_NE(first, this->compressed_[0]);
}

TYPED_TEST_P(ISampleDecoderContract, TheResultIsNotProtected) {
    const auto decoded = this->Decode(this->Protected(0));
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->GetProtectionCounter(), 0);
}

TYPED_TEST_P(ISampleDecoderContract, AFieldHasTheTimePointAndTheDurationOfTheOrder) {
    const std::optional<SampleRate> rate = this->adaptor_.FieldRate();
    if (!rate) {
        GTEST_SKIP() << "this material has no fields";
    }
    for (const bool top : {true, false}) {
        DecodeOrder order = this->Protected(1);
        order.isInterlace_ = true;
        order.decodeTopField_ = top;
        order.fieldSampleRate_ = *rate;
        const std::unique_ptr<ISample> decoded(this->Decoder().Decode(order));
        this->ExpectGenerated(decoded.get(), order);
    }
}

// Guarantee 2.

TYPED_TEST_P(ISampleDecoderContract, WhatCannotBeDecodedYieldsNullOrARuntimeErrorAndTheNextOrderIsDecoded) {
    const std::unique_ptr<ISample> broken = this->adaptor_.Undecodable();
    if (broken == nullptr) {
        GTEST_SKIP() << "everything can be decoded";
    }
    broken->Protect(1 + TypeParam::kNbReleases);
    const DecodeOrder order = this->adaptor_.OrderFor(*broken);
    std::unique_ptr<ISample> decoded;
    try {
        decoded.reset(this->Decoder().Decode(order));
    } catch (const std::runtime_error& failure) {
        SUCCEED() << failure.what();
    }
    EXPECT_EQ(decoded, nullptr);
    EXPECT_NE(this->Decode(this->Protected(0)), nullptr);
}

// Guarantee 3.

TYPED_TEST_P(ISampleDecoderContract, TheProtectionIsLeftToTheWorker) {
    const DecodeOrder order = this->Protected(0);
    const std::unique_ptr<ISample> decoded(this->Decoder().Decode(order));
    EXPECT_EQ(this->compressed_[0]->GetProtectionCounter(), 1);
}

TYPED_TEST_P(ISampleDecoderContract, TheCompressedSampleStaysAsItWas) {
    const Time::TimePoint tp = this->compressed_[0]->GetTimePoint();
    const Time::TimePoint duration = this->compressed_[0]->GetDuration();
    this->Decode(this->Protected(0));
    EXPECT_EQ(this->compressed_[0]->GetTimePoint(), tp);
    EXPECT_EQ(this->compressed_[0]->GetDuration(), duration);
    EXPECT_EQ(this->compressed_[0]->GetPropertyKeys(), this->adaptor_.Compressed(0)->GetPropertyKeys());
    EXPECT_EQ(this->compressed_[0]->GetDataKeys(), this->adaptor_.Compressed(0)->GetDataKeys());
}

// Guarantee 4.

TYPED_TEST_P(ISampleDecoderContract, TheResultOutlivesTheCompressedSample) {
    const auto decoded = this->Decode(this->Protected(0));
    ASSERT_NE(decoded, nullptr);
    const Time::TimePoint tp = decoded->GetTimePoint();
    this->compressed_[0].reset();
    EXPECT_EQ(decoded->GetTimePoint(), tp);
    for (const std::string& key : decoded->GetDataKeys()) {
        std::uint64_t size = 0;
        EXPECT_NE(decoded->GetData(key, size), nullptr) << key;
    }
    EXPECT_NE(this->Decode(this->Protected(1)), nullptr);
}

// Guarantee 5.

TYPED_TEST_P(ISampleDecoderContract, OrdersInAnySequenceAreDecoded) {
    for (const std::size_t i : {5u, 0u, 7u, 6u, 1u, 1u, 4u}) {
        const DecodeOrder order = this->Protected(i);
        const std::unique_ptr<ISample> decoded(this->Decoder().Decode(order));
        this->ExpectGenerated(decoded.get(), order);
    }
}

// Guarantee 6.

TYPED_TEST_P(ISampleDecoderContract, SeveralThreadsDecodeAtTheSameTime) {
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (std::size_t i = 0; i < this->kNbSamples; ++i) {
                const DecodeOrder order = this->Protected((i + 2 * t) % this->kNbSamples);
                Time::TimePoint tp;
                Time::TimePoint duration;
                order.GenerateTimePointAndDuration(tp, duration);
                const auto decoded = this->Decode(order);
                ASSERT_NE(decoded, nullptr);
                EXPECT_EQ(decoded->GetTimePoint(), tp);
                EXPECT_EQ(decoded->GetDuration(), duration);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& compressed : this->compressed_) {
        EXPECT_EQ(compressed->GetProtectionCounter(), 0);
    }
}

// All together, on the worker that will call it.

TYPED_TEST_P(ISampleDecoderContract, ServesTheDecodeWorkers) {
    this->ServeWorkers(nullptr);
}

TYPED_TEST_P(ISampleDecoderContract, ServesTheDecodeWorkersThroughARegistry) {
    this->registry_.InsertExistingQueue(&this->answers_);
    this->ServeWorkers(&this->registry_);
}

REGISTER_TYPED_TEST_SUITE_P(ISampleDecoderContract, TheResultHasTheTimePointAndTheDurationOfTheOrder,
                            TheResultIsANewSampleEachTime, TheResultIsNotProtected,
                            AFieldHasTheTimePointAndTheDurationOfTheOrder,
                            WhatCannotBeDecodedYieldsNullOrARuntimeErrorAndTheNextOrderIsDecoded,
                            TheProtectionIsLeftToTheWorker, TheCompressedSampleStaysAsItWas,
                            TheResultOutlivesTheCompressedSample, OrdersInAnySequenceAreDecoded,
                            SeveralThreadsDecodeAtTheSameTime, ServesTheDecodeWorkers,
                            ServesTheDecodeWorkersThroughARegistry);

}  // namespace Tavrin::Player::Contracts
