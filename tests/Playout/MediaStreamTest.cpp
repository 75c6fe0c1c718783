// The stream of the media client under the contract of `Stream`.

#include "Playout/MediaStream.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Player/PreloadThread.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "contracts/StreamContract.h"

namespace Tavrin::Player::Contracts {

struct MediaStreamAdaptor : StreamAdaptor {
    MediaStreamAdaptor() {
        preloader_.AddTrack(track_, index_);
        preloader_.SetExistingCacheUpdateQueues(&registry_);
        decoder_.AddTrack(track_, index_);
        reader_.SetPreloader(&preloader_);
        reader_.SetPreloadOrderQueue(stream_.GetStreamParameters().preloadQueue_);
        worker_.SetDecoder(&decoder_);
        worker_.SetExistingUncompressedCacheUpdateQueues(&registry_);
        worker_.AddDecodeOrderQueue(stream_.GetStreamParameters().decodeQueue_);
        reader_.Start();
        worker_.Start();
    }

    ~MediaStreamAdaptor() {
        reader_.Stop();
        worker_.Stop();
    }

    Stream& Get() { return stream_; }
    Time::TimePoint Sample(std::size_t i) { return index_->SampleStart(static_cast<std::int64_t>(i)); }
    void Jumped() { stream_.Withdraw(); }
    void Drive() {
        stream_.Intake();
        stream_.Plan();
    }

    TrackId track_{StorageId("clip", 0), 1};
    std::shared_ptr<const Playout::RecordingIndex> index_ =
        Playout::RecordingIndex::Build(Playout::Support::Clips::OpenGroups());
    Playout::MediaPreloader preloader_;
    Playout::MediaDecoder decoder_;
    ExistingCacheUpdateQueues registry_;
    Playout::MediaStream stream_{index_, track_, index_->Rate(), {}, registry_};
    PreloadThread reader_;
    DecodeThread worker_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaStream, StreamContract, testing::Types<MediaStreamAdaptor>, );

}  // namespace Tavrin::Player::Contracts

namespace Tavrin::Playout {

namespace {

/// A stream whose workers are the test: each order is carried out when it says so.
class DrivenStream {
public:
    DrivenStream() {
        preloader_.AddTrack(track_, index_);
        decoder_.AddTrack(track_, index_);
        stream_.LinkPlayer(&player_);
        stream_.Plan();
    }

    MediaStream& Get() { return stream_; }

    Player::Player& PlayHead() { return player_; }
    const RecordingIndex& Index() const { return *index_; }

    void ReadFirst() {
        Player::PreloadOrder order;
        ASSERT_TRUE(stream_.GetStreamParameters().preloadQueue_->Pop(order));
        preloader_.Preload(order);
        FileAndPlan();
    }

    [[nodiscard]] std::size_t NbDecodeOrders() {
        return stream_.GetStreamParameters().decodeQueue_->GetSize();
    }

    void ReadAndDecodeAll() {
        while (stream_.DebugPreloadQueueSize() > 0) {
            ReadFirst();
        }
        while (NbDecodeOrders() > 0) {
            DecodeFirst();
        }
    }

    /// One picture on, as the session does it.
    void MoveOn() {
        player_.Update(index_->SampleStart(1));
        FileAndPlan();
    }

    void DecodeFirst() {
        Player::DecodeOrder order;
        ASSERT_TRUE(stream_.GetStreamParameters().decodeQueue_->Pop(order));
        Player::Output output;
        output.tp_ = order.orderTp_;
        output.sample_ = decoder_.Decode(order);
        order.toDecode_->Unprotect(1);
        order.queue_->Push(output);
        FileAndPlan();
    }

private:
    void FileAndPlan() {
        stream_.Intake();
        stream_.Plan();
    }

    Player::TrackId track_{Player::StorageId("clip", 0), 1};
    std::shared_ptr<const RecordingIndex> index_ = RecordingIndex::Build(Support::Clips::OpenGroups());
    MediaPreloader preloader_;
    MediaDecoder decoder_;
    Player::ExistingCacheUpdateQueues registry_;
    Player::Player player_;
    MediaStream stream_{index_, track_, index_->Rate(), {}, registry_};
};

}  // namespace

TEST(MediaStreamWaitCause, IsStorageUntilThePictureAtThePlayHeadIsRead) {
    DrivenStream driven;
    EXPECT_EQ(driven.Get().WaitCause(), WaitCause::Storage);
}

TEST(MediaStreamWaitCause, IsDecoderFromThenUntilItIsDecoded) {
    DrivenStream driven;
    driven.ReadFirst();
    EXPECT_EQ(driven.Get().WaitCause(), WaitCause::Decoder);
}

TEST(MediaStreamWaitCause, IsNoneOnceItIsDecoded) {
    DrivenStream driven;
    driven.ReadFirst();
    driven.DecodeFirst();
    EXPECT_EQ(driven.Get().WaitCause(), WaitCause::None);
}

TEST(MediaStreamAhead, IsThereOnceTheNextPicturesAreDecoded) {
    DrivenStream stream;
    stream.PlayHead().SetSpeed(Time::Ratio(1, 1));
    stream.ReadFirst();
    stream.ReadFirst();
    stream.DecodeFirst();
    EXPECT_TRUE(stream.Get().HasAhead(0));
    EXPECT_FALSE(stream.Get().HasAhead(1));
    stream.ReadFirst();
    stream.DecodeFirst();
    EXPECT_TRUE(stream.Get().HasAhead(1));
    EXPECT_FALSE(stream.Get().HasAhead(2));
}

TEST(MediaStreamAhead, IsThereForAPlayHeadThatStands) {
    DrivenStream stream;
    stream.PlayHead().SetSpeed(Time::Ratio());
    EXPECT_TRUE(stream.Get().HasAhead(4));
}

TEST(MediaStreamAhead, IsThereBeyondTheEnds) {
    DrivenStream stream;
    stream.PlayHead().SetSpeed(Time::Ratio(-1, 1));
    EXPECT_TRUE(stream.Get().HasAhead(4)) << "before the first picture";
    stream.PlayHead().SetSpeed(Time::Ratio(1, 1));
    EXPECT_FALSE(stream.Get().HasAhead(4));
    stream.PlayHead().GoTo(stream.Index().End());
    EXPECT_TRUE(stream.Get().HasAhead(4)) << "after the last one";
}

TEST(MediaStreamOrders, AreGivenManyAtATimeOnceEnoughIsDecoded) {
    DrivenStream stream;
    stream.PlayHead().SetSpeed(Time::Ratio(1, 1));
    stream.MoveOn();
    stream.ReadAndDecodeAll();
    int nbWithout = 0;
    while (stream.NbDecodeOrders() == 0 && nbWithout < 20) {
        stream.MoveOn();
        ++nbWithout;
    }
    EXPECT_GE(nbWithout, 4);
    EXPECT_LE(nbWithout, 8);
    EXPECT_GE(stream.NbDecodeOrders(), 4U);
    EXPECT_TRUE(stream.Get().HasAhead(8)) << "long before what is decoded runs out";
}

TEST(MediaStreamOrders, WhatIsUnderThePlayHeadGoesBeforeWhatWasOrderedEarlier) {
    DrivenStream stream;
    stream.PlayHead().SetSpeed(Time::Ratio(1, 1));
    stream.MoveOn();
    while (stream.Get().DebugPreloadQueueSize() > 0) {
        stream.ReadFirst();
    }
    ASSERT_GT(stream.NbDecodeOrders(), 4U);
    // Read, but beyond what decoding was ordered for.
    const Time::TimePoint there = stream.Index().SampleStart(30);
    stream.PlayHead().GoTo(there);
    stream.Get().Plan();
    Player::DecodeOrder order;
    ASSERT_TRUE(stream.Get().GetStreamParameters().decodeQueue_->Pop(order));
    EXPECT_EQ(order.orderTp_, there);
}

TEST(MediaStreamWaitCause, IsNoneOutsideOfTheRecording) {
    DrivenStream driven;
    driven.Get().SetBegin(Time::TimePoint().FromSeconds(1));
    EXPECT_EQ(driven.Get().WaitCause(), WaitCause::None);
}

}  // namespace Tavrin::Playout
