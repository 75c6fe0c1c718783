#include "Playout/MediaDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/FakeSample.h"
#include "Playout/CompressedSample.h"
#include "Playout/DecodedSample.h"
#include "Playout/GroupReach.h"
#include "Playout/GroupReader.h"
#include "Playout/PictureStore.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::DecodeOrder;
using Player::ISample;
using Player::SampleRate;
using Player::StorageId;
using Player::TrackId;
using Time::TimePoint;

const TrackId kTrack(StorageId("local", 0), 1);
const TrackId kOther(StorageId("local", 0), 2);

/// Room for more pictures than a clip has.
constexpr std::size_t kPlenty = std::size_t{1} << 30U;

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

/// Compressed samples of a recording.
class Source {
public:
    explicit Source(const std::string& clip) : index(RecordingIndex::Build(clip)), reader_(index) {}

    std::unique_ptr<CompressedSample> Sample(std::size_t picture, const TrackId& track = kTrack) {
        const auto number = static_cast<std::int64_t>(picture);
        return std::make_unique<CompressedSample>(track, reader_.Read(index->Picture(picture).group), picture,
                                                  index->SampleStart(number), index->SampleStart(1));
    }

    std::shared_ptr<const RecordingIndex> index;

private:
    GroupReader reader_;
};

DecodeOrder OrderFor(ISample& sample) {
    DecodeOrder order;
    order.toDecode_ = &sample;
    order.orderTp_ = sample.GetTimePoint();
    return order;
}

std::unique_ptr<DecodedSample> Decode(MediaDecoder& decoder, const DecodeOrder& order) {
    std::unique_ptr<ISample> decoded(decoder.Decode(order));
    auto* sample = dynamic_cast<DecodedSample*>(decoded.get());
    EXPECT_EQ(sample == nullptr, decoded == nullptr) << "not a decoded sample";
    return std::unique_ptr<DecodedSample>(sample == nullptr ? nullptr : (decoded.release(), sample));
}

std::string ErrorOf(MediaDecoder& decoder, const DecodeOrder& order) {
    try {
        const std::unique_ptr<ISample> decoded(decoder.Decode(order));
        return "no error";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(MediaDecoder, DecodesThePictureOfTheSample) {
    Source source(Clips::OpenGroups());
    const Support::Oracle oracle(source.index);
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index);
    for (const auto number : Support::Shuffled(source.index->NbPictures(), 7)) {
        const auto compressed = source.Sample(number);
        const auto decoded = Decode(decoder, OrderFor(*compressed));
        ASSERT_NE(decoded, nullptr);
        EXPECT_EQ(decoded->PictureNumber(), number);
        EXPECT_EQ(decoded->Content()->Md5(), oracle.md5[number]);
        EXPECT_EQ(decoded->GetTimePoint(), compressed->GetTimePoint());
        EXPECT_EQ(decoded->GetDuration(), Ms(40));
    }
}

TEST(MediaDecoder, AFieldHasTheFramesPictureAndItsOwnTimeAndName) {
    Source source(Clips::Mpeg2Interlaced());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index);
    const auto compressed = source.Sample(5);
    auto order = OrderFor(*compressed);
    order.isInterlace_ = true;
    order.fieldSampleRate_ = SampleRate(50, 1);
    const auto top = Decode(decoder, order);
    order.decodeTopField_ = false;
    const auto bottom = Decode(decoder, order);
    EXPECT_EQ(top->GetTimePoint(), Ms(200));
    EXPECT_EQ(bottom->GetTimePoint(), Ms(220));
    EXPECT_EQ(top->GetDuration(), Ms(20));
    EXPECT_EQ(bottom->GetDuration(), Ms(20));
    EXPECT_EQ(top->Field(), PictureField::Top);
    EXPECT_EQ(bottom->Field(), PictureField::Bottom);
    EXPECT_EQ(top->Content(), bottom->Content()) << "decoded once";
}

TEST(MediaDecoder, AnythingButACompressedSampleIsARuntimeError) {
    MediaDecoder decoder;
    Player::FakeSample fake(Ms(40), Ms(40));
    EXPECT_EQ(ErrorOf(decoder, OrderFor(fake)),
              "the order at 0.040000000 holds no compressed sample of a recording");
    EXPECT_EQ(ErrorOf(decoder, DecodeOrder()),
              "the order at 0.000000000 holds no compressed sample of a recording");
}

TEST(MediaDecoder, ASampleOfAnUnknownTrackIsARuntimeError) {
    Source source(Clips::Short());
    MediaDecoder decoder;
    const auto compressed = source.Sample(0);
    EXPECT_EQ(ErrorOf(decoder, OrderFor(*compressed)), "track local:0:T1 has no recording to decode");
}

TEST(MediaDecoder, ASampleOfTheRecordingThatATrackPlayedBeforeIsARuntimeError) {
    Source before(Clips::Short());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, before.index);
    decoder.AddTrack(kTrack, RecordingIndex::Build(Clips::ClosedGroups()));
    const auto compressed = before.Sample(0);
    EXPECT_EQ(ErrorOf(decoder, OrderFor(*compressed)),
              "track local:0:T1 plays another recording now than \"" + before.index->File() + "\"");
}

TEST(MediaDecoder, APictureThatCannotBeDecodedIsNull) {
    Source source(Clips::Damaged());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index);
    const auto compressed = source.Sample(Clips::kDamagedPicture);
    EXPECT_EQ(decoder.Decode(OrderFor(*compressed)), nullptr);
    EXPECT_EQ(decoder.GetInformation(kTrack).nbErrors, 1u);
    EXPECT_EQ(decoder.GetInformation(kTrack).lastError, "Invalid data found when processing input");
}

TEST(MediaDecoder, TheHookIsToldOfEachDecode) {
    Source source(Clips::Damaged());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index);
    std::vector<bool> results;
    decoder.SetDecodedHook([&](const DecodeOrder&, bool decoded) { results.push_back(decoded); });
    const auto good = source.Sample(0);
    const auto bad = source.Sample(Clips::kDamagedPicture);
    EXPECT_NE(Decode(decoder, OrderFor(*good)), nullptr);
    EXPECT_EQ(Decode(decoder, OrderFor(*bad)), nullptr);
    EXPECT_NE(ErrorOf(decoder, DecodeOrder()), "no error");
    EXPECT_EQ(results, (std::vector<bool>{true, false, false}));
}

// ---- Lanes ------------------------------------------------------------------------------------------------

MediaDecoderOptions Lanes(std::size_t nb, std::size_t storeBytes) {
    MediaDecoderOptions options;
    options.nbLanes = nb;
    options.storeBytes = storeBytes;
    return options;
}

TEST(MediaDecoder, OrdersThatChangePlacesAtABoundaryDecodeNoGroupAgain) {
    Source source(Clips::ClosedGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(2, 1));
    // Two workers took 11 and 12 in the wrong order.
    for (const std::size_t number : {8u, 9u, 10u, 12u, 11u, 13u, 14u}) {
        EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(number))), nullptr);
    }
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPasses, 2u);
}

TEST(MediaDecoder, PlayedForwardTheDecoderGoesOnFromGroupToGroup) {
    Source source(Clips::ClosedGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(2, 1));
    decoder.SetPlace(kTrack, PlayPlace());
    const std::size_t nb = source.index->NbPictures();
    for (std::size_t number = 0; number < nb; ++number) {
        // The next group is read ahead.
        static_cast<void>(source.Sample(std::min(number + source.index->Group(0).nbPictures, nb - 1)));
        EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(number))), nullptr);
    }
    EXPECT_EQ(decoder.GetInformation(kTrack).nbGoneOn, source.index->NbGroups() - 1);
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPacketsDecoded, source.index->NbPackets());
}

TEST(MediaDecoder, OrdersThatChangePlacesAtABoundaryOfARunDecodeNoGroupAgain) {
    Source source(Clips::ClosedGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(2, kPlenty));
    decoder.SetPlace(kTrack, PlayPlace());
    ASSERT_EQ(source.index->Group(0).EndPicture(), 12U);
    const auto next = source.Sample(12);
    for (const std::size_t number : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 12u, 11u, 13u, 14u}) {
        EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(number))), nullptr);
    }
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPasses, 2u);
    EXPECT_EQ(decoder.GetInformation(kTrack).nbGoneOn, 1u);
}

TEST(MediaDecoder, ForwardThroughManyGroupsEachIsBegunOnce) {
    Source source(Clips::ClosedGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(2, 1));
    for (std::size_t number = 0; number < source.index->NbPictures(); ++number) {
        EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(number))), nullptr);
    }
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPasses, source.index->NbGroups());
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPacketsDecoded, source.index->NbPackets());
}

TEST(MediaDecoder, TracksDoNotShareTheirDecoders) {
    Source first(Clips::SingleGroup());
    Source second(Clips::OpenGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, first.index, Lanes(1, 1));
    decoder.AddTrack(kOther, second.index, Lanes(1, 1));
    for (std::size_t number = 0; number < 10; ++number) {
        EXPECT_NE(Decode(decoder, OrderFor(*first.Sample(number))), nullptr);
        EXPECT_NE(Decode(decoder, OrderFor(*second.Sample(number, kOther))), nullptr);
    }
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPasses, 1u);
    EXPECT_EQ(decoder.GetInformation(kOther).nbPasses, 1u);
}

TEST(MediaDecoder, SeveralThreadsGetTheRightPictures) {
    Source source(Clips::OpenGroups());
    const Support::Oracle oracle(source.index);
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index);
    std::vector<std::unique_ptr<CompressedSample>> samples;
    for (std::size_t number = 0; number < source.index->NbPictures(); ++number) {
        samples.push_back(source.Sample(number));
    }
    std::vector<std::thread> threads;
    for (std::uint32_t seed = 0; seed < 3; ++seed) {
        threads.emplace_back([&, seed] {
            auto order = Support::Shuffled(samples.size(), seed);
            order.resize(20);
            for (const auto number : order) {
                const auto decoded = Decode(decoder, OrderFor(*samples[number]));
                ASSERT_NE(decoded, nullptr);
                EXPECT_EQ(decoded->Content()->Md5(), oracle.md5[number]);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

// ---- Giving up, and reach ---------------------------------------------------------------------------------

/// Decodes the last picture of the first group again and again, while another thread says without a pause which
/// picture is wanted, until that many decodes have come to their end without a picture, or `nb` in all.
std::size_t NbGivenUp(MediaDecoder& decoder, Source& source, std::optional<std::size_t> wanted,
                      std::size_t enough, std::size_t nb) {
    const std::size_t last = source.index->Group(0).EndPicture() - 1;
    const auto sample = source.Sample(last);
    std::atomic<bool> over = false;
    std::thread hand([&] {
        while (!over) {
            decoder.Abandon(kTrack, wanted);
        }
    });
    std::size_t nbGivenUp = 0;
    for (std::size_t i = 0; i < nb && nbGivenUp < enough; ++i) {
        // Opened anew, as the picture would come from the store otherwise.
        decoder.AddTrack(kTrack, source.index, Lanes(1, 1));
        const auto decoded = Decode(decoder, OrderFor(*sample));
        EXPECT_TRUE(decoded == nullptr || decoded->PictureNumber() == last);
        nbGivenUp += decoded == nullptr ? 1 : 0;
    }
    over = true;
    hand.join();
    return nbGivenUp;
}

TEST(MediaDecoder, ADecodeIsGivenUpWhenAPictureElsewhereIsWanted) {
    Source source(Clips::LongGroups());
    MediaDecoder decoder;
    // Very many: how the threads are scheduled must not matter.
    EXPECT_EQ(NbGivenUp(decoder, source, 60, 3, 3'000), 3u);
    EXPECT_EQ(NbGivenUp(decoder, source, std::nullopt, 3, 3'000), 3u);
}

TEST(MediaDecoder, ADecodeOfThePictureThatIsWantedIsNeverGivenUp) {
    Source source(Clips::LongGroups());
    MediaDecoder decoder;
    EXPECT_EQ(NbGivenUp(decoder, source, source.index->Group(0).EndPicture() - 1, 1, 50), 0u);
}

TEST(MediaDecoder, WhatIsAskedForAfterAJumpIsDecoded) {
    Source source(Clips::LongGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(1, 1));
    decoder.Abandon(kTrack, 60);
    decoder.Abandon(kOther, 60);
    EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(20))), nullptr) << "it was not in progress";
    EXPECT_EQ(decoder.GetInformation(kTrack).nbAbandoned, 0u);
}

/// Packets that decoding the first picture of the second group takes.
std::uint64_t NbPacketsForAKeyFrame(const GroupReach& reach) {
    Source source(Clips::OpenGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(1, 1));
    decoder.SetReach(kOther, reach);
    decoder.SetReach(kTrack, reach);
    const auto sample = source.Sample(source.index->Group(1).firstPicture);
    EXPECT_NE(Decode(decoder, OrderFor(*sample)), nullptr);
    return decoder.GetInformation(kTrack).nbPacketsDecoded;
}

TEST(MediaDecoder, WhereOnlyKeyFramesAreReachedNothingElseIsDecoded) {
    EXPECT_EQ(NbPacketsForAKeyFrame({1, 1}), 1u);
    EXPECT_GT(NbPacketsForAKeyFrame({}), 1u) << "a decoder takes more than a picture's packet to put it out";
}

TEST(MediaDecoder, WhereNotAllIsReachedADecodeThatThePlayHeadHasPassedIsGivenUp) {
    Source source(Clips::LongGroups());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(1, 1));
    PlayPlace place;
    place.picture = 60;
    decoder.SetPlace(kTrack, place);
    decoder.SetReach(kTrack, {20, 1});
    EXPECT_EQ(Decode(decoder, OrderFor(*source.Sample(15))), nullptr);
    EXPECT_EQ(decoder.GetInformation(kTrack).nbAbandoned, 1u);
    decoder.SetReach(kTrack, {});
    EXPECT_NE(Decode(decoder, OrderFor(*source.Sample(15))), nullptr);
}

TEST(MediaDecoder, ATrackRemovedWhileItDecodesFinishesItsPicture) {
    Source source(Clips::SingleGroup());
    MediaDecoder decoder;
    decoder.AddTrack(kTrack, source.index, Lanes(1, 1));
    const auto sample = source.Sample(59);
    std::thread worker([&] {
        for (int i = 0; i < 3; ++i) {
            // Either decoded or refused as unknown: never something in between.
            try {
                EXPECT_NE(Decode(decoder, OrderFor(*sample)), nullptr);
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "track local:0:T1 has no recording to decode");
            }
        }
    });
    decoder.RemoveTrack(kTrack);
    decoder.RemoveTrack(kTrack);
    worker.join();
    EXPECT_EQ(decoder.GetInformation(kTrack).nbPasses, 0u);
}

}  // namespace
}  // namespace Tavrin::Playout
