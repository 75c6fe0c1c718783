#include "Playout/Verifier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;

VerifierOptions Options() {
    VerifierOptions options;
    options.seed = 20'240'229;
    options.nbJumps = 20;
    return options;
}

VerifyReport Verify(const std::string& file, const Verifier::Progress& progress = {}) {
    return Verifier(RecordingIndex::Build(file), Options()).Run(progress);
}

std::string Describe(const VerifyReport& report) {
    return report.difference ? report.difference->pass + ", picture " +
                                   std::to_string(report.difference->picture) + ": " + report.difference->what
                             : "no difference";
}

struct Clip {
    std::string name;
    std::function<std::string()> make;
};

void PrintTo(const Clip& clip, std::ostream* out) {
    *out << clip.name;
}

class VerifiedClip : public testing::TestWithParam<Clip> {};

TEST_P(VerifiedClip, PlaysEveryPictureAsDecodedStraight) {
    const auto index = RecordingIndex::Build(GetParam().make());
    const VerifyReport report = Verifier(index, Options()).Run();
    EXPECT_EQ(Describe(report), "no difference");
    EXPECT_EQ(report.nbDecoded, index->NbPictures());
    ASSERT_EQ(report.passes.size(), 3U);
    EXPECT_EQ(report.passes[0].nbSame, static_cast<std::uint64_t>(index->NbSamples()));
    EXPECT_EQ(report.passes[1].nbSame, static_cast<std::uint64_t>(index->NbSamples()));
    EXPECT_EQ(report.passes[2].nbSame, 20U);
}

INSTANTIATE_TEST_SUITE_P(
    Verifier, VerifiedClip,
    testing::Values(Clip{"ClosedGroups", &Clips::ClosedGroups}, Clip{"OpenGroups", &Clips::OpenGroups},
                    Clip{"SingleGroup", &Clips::SingleGroup}, Clip{"GradualRefresh", &Clips::GradualRefresh},
                    Clip{"Ntsc", &Clips::Ntsc}, Clip{"VariableRate", &Clips::VariableRate},
                    Clip{"Jittery", &Clips::Jittery}, Clip{"EditList", &Clips::EditList},
                    Clip{"LateMatroska", &Clips::LateMatroska}, Clip{"Transport", &Clips::Transport},
                    Clip{"Mpeg2Interlaced", &Clips::Mpeg2Interlaced},
                    Clip{"HevcOpenGroups", &Clips::HevcOpenGroups}, Clip{"ProRes", &Clips::ProRes}),
    [](const auto& clip) { return clip.param.name; });

TEST(Verifier, InAHoleNothingIsToBeShown) {
    const auto index = RecordingIndex::Build(Clips::HoledMatroska());
    ASSERT_EQ(index->NbSamples(), 120);
    ASSERT_EQ(index->NbPictures(), 71U);
    const VerifyReport report = Verifier(index, Options()).Run();
    EXPECT_EQ(Describe(report), "no difference");
    EXPECT_EQ(report.passes.at(0).nbSame, 71U);
    EXPECT_EQ(report.passes.at(1).nbSame, 71U);
}

TEST(Verifier, InADamagedRecordingOnlyWhatTheDecoderMarksMayDiffer) {
    const VerifyReport report = Verify(Clips::Damaged());
    EXPECT_EQ(Describe(report), "no difference");
    EXPECT_GT(report.nbDamaged, 0U);
    ASSERT_EQ(report.passes.size(), 3U);
    for (const VerifyPass& pass : {report.passes[0], report.passes[1]}) {
        EXPECT_EQ(pass.NbCompared(), Clips::kNbPictures);
        // Damage does not leave its group.
        EXPECT_GE(pass.nbSame, Clips::kNbPictures - Clips::kGroupSize);
    }
}

TEST(Verifier, PicturesThatAStraightDecodeDoesNotPutOutAreMissingAndNoDifference) {
    const auto index = RecordingIndex::Build(Clips::Truncated());
    const VerifyReport report = Verifier(index, Options()).Run();
    EXPECT_EQ(Describe(report), "no difference");
    EXPECT_LT(report.nbDecoded, report.nbPictures);
    ASSERT_EQ(report.passes.size(), 3U);
    EXPECT_EQ(report.passes[0].nbMissing + report.passes[0].nbSame + report.passes[0].nbConcealed,
              index->NbPictures());
    EXPECT_GT(report.passes[0].nbMissing, 0U);
}

/// Twelve pictures whose coded bytes are their pixels.
std::string Uncompressed(const std::string& name) {
    std::string file = Clips::Scratch(name);
    Clips::OutputOfFfmpeg(
        "-f lavfi -i testsrc=size=64x48:rate=25 -frames:v 12 -c:v rawvideo -pix_fmt yuv420p " +
        Clips::Quoted(file));
    return file;
}

/// Verifies a recording that is changed once it has been decoded straight.
VerifyReport VerifyChanged(const std::string& file, const std::string& changedBytes) {
    return Verify(file, [&](const VerifyReport& report, std::uint64_t nbDone, std::uint64_t nb) {
        if (report.passes.empty() && nbDone == nb) {
            Clips::WriteFile(file, changedBytes);
        }
    });
}

TEST(Verifier, OneWrongByteIsADifferenceAndEndsIt) {
    const std::string file = Uncompressed("wrong-byte.avi");
    const auto index = RecordingIndex::Build(file);
    std::string bytes = Clips::ReadFile(file);
    auto& byte = bytes.at(static_cast<std::size_t>(index->Packet(7).position) + 100);
    byte = static_cast<char>(byte ^ 1);
    const VerifyReport report = VerifyChanged(file, bytes);
    ASSERT_TRUE(report.difference);
    EXPECT_EQ(report.difference->pass, "forward");
    EXPECT_EQ(report.difference->picture, 7U);
    EXPECT_EQ(report.difference->time, Time::TimePoint().FromMilliseconds(300));
    EXPECT_EQ(report.difference->what.rfind("its pixels have the MD5 ", 0), 0U) << report.difference->what;
    ASSERT_EQ(report.passes.size(), 1U);
    EXPECT_EQ(report.passes[0].nbSame, 7U);
    EXPECT_EQ(report.passes[0].nbDifferent, 1U);
}

TEST(Verifier, APictureThatOnlyAStraightDecodePutsOutIsADifference) {
    const std::string file = Uncompressed("lost.avi");
    const auto index = RecordingIndex::Build(file);
    const auto end = static_cast<std::size_t>(index->Packet(9).position);
    const VerifyReport report = VerifyChanged(file, Clips::ReadFile(file).substr(0, end));
    ASSERT_TRUE(report.difference);
    EXPECT_EQ(report.difference->picture, 9U);
    EXPECT_EQ(report.difference->what, "it is missing");
}

TEST(Verifier, TheStopFlagEndsIt) {
    std::atomic<bool> stop = false;
    const auto stopInForward = [&stop](const VerifyReport& report, std::uint64_t nbDone, std::uint64_t) {
        stop = !report.passes.empty() && nbDone == 5;
    };
    const auto index = RecordingIndex::Build(Clips::ClosedGroups());
    const VerifyReport report = Verifier(index, Options()).Run(stopInForward, &stop);
    EXPECT_TRUE(report.stopped);
    EXPECT_FALSE(report.difference);
    ASSERT_EQ(report.passes.size(), 1U);
    EXPECT_EQ(report.passes[0].NbCompared(), 5U);
}

TEST(Verifier, WithoutJumpsThereIsNoPassOfThem) {
    VerifierOptions options = Options();
    options.nbJumps = 0;
    const VerifyReport report = Verifier(RecordingIndex::Build(Clips::Short()), options).Run();
    ASSERT_EQ(report.passes.size(), 2U);
    EXPECT_EQ(report.passes[1].name, "backward");
}

TEST(Verifier, EveryPictureIsAnnounced) {
    std::vector<std::uint64_t> nbAnnounced(4);
    Verify(Clips::Short(), [&](const VerifyReport& report, std::uint64_t nbDone, std::uint64_t nb) {
        EXPECT_EQ(nbDone, ++nbAnnounced.at(report.passes.size()));
        EXPECT_LE(nbDone, nb);
    });
    EXPECT_EQ(nbAnnounced, (std::vector<std::uint64_t>{12, 12, 12, 20}));
}

}  // namespace
}  // namespace Tavrin::Playout
