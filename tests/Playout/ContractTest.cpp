// The contract suites of the interfaces that clients implement, run on the media client's own classes.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadThread.h"
#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/MediaStream.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "contracts/IPreloaderContract.h"
#include "contracts/ISampleContract.h"
#include "contracts/ISampleDecoderContract.h"
#include "contracts/StreamContract.h"

namespace Tavrin::Player::Contracts {

using Playout::RecordingIndex;
namespace Clips = Playout::Support::Clips;

/// A recording with the two classes that fetch and decode its samples.
struct Media {
    explicit Media(const std::string& file = Clips::OpenGroups()) : index_(RecordingIndex::Build(file)) {
        preloader_.AddTrack(track_, index_);
        decoder_.AddTrack(track_, index_);
    }

    PreloadOrder Order(std::int64_t sample) const {
        return {index_->SampleStart(sample), index_->Rate(), nullptr, track_};
    }

    std::unique_ptr<ISample> Fetch(std::int64_t sample) {
        CacheUpdateQueue queue;
        PreloadOrder order = Order(sample);
        order.queue_ = &queue;
        preloader_.Preload(order);
        Output output;
        queue.Pop(output);
        return std::unique_ptr<ISample>(output.sample_);
    }

    DecodeOrder DecodeOrderFor(ISample& compressed) const {
        DecodeOrder order;
        order.toDecode_ = &compressed;
        order.orderTp_ = compressed.GetTimePoint();
        return order;
    }

    TrackId track_{StorageId("clip", 0), 1};
    std::shared_ptr<const RecordingIndex> index_;
    Playout::MediaPreloader preloader_;
    Playout::MediaDecoder decoder_;
};

/// Samples 0 to 7 of the suites, spread over the groups of the clip.
std::int64_t Spread(std::size_t i) {
    return static_cast<std::int64_t>(i) * 7;
}

struct CompressedSampleAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() { return media_.Fetch(5); }
    Media media_;
};

struct DecodedSampleAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() {
        const auto compressed = media_.Fetch(5);
        return std::unique_ptr<ISample>(media_.decoder_.Decode(media_.DecodeOrderFor(*compressed)));
    }
    Media media_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(CompressedSample, ISampleContract, testing::Types<CompressedSampleAdaptor>, );
INSTANTIATE_TYPED_TEST_SUITE_P(DecodedSample, ISampleContract, testing::Types<DecodedSampleAdaptor>, );

struct MediaPreloaderAdaptor : PreloaderAdaptor {
    IPreloader& Preloader() { return media_.preloader_; }
    PreloadOrder Existing(std::size_t i) { return media_.Order(Spread(i)); }
    std::optional<PreloadOrder> Missing() { return media_.Order(media_.index_->NbSamples()); }
    std::optional<PreloadOrder> Failing() {
        media_.preloader_.SetReadHook(
            [](const auto&, std::size_t) { throw std::runtime_error("the disk is gone"); });
        return media_.Order(3);
    }
    Media media_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaPreloader, IPreloaderContract, testing::Types<MediaPreloaderAdaptor>, );

struct MediaDecoderAdaptor : DecoderAdaptor {
    ISampleDecoder& Decoder() { return media_.decoder_; }
    std::unique_ptr<ISample> Compressed(std::size_t i) { return media_.Fetch(Spread(i)); }
    /// A sample of a track that the decoder does not know.
    std::unique_ptr<ISample> Undecodable() {
        Media other;
        other.preloader_.RemoveTrack(other.track_);
        other.track_.SetId(99);
        other.preloader_.AddTrack(other.track_, other.index_);
        return other.Fetch(0);
    }
    std::optional<SampleRate> FieldRate() { return SampleRate(50, 1); }
    Media media_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaDecoder, ISampleDecoderContract, testing::Types<MediaDecoderAdaptor>, );

struct MediaStreamAdaptor : StreamAdaptor {
    MediaStreamAdaptor() {
        media_.preloader_.SetExistingCacheUpdateQueues(&registry_);
        reader_.SetPreloader(&media_.preloader_);
        reader_.SetPreloadOrderQueue(stream_.GetStreamParameters().preloadQueue_);
        worker_.SetDecoder(&media_.decoder_);
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
    Time::TimePoint Sample(std::size_t i) { return media_.index_->SampleStart(static_cast<std::int64_t>(i)); }
    void Jumped() { stream_.Withdraw(); }
    void Drive() {
        stream_.Intake();
        stream_.Plan();
    }

    Media media_;
    ExistingCacheUpdateQueues registry_;
    Playout::MediaStream stream_{media_.index_, media_.track_, media_.index_->Rate(), {}, registry_};
    PreloadThread reader_;
    DecodeThread worker_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaStream, StreamContract, testing::Types<MediaStreamAdaptor>, );

}  // namespace Tavrin::Player::Contracts
