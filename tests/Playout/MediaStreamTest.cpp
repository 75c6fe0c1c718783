// The stream of the media client under the contract of `Stream`.

#include "Playout/MediaStream.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
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
