#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/GroupReader.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/MadePictures.h"
#include "contracts/IPreloaderContract.h"
#include "contracts/ISampleContract.h"
#include "contracts/ISampleDecoderContract.h"

// The media classes under the contracts that every client's classes are held to.

namespace Tavrin::Player::Contracts {
namespace {

namespace Clips = Playout::Support::Clips;
using Playout::RecordingIndex;

const TrackId kTrack(StorageId("local", 0), 1);
const TrackId kFailingTrack(StorageId("local", 0), 2);

/// Eight time points over two groups, not in order.
Time::TimePoint StartOf(const RecordingIndex& index, std::size_t i) {
    return index.SampleStart(static_cast<std::int64_t>((i * 7) % 24));
}

struct CompressedSampleAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() {
        const auto index = RecordingIndex::Build(Clips::Short());
        Playout::GroupReader reader(index);
        return std::make_unique<Playout::CompressedSample>(kTrack, reader.Read(0), 3, index->SampleStart(3),
                                                           index->SampleStart(1));
    }
};

struct DecodedSampleAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() {
        return std::make_unique<Playout::DecodedSample>(Playout::Support::PlainPicture(3, 32, 16, 90),
                                                        Time::TimePoint().FromMilliseconds(120),
                                                        Time::TimePoint().FromMilliseconds(40));
    }
};

INSTANTIATE_TYPED_TEST_SUITE_P(CompressedSample, ISampleContract, testing::Types<CompressedSampleAdaptor>, );
INSTANTIATE_TYPED_TEST_SUITE_P(DecodedSample, ISampleContract, testing::Types<DecodedSampleAdaptor>, );

struct MediaPreloaderAdaptor : PreloaderAdaptor {
    MediaPreloaderAdaptor() : index_(RecordingIndex::Build(Clips::OpenGroups())) {
        preloader_.AddTrack(kTrack, index_);
        preloader_.AddTrack(kFailingTrack, index_);
        preloader_.SetReadHook([](const TrackId& track, std::size_t) {
            if (track == kFailingTrack) {
                throw std::runtime_error("the storage is away");
            }
        });
    }

    IPreloader& Preloader() { return preloader_; }

    PreloadOrder Existing(std::size_t i) {
        return PreloadOrder(StartOf(*index_, i), index_->Rate(), nullptr, kTrack);
    }

    std::optional<PreloadOrder> Missing() {
        return PreloadOrder(index_->End(), index_->Rate(), nullptr, kTrack);
    }

    std::optional<PreloadOrder> Failing() {
        return PreloadOrder(index_->Begin(), index_->Rate(), nullptr, kFailingTrack);
    }

    std::shared_ptr<const RecordingIndex> index_;
    Playout::MediaPreloader preloader_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaPreloader, IPreloaderContract, testing::Types<MediaPreloaderAdaptor>, );

struct MediaDecoderAdaptor : DecoderAdaptor {
    MediaDecoderAdaptor() : index_(RecordingIndex::Build(Clips::Damaged())), reader_(index_) {
        decoder_.AddTrack(kTrack, index_);
    }

    ISampleDecoder& Decoder() { return decoder_; }

    std::unique_ptr<ISample> Compressed(std::size_t i) { return Make((i * 7) % 12 + 24); }

    std::unique_ptr<ISample> Undecodable() { return Make(Clips::kDamagedPicture); }

    std::optional<SampleRate> FieldRate() { return SampleRate(50, 1); }

    std::unique_ptr<ISample> Make(std::size_t picture) {
        return std::make_unique<Playout::CompressedSample>(
            kTrack, reader_.Read(index_->Picture(picture).group), picture,
            index_->SampleStart(static_cast<std::int64_t>(picture)), index_->SampleStart(1));
    }

    std::shared_ptr<const RecordingIndex> index_;
    Playout::GroupReader reader_;
    Playout::MediaDecoder decoder_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(MediaDecoder, ISampleDecoderContract, testing::Types<MediaDecoderAdaptor>, );

}  // namespace
}  // namespace Tavrin::Player::Contracts
