#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

/// The contract of `ISample` as a test suite, to be run by whoever implements one.
///
/// What the implementer guarantees, as far as a test can see it:
///   1. a new sample is not protected;
///   2. the protection operations count: `Protect` adds and returns the sum, `Unprotect` subtracts, stops at
///      zero and returns the rest;
///   3. the protection operations may be called by several threads at once;
///   4. `GetTimePoint` and `GetDuration` do not change during the sample's life, and the duration is not
///      negative;
///   5. every listed key is answered, with the number of bytes, and always with the same bytes;
///   6. the content accessors may be called by several threads at once;
///   7. the sample can be deleted through `ISample`, on any thread.
///
/// What the implementer may assume:
///   1. the sample is deleted once, by whoever owns it then, and never while it is in use;
///   2. the engine reads nothing of the content but the duration.
///
/// To run it, write an adaptor and instantiate the suite for it in this namespace:
///
///     namespace Tavrin::Player::Contracts {
///     struct MySampleAdaptor : SampleAdaptor {
///         std::unique_ptr<ISample> Make() { return std::make_unique<MySample>(...); }
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(MySample, ISampleContract, testing::Types<MySampleAdaptor>, );
///     }
namespace Tavrin::Player::Contracts {

/// Where a sample differs from the contract, stated by its adaptor.
struct SampleAdaptor {
    /// False for a sample that leaves the size of its properties and data unset.
    static constexpr bool kSetsSizes = true;
};

template <typename Adaptor>
class ISampleContract : public testing::Test {
protected:
    /// What the content accessors tell of a sample, as one value to compare.
    struct Content {
        Time::TimePoint tp_;
        Time::TimePoint duration_;
        std::set<std::string> propertyKeys_;
        std::set<std::string> dataKeys_;
        std::vector<std::string> bytes_;

        bool operator==(const Content&) const = default;
    };

    static Content ContentOf(const ISample& sample) {
        Content content{
            sample.GetTimePoint(), sample.GetDuration(), sample.GetPropertyKeys(), sample.GetDataKeys(), {}};
        for (const std::string& key : content.propertyKeys_) {
            std::uint64_t size = 0;
            const std::uint8_t* bytes = sample.GetProperty(key, size);
            content.bytes_.push_back(Text(bytes, size));
        }
        for (const std::string& key : content.dataKeys_) {
            std::uint64_t size = 0;
            const std::uint8_t* bytes = sample.GetData(key, size);
            content.bytes_.push_back(Text(bytes, size));
        }
        return content;
    }

    /// The bytes, as far as their number is known.
    static std::string Text(const std::uint8_t* bytes, std::uint64_t size) {
        if (bytes == nullptr || !Adaptor::kSetsSizes) {
            return {};
        }
        return std::string(reinterpret_cast<const char*>(bytes), size);
    }

    template <typename Action>
    static void OnFourThreads(Action action) {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back(action);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    Adaptor adaptor_;
    std::unique_ptr<ISample> sample_ = adaptor_.Make();
};

TYPED_TEST_SUITE_P(ISampleContract);

// Guarantee 1.

TYPED_TEST_P(ISampleContract, ANewSampleIsNotProtected) {
    EXPECT_EQ(this->sample_->GetProtectionCounter(), 0);
}

// Guarantee 2.

TYPED_TEST_P(ISampleContract, ProtectAddsAndReturnsTheSum) {
    EXPECT_EQ(this->sample_->Protect(2), 2);
    EXPECT_EQ(this->sample_->Protect(3), 5);
    EXPECT_EQ(this->sample_->Protect(0), 5);
    EXPECT_EQ(this->sample_->GetProtectionCounter(), 5);
}

TYPED_TEST_P(ISampleContract, UnprotectSubtractsAndReturnsTheRest) {
    this->sample_->Protect(5);
    EXPECT_EQ(this->sample_->Unprotect(2), 3);
    EXPECT_EQ(this->sample_->GetProtectionCounter(), 3);
}

TYPED_TEST_P(ISampleContract, UnprotectStopsAtZeroAndLeavesNoDebt) {
    this->sample_->Protect(3);
    EXPECT_EQ(this->sample_->Unprotect(5), 0);
    EXPECT_EQ(this->sample_->GetProtectionCounter(), 0);
    EXPECT_EQ(this->sample_->Protect(1), 1);
}

TYPED_TEST_P(ISampleContract, EachSampleHasACounterOfItsOwn) {
    const std::unique_ptr<ISample> other = this->adaptor_.Make();
    this->sample_->Protect(1);
    EXPECT_EQ(other->GetProtectionCounter(), 0);
}

// Guarantee 3.

TYPED_TEST_P(ISampleContract, ProtectionsOfSeveralThreadsAddUp) {
    this->OnFourThreads([this] {
        for (int i = 0; i < 4'000; ++i) {
            this->sample_->Protect(2);
            this->sample_->GetProtectionCounter();
            this->sample_->Unprotect(1);
        }
    });
    EXPECT_EQ(this->sample_->GetProtectionCounter(), 4 * 4'000);
}

// Guarantee 4.

TYPED_TEST_P(ISampleContract, TheDurationIsNotNegative) {
    EXPECT_FALSE(this->sample_->GetDuration() < Time::TimePoint());
}

TYPED_TEST_P(ISampleContract, ProtectionChangesNothingElse) {
    const auto before = this->ContentOf(*this->sample_);
    this->sample_->Protect(3);
    this->sample_->Unprotect(1);
    EXPECT_TRUE(this->ContentOf(*this->sample_) == before);
}

// Guarantee 5.

TYPED_TEST_P(ISampleContract, EveryListedPropertyIsAnswered) {
    for (const std::string& key : this->sample_->GetPropertyKeys()) {
        std::uint64_t size = 0;
        EXPECT_NE(this->sample_->GetProperty(key, size), nullptr) << key;
    }
}

TYPED_TEST_P(ISampleContract, EveryListedPieceOfDataIsAnswered) {
    for (const std::string& key : this->sample_->GetDataKeys()) {
        std::uint64_t size = 0;
        EXPECT_NE(this->sample_->GetData(key, size), nullptr) << key;
    }
}

TYPED_TEST_P(ISampleContract, TheSizeOfEveryListedKeyIsSet) {
    if (!TypeParam::kSetsSizes) {
        GTEST_SKIP() << "this sample is stated to leave sizes unset";
    }
    constexpr std::uint64_t kUnset = 0xdead'beef'dead'beef;
    for (const std::string& key : this->sample_->GetPropertyKeys()) {
        std::uint64_t size = kUnset;
        this->sample_->GetProperty(key, size);
        EXPECT_NE(size, kUnset) << key;
    }
    for (const std::string& key : this->sample_->GetDataKeys()) {
        std::uint64_t size = kUnset;
        this->sample_->GetData(key, size);
        EXPECT_NE(size, kUnset) << key;
    }
}

TYPED_TEST_P(ISampleContract, TheContentIsTheSameEachTimeItIsAskedFor) {
    EXPECT_TRUE(this->ContentOf(*this->sample_) == this->ContentOf(*this->sample_));
}

// Guarantee 6.

TYPED_TEST_P(ISampleContract, SeveralThreadsReadTheSameContent) {
    const auto expected = this->ContentOf(*this->sample_);
    this->OnFourThreads([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(this->ContentOf(*this->sample_) == expected);
        }
    });
}

// Guarantee 7.

TYPED_TEST_P(ISampleContract, IsDeletedThroughTheInterfaceOnAnotherThread) {
    ISample* const sample = this->sample_.release();
    std::thread([sample] { delete sample; }).join();
}

REGISTER_TYPED_TEST_SUITE_P(ISampleContract, ANewSampleIsNotProtected, ProtectAddsAndReturnsTheSum,
                            UnprotectSubtractsAndReturnsTheRest, UnprotectStopsAtZeroAndLeavesNoDebt,
                            EachSampleHasACounterOfItsOwn, ProtectionsOfSeveralThreadsAddUp,
                            TheDurationIsNotNegative, ProtectionChangesNothingElse,
                            EveryListedPropertyIsAnswered, EveryListedPieceOfDataIsAnswered,
                            TheSizeOfEveryListedKeyIsSet, TheContentIsTheSameEachTimeItIsAskedFor,
                            SeveralThreadsReadTheSameContent, IsDeletedThroughTheInterfaceOnAnotherThread);

}  // namespace Tavrin::Player::Contracts
