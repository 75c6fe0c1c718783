#include "Playout/RecordingIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "Playout/Support/Clips.h"
#include "Playout/Support/FieldClip.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using Time::TimePoint;

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

/// The text of the error that building the index ends in.
std::string ErrorOf(const std::string& file, int stream = RecordingIndex::kFirstVideo) {
    try {
        const auto index = RecordingIndex::Build(file, stream);
        return "no error";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

// ---- Pictures and time ------------------------------------------------------------------------------------

TEST(RecordingIndex, NumbersThePicturesInTheOrderOfTheirDisplay) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    ASSERT_EQ(index->NbPictures(), Clips::kNbPictures);
    bool reordered = false;
    for (std::size_t i = 1; i < index->NbPictures(); ++i) {
        const auto& before = index->Picture(i - 1);
        EXPECT_LT(before.start, index->Picture(i).start);
        EXPECT_LT(index->Packet(before.packet).pts, index->Packet(index->Picture(i).packet).pts);
        reordered = reordered || index->Picture(i).packet < before.packet;
    }
    EXPECT_TRUE(reordered) << "the clip has no B-frames, so the test shows nothing";
}

TEST(RecordingIndex, TimePointZeroIsTheFirstPictureWhateverItsTimeStamp) {
    const auto index = RecordingIndex::Build(Clips::LateMatroska());
    EXPECT_GT(index->Packet(index->Picture(0).packet).pts, 9000);
    EXPECT_EQ(index->Picture(0).start, TimePoint());
    EXPECT_EQ(index->PictureAtTime(TimePoint()), 0u);
    EXPECT_EQ(index->End(), Ms(2400));
}

TEST(RecordingIndex, TransportStreamsBeginAtZeroToo) {
    const auto index = RecordingIndex::Build(Clips::Transport());
    EXPECT_GT(index->Packet(index->Picture(0).packet).pts, 0);
    EXPECT_EQ(index->NbPictures(), Clips::kNbPictures);
    EXPECT_EQ(index->Rate(), SampleRate(25, 1));
    EXPECT_EQ(index->PictureAtTime(TimePoint()), 0u);
}

TEST(RecordingIndex, APictureIsOnDisplayFromItsStartUntilTheNext) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    const auto nanosecond = TimePoint().FromNanoseconds(1);
    EXPECT_EQ(index->PictureAtTime(Ms(400) - nanosecond), 9u);
    EXPECT_EQ(index->PictureAtTime(Ms(400)), 10u);
    EXPECT_EQ(index->PictureAtTime(Ms(440) - nanosecond), 10u);
    EXPECT_EQ(index->PictureAtTime(Ms(440)), 11u);
}

TEST(RecordingIndex, OutsideTheRecordingThereIsNoPicture) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    EXPECT_EQ(index->PictureAt(-1), std::nullopt);
    EXPECT_EQ(index->PictureAt(59), 59u);
    EXPECT_EQ(index->PictureAt(60), std::nullopt);
    EXPECT_EQ(index->PictureAt(std::numeric_limits<std::int64_t>::max()), std::nullopt);
    EXPECT_EQ(index->PictureAtTime(Ms(-1)), std::nullopt);
    EXPECT_EQ(index->PictureAtTime(index->End()), std::nullopt);
    EXPECT_EQ(index->PictureAtTime(index->End() - TimePoint().FromNanoseconds(1)), 59u);
    EXPECT_EQ(index->PictureAtTime(TimePoint::GetHighestTimePoint()), std::nullopt);
}

TEST(RecordingIndex, NumbersThatDoNotExistAreRefused) {
    const auto index = RecordingIndex::Build(Clips::Short());
    EXPECT_THROW(static_cast<void>(index->Picture(12)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(index->Packet(12)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(index->Group(1)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(index->PictureOfPacket(12)), std::out_of_range);
}

TEST(RecordingIndex, SamplesFollowEachOtherWithoutGap) {
    const auto index = RecordingIndex::Build(Clips::Ntsc());
    EXPECT_EQ(index->Begin(), TimePoint());
    EXPECT_EQ(index->SampleStart(0), index->Begin());
    EXPECT_EQ(index->SampleStart(index->NbSamples()), index->End());
    for (std::int64_t sample = 0; sample < index->NbSamples(); ++sample) {
        EXPECT_EQ(index->PictureAtTime(index->SampleStart(sample)), static_cast<std::size_t>(sample));
    }
    EXPECT_EQ(index->Duration(), index->End() - index->Begin());
}

// ---- Rates ------------------------------------------------------------------------------------------------

TEST(RecordingIndex, AConstantRateIsExact) {
    const auto index = RecordingIndex::Build(Clips::Ntsc());
    EXPECT_EQ(index->Rate(), SampleRate(30'000, 1001));
    EXPECT_TRUE(index->ConstantRate());
    EXPECT_EQ(index->NbSamples(), 60);
}

TEST(RecordingIndex, AConstantRateIsExactWhereTheTimeBaseIsTooCoarseForIt) {
    const auto index = RecordingIndex::Build(Clips::NtscMatroska());
    EXPECT_EQ(index->TimeBase(), Time::Ratio(1, 1000));
    EXPECT_EQ(index->Rate(), SampleRate(30'000, 1001));
    EXPECT_TRUE(index->ConstantRate());
}

TEST(RecordingIndex, AVariableRateKeepsEachPictureUntilTheNext) {
    const auto index = RecordingIndex::Build(Clips::VariableRate());
    EXPECT_EQ(index->Rate(), SampleRate(25, 1));
    EXPECT_FALSE(index->ConstantRate());
    EXPECT_EQ(index->NbPictures(), 34u);
    // The pictures 0 2 4 6 7 8 ... of the pattern are there.
    const std::size_t expected[] = {0, 0, 1, 1, 2, 2, 3, 4, 5};
    for (std::int64_t sample = 0; sample < 9; ++sample) {
        EXPECT_EQ(index->PictureAt(sample), expected[sample]) << "at sample " << sample;
    }
    EXPECT_EQ(index->Picture(1).start, Ms(80));
    EXPECT_EQ(index->Picture(3).duration, Ms(40));
}

TEST(RecordingIndex, AVariableRateInCoarseStampsHasTheSameGrid) {
    const auto fine = RecordingIndex::Build(Clips::VariableRate());
    const auto coarse = RecordingIndex::Build(Clips::VariableMatroska());
    ASSERT_EQ(coarse->Rate(), fine->Rate());
    for (std::int64_t sample = 0; sample < fine->Picture(33).sample; ++sample) {
        EXPECT_EQ(coarse->PictureAt(sample), fine->PictureAt(sample)) << "at sample " << sample;
    }
}

TEST(RecordingIndex, PicturesThatLieOnNoRateStillHaveASampleEach) {
    const auto index = RecordingIndex::Build(Clips::Jittery());
    ASSERT_EQ(index->NbPictures(), Clips::kNbPictures);
    std::set<std::int64_t> samples;
    for (std::size_t i = 0; i < index->NbPictures(); ++i) {
        const auto& picture = index->Picture(i);
        samples.insert(picture.sample);
        EXPECT_EQ(index->PictureAt(picture.sample), i);
        // Rounded to the nearest sample: off by half a period at most.
        const auto off = (index->SampleStart(picture.sample) - picture.start).Abs();
        EXPECT_LE(off * 2, index->SampleStart(1) + TimePoint().FromNanoseconds(2));
    }
    EXPECT_EQ(samples.size(), index->NbPictures());
}

// ---- Groups -----------------------------------------------------------------------------------------------

TEST(RecordingIndex, AClosedGroupDecodesFromItsOwnPackets) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    ASSERT_EQ(index->NbGroups(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        const auto& group = index->Group(i);
        EXPECT_EQ(group.firstPicture, i * 12);
        EXPECT_EQ(group.nbPictures, 12u);
        EXPECT_EQ(group.firstPacket, i * 12);
        EXPECT_EQ(group.nbPackets, 12u);
    }
    EXPECT_FALSE(index->IntraOnly());
}

TEST(RecordingIndex, AnOpenGroupsRunReachesToTheLeadingPicturesOfTheNext) {
    const auto index = RecordingIndex::Build(Clips::OpenGroups());
    ASSERT_GE(index->NbGroups(), 4u);
    std::size_t nbOverlaps = 0;
    for (std::size_t i = 0; i + 1 < index->NbGroups(); ++i) {
        const auto& group = index->Group(i);
        const auto& next = index->Group(i + 1);
        EXPECT_EQ(group.EndPicture(), next.firstPicture);
        EXPECT_TRUE(index->Packet(next.firstPacket).entry);
        nbOverlaps += group.EndPacket() > next.firstPacket + 1 ? 1 : 0;
        for (auto picture = group.firstPicture; picture < group.EndPicture(); ++picture) {
            EXPECT_LT(index->Picture(picture).packet, group.EndPacket());
            EXPECT_GE(index->Picture(picture).packet, group.firstPacket);
            EXPECT_EQ(index->Picture(picture).group, i);
        }
    }
    EXPECT_EQ(nbOverlaps, index->NbGroups() - 1);
}

TEST(RecordingIndex, TheBytesOfAGroupAreThoseOfItsRun) {
    const auto index = RecordingIndex::Build(Clips::OpenGroups());
    const auto& group = index->Group(1);
    std::int64_t sum = 0;
    for (auto packet = group.firstPacket; packet < group.EndPacket(); ++packet) {
        sum += index->Packet(packet).size;
    }
    EXPECT_EQ(group.nbBytes, sum);
    EXPECT_GT(sum, 0);
}

TEST(RecordingIndex, ASingleKeyFrameMakesOneGroup) {
    const auto index = RecordingIndex::Build(Clips::SingleGroup());
    ASSERT_EQ(index->NbGroups(), 1u);
    EXPECT_EQ(index->Group(0).nbPictures, Clips::kNbPictures);
}

TEST(RecordingIndex, KeyFramesThatArePredictedBeginNoGroup) {
    const auto index = RecordingIndex::Build(Clips::GradualRefresh());
    std::size_t nbKeys = 0;
    for (std::size_t i = 0; i < index->NbPackets(); ++i) {
        nbKeys += index->Packet(i).key ? 1 : 0;
    }
    EXPECT_GT(nbKeys, 1u) << "the clip has one key frame, so the test shows nothing";
    EXPECT_EQ(index->NbGroups(), 1u);
}

TEST(RecordingIndex, IntraOnlyRecordingsHaveAGroupForEachPicture) {
    for (const auto& clip : {Clips::MotionJpeg(), Clips::ProRes(), Clips::IntraOnlyH264()}) {
        const auto index = RecordingIndex::Build(clip);
        EXPECT_TRUE(index->IntraOnly()) << clip;
        EXPECT_EQ(index->NbGroups(), index->NbPictures()) << clip;
    }
}

/// Where pictures predicted in both directions are never referred to, they are those shown before one that is coded
/// earlier.
void ExpectDisposableAreThoseShownBeforeEarlierOnes(const std::string& file) {
    const auto index = RecordingIndex::Build(file);
    std::int64_t latest = std::numeric_limits<std::int64_t>::min();
    std::size_t nbDisposable = 0;
    for (std::size_t packet = 0; packet < index->NbPackets(); ++packet) {
        const CodedPacket& coded = index->Packet(packet);
        EXPECT_EQ(coded.disposable, coded.pts < latest) << "packet " << packet;
        latest = std::max(latest, coded.pts);
        nbDisposable += coded.disposable ? 1 : 0;
    }
    EXPECT_GT(nbDisposable, index->NbPackets() / 2);
}

TEST(RecordingIndex, H264PicturesThatNothingRefersToAreDisposable) {
    ExpectDisposableAreThoseShownBeforeEarlierOnes(
        Clips::Encoded("no-pyramid.mp4", Clips::TestPattern("null") +
                                             "-pix_fmt yuv420p -c:v libx264 -preset veryfast "
                                             "-x264-params keyint=12:bframes=2:b-adapt=0:b-pyramid=none"));
}

TEST(RecordingIndex, Mpeg2PicturesThatNothingRefersToAreDisposable) {
    ExpectDisposableAreThoseShownBeforeEarlierOnes(Clips::Mpeg2Interlaced());
}

TEST(RecordingIndex, PicturesOfAPyramidThatOthersReferToAreNotDisposable) {
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    std::size_t nbDisposable = 0;
    for (std::size_t packet = 0; packet < index->NbPackets(); ++packet) {
        nbDisposable += index->Packet(packet).disposable ? 1 : 0;
    }
    // Of four pictures in a row one is predicted forward, and of the three between two are referred to by none.
    EXPECT_GT(nbDisposable, index->NbPackets() / 3);
    EXPECT_LE(nbDisposable, index->NbPackets() / 2);
}

TEST(RecordingIndex, TheGroupAtAPacketIsTheLastOneThatBeginsThere) {
    const auto index = RecordingIndex::Build(Clips::OpenGroups());
    const auto first = index->Group(2).firstPacket;
    EXPECT_EQ(index->GroupAtPacket(first - 1), 1u);
    EXPECT_EQ(index->GroupAtPacket(first), 2u);
    EXPECT_EQ(index->GroupAtPacket(first + 1), 2u);
}

// ---- Hidden pictures --------------------------------------------------------------------------------------

TEST(RecordingIndex, PicturesThatAnEditListDropsAreDecodedButNeverShown) {
    const auto index = RecordingIndex::Build(Clips::EditList());
    std::size_t nbHidden = 0;
    for (std::size_t i = 0; i < index->NbPackets(); ++i) {
        nbHidden += index->Packet(i).hidden ? 1 : 0;
        EXPECT_EQ(index->PictureOfPacket(i).has_value(), !index->Packet(i).hidden);
    }
    EXPECT_GT(nbHidden, 0u);
    EXPECT_EQ(index->NbPictures() + nbHidden, index->NbPackets());
    EXPECT_EQ(index->Group(0).firstPacket, 0u) << "what is hidden is needed for what is shown";
    EXPECT_EQ(index->PictureAtTime(TimePoint()), 0u);
}

TEST(RecordingIndex, ARecordingCutInTheMiddleOfAGroupBeginsAtItsFirstKeyFrame) {
    const auto index = RecordingIndex::Build(Clips::CutTransport());
    EXPECT_FALSE(index->Packet(0).key);
    EXPECT_TRUE(index->Packet(0).hidden);
    EXPECT_TRUE(index->Picture(0).key);
    EXPECT_EQ(index->NbPictures(), 48u);
}

// ---- Fields -----------------------------------------------------------------------------------------------

TEST(RecordingIndex, TwoFieldsInPacketsOfTheirOwnAreOnePicture) {
    const auto index = RecordingIndex::Build(Clips::Fields());
    EXPECT_EQ(index->NbPackets(), 2 * Clips::kNbFieldPictures);
    EXPECT_EQ(index->NbPictures(), Clips::kNbFieldPictures);
    EXPECT_EQ(index->Rate(), SampleRate(25, 1));
    EXPECT_TRUE(index->Description().interlaced);
    for (std::size_t i = 0; i < index->NbPictures(); ++i) {
        EXPECT_EQ(index->Picture(i).packet, 2 * i);
        EXPECT_TRUE(index->Packet(2 * i + 1).secondField);
        EXPECT_EQ(index->PictureOfPacket(2 * i + 1), std::nullopt);
    }
}

// ---- Missing time stamps ----------------------------------------------------------------------------------

TEST(RecordingIndex, WithoutTimeStampsTheCodecsOwnOrderCounts) {
    const auto complete = RecordingIndex::Build(Clips::ClosedGroups());
    for (const auto& clip : {Clips::BareH264(), Clips::OldAvi()}) {
        const auto index = RecordingIndex::Build(clip);
        ASSERT_EQ(index->NbPictures(), complete->NbPictures()) << clip;
        EXPECT_EQ(index->Rate(), complete->Rate()) << clip;
        for (std::size_t i = 0; i < index->NbPictures(); ++i) {
            EXPECT_EQ(index->Picture(i).packet, complete->Picture(i).packet) << clip << ", picture " << i;
        }
    }
}

TEST(RecordingIndex, SingleMissingTimeStampsAreFilledIn) {
    const auto complete = RecordingIndex::Build(Clips::Mpeg2Interlaced());
    const auto index = RecordingIndex::Build(Clips::Mpeg2Program());
    ASSERT_EQ(index->NbPictures(), complete->NbPictures());
    EXPECT_TRUE(index->ConstantRate());
    for (std::size_t i = 0; i < index->NbPictures(); ++i) {
        EXPECT_EQ(index->Picture(i).packet, complete->Picture(i).packet) << "picture " << i;
    }
}

// ---- Description ------------------------------------------------------------------------------------------

TEST(RecordingIndex, DescribesTheRecording) {
    const auto index = RecordingIndex::Build(Clips::Mpeg2Interlaced());
    const auto& description = index->Description();
    EXPECT_EQ(description.container, "mpegts");
    EXPECT_EQ(description.codec, "mpeg2video");
    EXPECT_EQ(description.pixelFormat, "yuv420p");
    EXPECT_EQ(description.width, 160);
    EXPECT_EQ(description.height, 120);
    EXPECT_TRUE(description.interlaced);
    EXPECT_TRUE(description.topFieldFirst);
    EXPECT_GT(description.bitsPerSecond, 10'000);
    EXPECT_FALSE(RecordingIndex::Build(Clips::ClosedGroups())->Description().interlaced);
}

TEST(RecordingIndex, TheFirstVideoStreamIsTakenUnlessAnotherIsAskedFor) {
    EXPECT_EQ(RecordingIndex::Build(Clips::SecondVideo())->Description().width, 160);
    EXPECT_EQ(RecordingIndex::Build(Clips::SecondVideo(), 1)->Description().width, 320);
    EXPECT_EQ(RecordingIndex::Build(Clips::SecondVideo(), 1)->Stream(), 1);
}

TEST(RecordingIndex, TheReorderingIsSeenInTheStamps) {
    EXPECT_EQ(RecordingIndex::Build(Clips::ClosedGroups())->ReorderDepth(), 2);
    EXPECT_EQ(RecordingIndex::Build(Clips::Mpeg2Interlaced())->ReorderDepth(), 1);
    EXPECT_EQ(RecordingIndex::Build(Clips::MotionJpeg())->ReorderDepth(), 0);
}

// ---- Cut off, damaged, not a recording --------------------------------------------------------------------

TEST(RecordingIndex, ATruncatedRecordingIsWhatIsLeftAndCountsWhatIsNot) {
    const auto index = RecordingIndex::Build(Clips::Truncated());
    EXPECT_LT(index->NbPackets(), Clips::kNbPictures);
    EXPECT_GT(index->NbPackets(), 12u);
    EXPECT_EQ(index->NbPackets() + index->NbMissingPackets(), Clips::kNbPictures);
    EXPECT_EQ(RecordingIndex::Build(Clips::ClosedGroups())->NbMissingPackets(), 0u);
}

TEST(RecordingIndex, DamagedPacketsAreStillIndexed) {
    EXPECT_EQ(RecordingIndex::Build(Clips::Damaged())->NbPictures(), Clips::kNbPictures);
}

TEST(RecordingIndex, EachErrorIsOneLineThatNamesTheFileAndTheReason) {
    const std::string missing = "/nowhere/at all/clip.mp4";
    EXPECT_EQ(ErrorOf(missing), "\"" + missing + "\": cannot be opened: no such file");
    const auto folder = Clips::Scratch("");
    EXPECT_EQ(ErrorOf(folder), "\"" + folder + "\": cannot be opened: it is a folder");
    EXPECT_EQ(ErrorOf(Clips::Empty()), "\"" + Clips::Empty() + "\": is empty");
    EXPECT_EQ(ErrorOf(Clips::AudioOnly()), "\"" + Clips::AudioOnly() + "\": has no video stream");
    for (const auto& clip : {Clips::Text(), Clips::Garbage(), Clips::Headless()}) {
        const auto error = ErrorOf(clip);
        EXPECT_EQ(error.rfind("\"" + clip + "\": is not a recording that can be read: ", 0), 0u) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

TEST(RecordingIndex, AStreamThatIsNotVideoIsRefused) {
    EXPECT_EQ(ErrorOf(Clips::Short(), 7), "\"" + Clips::Short() + "\": its stream 7 is not a video stream");
    EXPECT_EQ(ErrorOf(Clips::AudioOnly(), 0),
              "\"" + Clips::AudioOnly() + "\": its stream 0 is not a video stream");
}

TEST(RecordingIndex, TheNameOfTheFileIsNeverTakenForAnAddress) {
    const auto file = Clips::Scratch("http:clip%d?.mp4");
    Clips::WriteFile(file, Clips::ReadFile(Clips::Short()));
    EXPECT_EQ(RecordingIndex::Build(file)->NbPictures(), 12u);
}

}  // namespace
}  // namespace Tavrin::Playout
