#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "Player/FakeSample.h"
#include "Player/ISample.h"
#include "Player/IStream.h"
#include "Player/Player.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

/// The contract of `Stream` as a test suite, to be run by whoever implements one.
///
/// What the implementer guarantees:
///   1. `LinkPlayer` links and `UnlinkPlayer` unlinks; a new stream is not linked. Without a player,
///      `GetCurrentSample` answers `Unlinked`;
///   2. `SetStreamParameters` installs what `GetStreamParameters` returns, by a reference that stays the
///      same (the order queues may be the stream's own, whatever was asked for);
///   3. `Begin` and `End` are what was set last, `Begin` not after `End`; nothing exists before the one or
///      after the other;
///   4. `Next` and `Previous` go from the start of one sample to that of its neighbour and back;
///   5. the two update queues are there, differ, and stay the same;
///   6. driven by its client, a stream that is linked becomes ready wherever the play head stands, and then
///      shows the sample that covers the play head: `New` or `New_And_Decoded` the first time and `Same`
///      after that;
///   7. a stream that is ready does not answer `NotReady`;
///   8. where nothing exists the stream is ready, answers `Empty` and sets its flag: a player must not wait
///      for what will never come;
///   9. `*sample` is written only with `New`, `New_And_Decoded` and `Same`.
///
/// What the implementer may assume:
///   1. all operations are called on one thread;
///   2. the player that was linked lives until it is unlinked;
///   3. the stream is detached from its player before it is destroyed.
///
/// To run it, write an adaptor and instantiate the suite for it in this namespace:
///
///     namespace Tavrin::Player::Contracts {
///     struct MyStreamAdaptor : StreamAdaptor {
///         Stream& Get() { return stream_; }              // one stream, with workers that serve it
///         Time::TimePoint Sample(std::size_t i) { ... }  // the start of sample i = 0 to 9, in succession
///         void Drive() { ... }                           // once per tick: file answers, send orders
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(MyStream, StreamContract, testing::Types<MyStreamAdaptor>, );
///     }
namespace Tavrin::Player::Contracts {

/// Where a stream differs from the contract, stated by its adaptor.
struct StreamAdaptor {
    /// False for a stream that has more samples than its display can show at normal speed, and leaves some
    /// out.
    static constexpr bool kShowsEverySampleAtNormalSpeed = true;

    /// After a jump, before the first `Drive` at the new place: for a client that withdraws orders then.
    void Jumped() {}
};

template <typename Adaptor>
class StreamContract : public testing::Test {
protected:
    static constexpr std::size_t kNbSamples = 10;

    void TearDown() override {
        player_.DetachAllStreams();
        Subject().UnlinkPlayer();
    }

    Stream& Subject() { return adaptor_.Get(); }

    void LinkAt(const Time::TimePoint& tp) {
        player_.GoTo(tp);
        Subject().LinkPlayer(&player_);
    }

    void JumpTo(const Time::TimePoint& tp) {
        player_.GoTo(tp);
        adaptor_.Jumped();
    }

    /// Drives the stream until it is ready; false when that takes implausibly long.
    [[nodiscard]] bool DriveUntilReady() {
        constexpr std::chrono::seconds kFailureBound{30};
        const auto bound = std::chrono::steady_clock::now() + kFailureBound;
        while (std::chrono::steady_clock::now() < bound) {
            adaptor_.Drive();
            if (Subject().IsReady()) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    static bool IsShown(SampleStatus status) {
        return status == SampleStatus::New || status == SampleStatus::New_And_Decoded ||
               status == SampleStatus::Same;
    }

    /// Expects that the stream shows the sample that covers the play head, and returns its status.
    SampleStatus ExpectShown(ISample** sample = nullptr) {
        ISample* shown = nullptr;
        const SampleStatus status = Subject().GetCurrentSample(&shown);
        EXPECT_TRUE(IsShown(status)) << static_cast<std::int32_t>(status);
        if (shown == nullptr) {
            ADD_FAILURE() << "no sample was written";
            return status;
        }
        const Time::TimePoint head = player_.GetCurrentTimePoint();
        EXPECT_FALSE(head < shown->GetTimePoint());
        EXPECT_TRUE(head < shown->GetTimePoint() + shown->GetDuration());
        if (sample != nullptr) {
            *sample = shown;
        }
        return status;
    }

    void ExpectShownAt(const Time::TimePoint& tp) {
        JumpTo(tp);
        ASSERT_TRUE(DriveUntilReady()) << "at " << tp;
        ExpectShown();
    }

    /// Something that no stream hands out, to see whether `*sample` is written.
    ISample* Untouched() { return &untouched_; }

    Time::TimePoint Beyond() { return Subject().End() + Time::TimePoint().FromSeconds(10); }

    FakeSample untouched_{Time::TimePoint(), Time::TimePoint()};
    Player player_;
    Adaptor adaptor_;
};

TYPED_TEST_SUITE_P(StreamContract);

// Guarantee 1.

TYPED_TEST_P(StreamContract, ANewStreamIsNotLinked) {
    EXPECT_FALSE(this->Subject().IsLinked());
}

TYPED_TEST_P(StreamContract, LinkingAndUnlinkingAreSeenAtOnce) {
    this->Subject().LinkPlayer(&this->player_);
    EXPECT_TRUE(this->Subject().IsLinked());
    this->Subject().UnlinkPlayer();
    EXPECT_FALSE(this->Subject().IsLinked());
}

TYPED_TEST_P(StreamContract, WithoutAPlayerTheCurrentSampleIsUnlinkedAndNothingIsWritten) {
    ISample* sample = this->Untouched();
    EXPECT_EQ(this->Subject().GetCurrentSample(&sample), SampleStatus::Unlinked);
    EXPECT_EQ(sample, this->Untouched());
}

// Guarantee 2.

TYPED_TEST_P(StreamContract, ParametersAreWhatWasSet) {
    Stream::StreamParameters parameters = this->Subject().GetStreamParameters();
    parameters.width_ += 16;
    parameters.height_ += 16;
    parameters.nbDecoding_ += 1;
    this->Subject().SetStreamParameters(parameters);
    const Stream::StreamParameters& seen = this->Subject().GetStreamParameters();
    EXPECT_EQ(seen.width_, parameters.width_);
    EXPECT_EQ(seen.height_, parameters.height_);
    EXPECT_EQ(seen.nbDecoding_, parameters.nbDecoding_);
    EXPECT_EQ(seen.trackId_, parameters.trackId_);
    EXPECT_EQ(seen.displayRate_, parameters.displayRate_);
}

TYPED_TEST_P(StreamContract, TheReferenceToTheParametersStaysTheSame) {
    const Stream::StreamParameters* const before = &this->Subject().GetStreamParameters();
    this->Subject().SetStreamParameters(Stream::StreamParameters(*before));
    EXPECT_EQ(&this->Subject().GetStreamParameters(), before);
}

TYPED_TEST_P(StreamContract, TheIdentifierIsWhatWasSet) {
    this->Subject().SetStreamId(77);
    EXPECT_EQ(this->Subject().StreamId(), 77);
}

// Guarantee 3.

TYPED_TEST_P(StreamContract, TheStreamBeginsNotAfterItEnds) {
    EXPECT_FALSE(this->Subject().End() < this->Subject().Begin());
}

TYPED_TEST_P(StreamContract, BeginAndEndAreWhatWasSet) {
    this->Subject().SetBegin(this->adaptor_.Sample(1));
    this->Subject().SetEnd(this->adaptor_.Sample(8));
    EXPECT_EQ(this->Subject().Begin(), this->adaptor_.Sample(1));
    EXPECT_EQ(this->Subject().End(), this->adaptor_.Sample(8));
}

TYPED_TEST_P(StreamContract, SamplesExistInsideAndNothingExistsOutside) {
    for (std::size_t i = 0; i < this->kNbSamples; ++i) {
        EXPECT_TRUE(this->Subject().Exists(this->adaptor_.Sample(i))) << i;
    }
    EXPECT_FALSE(this->Subject().Exists(this->Subject().Begin() - Time::TimePoint().FromSeconds(1)));
    EXPECT_FALSE(this->Subject().Exists(this->Beyond()));
}

// Guarantee 4.

TYPED_TEST_P(StreamContract, NextGoesToTheFollowingSampleAndPreviousBack) {
    for (std::size_t i = 0; i + 1 < this->kNbSamples; ++i) {
        const Time::TimePoint here = this->adaptor_.Sample(i);
        const Time::TimePoint there = this->adaptor_.Sample(i + 1);
        EXPECT_EQ(this->Subject().Next(here), there);
        EXPECT_EQ(this->Subject().Previous(there), here);
    }
}

// Guarantee 5.

TYPED_TEST_P(StreamContract, TheUpdateQueuesAreThereDifferAndStayTheSame) {
    CacheUpdateQueue* const compressed = this->Subject().GetCacheUpdateQueue();
    CacheUpdateQueue* const decoded = this->Subject().GetUncompressedCacheUpdateQueue();
    EXPECT_NE(compressed, nullptr);
    EXPECT_NE(decoded, nullptr);
    EXPECT_NE(compressed, decoded);
    EXPECT_EQ(this->Subject().GetCacheUpdateQueue(), compressed);
    EXPECT_EQ(this->Subject().GetUncompressedCacheUpdateQueue(), decoded);
}

// Guarantees 6 and 7.

TYPED_TEST_P(StreamContract, BecomesReadyAndShowsTheSampleAtThePlayHead) {
    this->LinkAt(this->adaptor_.Sample(2));
    ASSERT_TRUE(this->DriveUntilReady());
    EXPECT_NE(this->ExpectShown(), SampleStatus::Same);
}

TYPED_TEST_P(StreamContract, ShowsTheSameSampleWhileThePlayHeadStands) {
    this->LinkAt(this->adaptor_.Sample(2));
    ASSERT_TRUE(this->DriveUntilReady());
    ISample* first = nullptr;
    ISample* second = nullptr;
    this->ExpectShown(&first);
    EXPECT_EQ(this->ExpectShown(&second), SampleStatus::Same);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(this->Subject().IsReady());
}

TYPED_TEST_P(StreamContract, ShowsTheSampleThatCoversAPlayHeadInsideIt) {
    this->LinkAt(this->adaptor_.Sample(2));
    this->ExpectShownAt(this->adaptor_.Sample(3) + Time::TimePoint().FromNanoseconds(1));
    this->ExpectShownAt(this->adaptor_.Sample(5) - Time::TimePoint().FromNanoseconds(1));
}

TYPED_TEST_P(StreamContract, BecomesReadyAfterEachJump) {
    this->LinkAt(this->adaptor_.Sample(0));
    for (const std::size_t i : {9u, 0u, 5u, 4u, 6u, 0u}) {
        this->ExpectShownAt(this->adaptor_.Sample(i));
    }
}

TYPED_TEST_P(StreamContract, BecomesReadyAtEverySpeed) {
    this->LinkAt(this->adaptor_.Sample(4));
    for (const std::int64_t speed : {1, 4, 0, -1, -2}) {
        this->player_.SetSpeed(Time::Ratio(speed, 1));
        this->JumpTo(this->adaptor_.Sample(static_cast<std::size_t>(5 + speed)));
        ASSERT_TRUE(this->DriveUntilReady()) << speed;
        ISample* sample = nullptr;
        EXPECT_TRUE(this->IsShown(this->Subject().GetCurrentSample(&sample))) << speed;
    }
}

TYPED_TEST_P(StreamContract, APlayerThatWaitsForItShowsEverySampleForwardAndBackward) {
    if (!TypeParam::kShowsEverySampleAtNormalSpeed) {
        GTEST_SKIP() << "this stream is stated to leave samples out";
    }
    this->LinkAt(this->adaptor_.Sample(0));
    this->player_.AttachStream(&this->Subject());
    const Time::TimePoint period = this->adaptor_.Sample(1) - this->adaptor_.Sample(0);
    for (const std::int64_t speed : {1, -1}) {
        this->player_.SetSpeed(Time::Ratio(speed, 1));
        for (std::size_t i = 0; i + 2 < this->kNbSamples; ++i) {
            ASSERT_TRUE(this->DriveUntilReady());
            this->ExpectShown();
            const Time::TimePoint before = this->player_.GetCurrentTimePoint();
            this->player_.Update(period);
            EXPECT_FALSE(this->player_.GetCurrentTimePoint() == before) << "the stream was ready";
        }
    }
}

TYPED_TEST_P(StreamContract, KeepsTheSampleThatTheClientProtects) {
    this->LinkAt(this->adaptor_.Sample(0));
    ASSERT_TRUE(this->DriveUntilReady());
    ISample* kept = nullptr;
    this->ExpectShown(&kept);
    ASSERT_NE(kept, nullptr);
    const Time::TimePoint tp = kept->GetTimePoint();
    kept->Protect(1);
    for (std::size_t i = 1; i < this->kNbSamples; ++i) {
        this->ExpectShownAt(this->adaptor_.Sample(i));
    }
    EXPECT_EQ(kept->GetTimePoint(), tp);
    kept->Unprotect(1);
}

TYPED_TEST_P(StreamContract, BecomesReadyWithAnyNumberOfPreloads) {
    this->LinkAt(this->adaptor_.Sample(0));
    for (const std::size_t nb : {0u, 1u, 30u}) {
        this->Subject().SetCompressedPreloadNumber(nb);
        this->ExpectShownAt(this->adaptor_.Sample(nb % this->kNbSamples + 1));
        EXPECT_GE(this->Subject().DebugPreloadQueueSize(), 0);
    }
}

// Guarantee 8.

TYPED_TEST_P(StreamContract, BeyondItsEndTheStreamIsReadyEmptyAndSaysSo) {
    this->LinkAt(this->adaptor_.Sample(0));
    this->Subject().ResetEmptyFlag();
    this->JumpTo(this->Beyond());
    ASSERT_TRUE(this->DriveUntilReady());
    ISample* sample = this->Untouched();
    EXPECT_EQ(this->Subject().GetCurrentSample(&sample), SampleStatus::Empty);
    EXPECT_TRUE(this->Subject().IsEmptyFlag());
    EXPECT_EQ(sample, this->Untouched());
}

TYPED_TEST_P(StreamContract, BackInsideTheStreamShowsSamplesAgain) {
    this->LinkAt(this->Beyond());
    ASSERT_TRUE(this->DriveUntilReady());
    ISample* sample = nullptr;
    this->Subject().GetCurrentSample(&sample);
    this->Subject().ResetEmptyFlag();
    this->ExpectShownAt(this->adaptor_.Sample(3));
    EXPECT_FALSE(this->Subject().IsEmptyFlag());
}

// Guarantee 9.

TYPED_TEST_P(StreamContract, WhileItIsNotReadyNothingIsWritten) {
    this->LinkAt(this->adaptor_.Sample(7));
    ISample* sample = this->Untouched();
    const SampleStatus status = this->Subject().GetCurrentSample(&sample);
    EXPECT_EQ(sample != this->Untouched(), this->IsShown(status));
}

REGISTER_TYPED_TEST_SUITE_P(
    StreamContract, ANewStreamIsNotLinked, LinkingAndUnlinkingAreSeenAtOnce,
    WithoutAPlayerTheCurrentSampleIsUnlinkedAndNothingIsWritten, ParametersAreWhatWasSet,
    TheReferenceToTheParametersStaysTheSame, TheIdentifierIsWhatWasSet, TheStreamBeginsNotAfterItEnds,
    BeginAndEndAreWhatWasSet, SamplesExistInsideAndNothingExistsOutside,
    NextGoesToTheFollowingSampleAndPreviousBack, TheUpdateQueuesAreThereDifferAndStayTheSame,
    BecomesReadyAndShowsTheSampleAtThePlayHead, ShowsTheSameSampleWhileThePlayHeadStands,
    ShowsTheSampleThatCoversAPlayHeadInsideIt, BecomesReadyAfterEachJump, BecomesReadyAtEverySpeed,
    APlayerThatWaitsForItShowsEverySampleForwardAndBackward, KeepsTheSampleThatTheClientProtects,
    BecomesReadyWithAnyNumberOfPreloads, BeyondItsEndTheStreamIsReadyEmptyAndSaysSo,
    BackInsideTheStreamShowsSamplesAgain, WhileItIsNotReadyNothingIsWritten);

}  // namespace Tavrin::Player::Contracts
