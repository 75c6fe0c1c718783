// Every kind of recording on every course: whatever the codec does with its groups, what is on show is the
// picture that belongs there, pixel by pixel as a straight decode puts it out, with memory for a quarter of a
// group.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Playout/CrewPlan.h"
#include "Playout/MemoryPlan.h"
#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/CommandEachTick.h"
#include "Playout/Support/FieldClip.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using Support::CommandEachTick;
using Support::Oracle;
using Time::Ratio;
using Time::TimePoint;

struct Kind {
    std::string name;
    std::function<std::string()> make;
    std::string encoder;  ///< Without which it cannot be made; empty: always there.
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

std::size_t LongestGroup(const RecordingIndex& index) {
    std::size_t longest = 1;
    for (std::size_t group = 0; group < index.NbGroups(); ++group) {
        longest = std::max(longest, index.Group(group).nbPictures);
    }
    return longest;
}

class MediaKind : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        if (!GetParam().encoder.empty() && !Clips::HasEncoder(GetParam().encoder)) {
            GTEST_SKIP() << "there is no encoder " << GetParam().encoder;
        }
        index_ = RecordingIndex::Build(GetParam().make());
        oracle_ = std::make_unique<Oracle>(index_);
        ASSERT_EQ(oracle_->result.nbPictures, index_->NbPictures()) << "this recording is not whole";
        SessionOptions options;
        // Beside what the decoders themselves work on.
        const TrackNeeds needs = NeedsOf(*index_, PlanLanes(*index_, 1, NbCoresHere()));
        options.memoryBytes = needs.least + needs.picture * LongestGroup(*index_) / 4;
        session_ = std::make_unique<Session>(std::vector{index_}, options);
    }

    [[nodiscard]] std::size_t NbPictures() const { return index_->NbPictures(); }

    /// The first picture in the second half of the recording.
    [[nodiscard]] std::size_t Middle() const { return NbPictures() / 2; }
    [[nodiscard]] TimePoint StartOf(std::size_t picture) const {
        return index_->SampleStart(index_->Picture(picture).sample);
    }

    /// The numbers of what is shown, tick by tick, as fast as it comes.
    std::vector<std::size_t> Play(const PlaybackOptions& options, ICommandSource* commands = nullptr) {
        std::vector<std::size_t> numbers;
        Playback(*session_, options)
            .Run(
                [&](const ShownTick& shown, const TickReport& tick) {
                    Check(shown, tick.tracks.front());
                    numbers.push_back(shown.pictures.front() == nullptr ? NbPictures()
                                                                        : shown.pictures.front()->Number());
                    return !HasFailure();
                },
                nullptr, commands);
        return numbers;
    }

    /// The whole recording.
    std::vector<std::size_t> PlayAt(const Ratio& speed) {
        PlaybackOptions options;
        options.speed = speed;
        return Play(options);
    }

    std::vector<std::size_t> PlayWith(std::vector<std::vector<PlayCommand>> commands, std::size_t from) {
        PlaybackOptions options;
        options.speed = Ratio();
        options.from = StartOf(from);
        CommandEachTick source(std::move(commands));
        return Play(options, &source);
    }

    std::shared_ptr<const RecordingIndex> index_;
    std::unique_ptr<Session> session_;
    std::size_t nbStandIns_ = 0;  ///< Ticks at which another picture stood in for the one that belongs there.

private:
    /// What is fetched for a place at the present speed, when the display cannot show every picture.
    [[nodiscard]] std::size_t FetchedAt(const TimePoint& at) const {
        const SampleRate needed =
            SampleRate::TimeSamplingRate(index_->Rate(), session_->Speed(), session_->DisplayRate());
        const SampleRate fetched = SampleRate::StreamPreloadRate(index_->Rate(), needed);
        return index_->PictureAtTime(at.AlignWith(fetched)).value();
    }

    void Check(const ShownTick& shown, const TrackView& view) {
        ASSERT_NE(shown.pictures.front(), nullptr) << "at " << shown.time;
        const Picture& picture = *shown.pictures.front();
        EXPECT_FALSE(view.missing) << "at " << shown.time;
        EXPECT_EQ(picture.Md5(), oracle_->md5.at(picture.Number())) << "picture " << picture.Number();
        nbStandIns_ += view.standIn ? 1 : 0;
        if (!view.standIn && picture.Number() != FetchedAt(shown.time)) {
            EXPECT_EQ(picture.Number(), index_->PictureAtTime(shown.time).value()) << "at " << shown.time;
        }
    }

    std::unique_ptr<Oracle> oracle_;
};

TEST_P(MediaKind, ForwardEveryPictureIsShown) {
    std::vector<std::size_t> expected;
    for (std::int64_t sample = 0; sample < index_->NbSamples(); ++sample) {
        expected.push_back(index_->PictureAt(sample).value());
    }
    EXPECT_EQ(PlayAt(Ratio(1, 1)), expected);
}

TEST_P(MediaKind, BackwardEveryPictureIsShown) {
    std::vector<std::size_t> expected;
    for (std::int64_t sample = index_->NbSamples() - 1; sample >= 0; --sample) {
        expected.push_back(index_->PictureAt(sample).value());
    }
    EXPECT_EQ(PlayAt(Ratio(-1, 1)), expected);
}

TEST_P(MediaKind, AtHalfTheSpeedEachTickIsRight) {
    const auto nbSamples = static_cast<std::size_t>(index_->NbSamples());
    EXPECT_EQ(PlayAt(Ratio(1, 2)).size(), 2 * nbSamples);
    EXPECT_EQ(PlayAt(Ratio(-1, 2)).size(), 2 * nbSamples);
}

TEST_P(MediaKind, AtTwiceAndFourTimesTheSpeedEachTickIsRight) {
    const auto nbSamples = static_cast<std::size_t>(index_->NbSamples());
    for (const std::int64_t speed : {-2, 2, -4, 4}) {
        const auto factor = static_cast<std::size_t>(std::abs(speed));
        EXPECT_EQ(PlayAt(Ratio(speed, 1)).size(), (nbSamples + factor - 1) / factor) << "at " << speed;
    }
    EXPECT_EQ(nbStandIns_, 0U);
}

TEST_P(MediaKind, AtSixteenTimesTheSpeedEachTickIsRightOrHasAStandInThatIsMarked) {
    const auto nbSamples = static_cast<std::size_t>(index_->NbSamples());
    for (const std::int64_t speed : {16, -16}) {
        EXPECT_EQ(PlayAt(Ratio(speed, 1)).size(), (nbSamples + 15) / 16) << "at " << speed;
    }
}

TEST_P(MediaKind, StepsLeadToTheNeighbours) {
    const std::size_t nb = std::min<std::size_t>(Middle() - 1, 18);
    std::vector<std::vector<PlayCommand>> commands(1);
    std::vector<std::size_t> expected{Middle()};
    for (std::size_t step = 1; step <= nb; ++step) {
        commands.push_back({StepBy{-1}});
        expected.push_back(Middle() - step);
    }
    for (std::size_t step = 1; step <= nb; ++step) {
        commands.push_back({StepBy{1}});
        expected.push_back(Middle() - nb + step);
    }
    EXPECT_EQ(PlayWith(std::move(commands), Middle()), expected);
}

TEST_P(MediaKind, AtTurnsNoPictureIsSkippedOrShownTwice) {
    // Samples rather than pictures, of which one may stay on show for several.
    const auto middle = index_->Picture(Middle()).sample;
    std::vector<std::vector<PlayCommand>> commands;
    std::vector<std::size_t> expected;
    std::int64_t sample = middle;
    const auto play = [&](std::int64_t speed, std::size_t nbTicks) {
        for (std::size_t tick = 0; tick < nbTicks; ++tick) {
            commands.push_back(tick == 0 ? std::vector<PlayCommand>{SetSpeed{Ratio(speed, 1)}}
                                         : std::vector<PlayCommand>());
            sample += commands.size() == 1 ? 0 : speed;
            expected.push_back(index_->PictureAt(sample).value());
        }
    };
    play(1, 3);
    play(-1, 6);
    play(1, 2);
    play(-1, 2);
    play(1, 5);
    commands.push_back({Quit{}});
    PlaybackOptions options;
    options.speed = Ratio();
    options.from = StartOf(Middle());
    CommandEachTick source(std::move(commands));
    EXPECT_EQ(Play(options, &source), expected);
}

TEST_P(MediaKind, JumpsLeadToTheirPictures) {
    constexpr std::size_t kNbJumps = 16;
    std::mt19937 random(20'240'229);
    std::vector<std::vector<PlayCommand>> commands(1);
    std::vector<std::size_t> expected{Middle()};
    for (std::size_t jump = 0; jump < kNbJumps; ++jump) {
        expected.push_back(random() % NbPictures());
        commands.push_back({JumpTo{StartOf(expected.back())}});
    }
    EXPECT_EQ(PlayWith(std::move(commands), Middle()), expected);
}

/// Made by the program with these arguments.
Kind Made(const std::string& name, const std::string& ending, const std::string& encoder,
          const std::string& options, const std::string& filter = "null") {
    const std::string arguments = Clips::TestPattern(filter) + "-c:v " + encoder + " " + options;
    return {name, [=] { return Clips::Encoded("kind-" + name + ending, arguments); }, encoder};
}

Kind MadeX264(const std::string& name, const std::string& options, const std::string& flags = "",
              const std::string& filter = "null") {
    return Made(name, ".mp4", "libx264",
                flags + " -preset veryfast -x264-params scenecut=0:b-adapt=0:" + options, filter);
}

Kind MadeX265(const std::string& name, const std::string& options, const std::string& flags = "") {
    return Made(name, ".mp4", "libx265",
                flags +
                    " -preset ultrafast -x265-params "
                    "b-adapt=0:scenecut=0:pools=none:frame-threads=1:log-level=error:" +
                    options);
}

/// Another clip's packets, with these options.
Kind Copied(const std::string& name, const std::string& ending, std::string (*source)(),
            const std::string& before, const std::string& after) {
    return {name,
            [=] {
                return Clips::Encoded("kind-" + name + ending,
                                      before + " -i " + Clips::Quoted(source()) + " -map 0 -c copy " + after);
            },
            ""};
}

std::vector<Kind> Kinds() {
    const std::string interlaced = "interlace=scan=tff:lowpass=off";
    const std::string bottomFirst = "interlace=scan=bff:lowpass=off";
    return {
        // Groups.
        {"ClosedGroups", Clips::ClosedGroups, ""},
        {"OpenGroups", Clips::OpenGroups, ""},
        {"ShortLastGroup", Clips::ShortLastGroup, ""},
        {"SingleGroup", Clips::SingleGroup, ""},
        {"GradualRefresh", Clips::GradualRefresh, ""},
        {"IntraOnlyH264", Clips::IntraOnlyH264, ""},
        MadeX264("StrictPyramid", "keyint=24:bframes=5:b-pyramid=strict:ref=4"),
        MadeX264("DeepPyramidInOpenGroups", "keyint=20:bframes=7:b-pyramid=normal:ref=4:open-gop=1"),
        MadeX264("PyramidInASingleGroup", "keyint=1000:bframes=4:b-pyramid=strict"),
        MadeX264("WithoutBFrames", "keyint=12:bframes=0"),
        // Codecs and depths.
        MadeX264("H264Deep", "keyint=12:bframes=3", "-pix_fmt yuv420p10le"),
        MadeX265("HevcClosed", "keyint=12:min-keyint=12:bframes=4:b-pyramid=1:open-gop=0"),
        {"HevcOpenGroups", Clips::HevcOpenGroups, "libx265"},
        MadeX265("HevcDeepSingleGroup", "keyint=1000:bframes=4", "-pix_fmt yuv420p10le"),
        Made("Vp9HiddenPictures", ".webm", "libvpx-vp9",
             "-pix_fmt yuv420p -deadline good -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 20 -b:v 200k"),
        Made("Vp8HiddenPictures", ".webm", "libvpx",
             "-pix_fmt yuv420p -deadline good -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 20 -b:v 200k"),
        Made("Av1HiddenPictures", ".mp4", "libaom-av1",
             "-pix_fmt yuv420p -cpu-used 8 -row-mt 0 -lag-in-frames 19 -g 20 -b:v 200k"),
        Made("Mpeg2InTransport", ".ts", "mpeg2video", "-g 12 -bf 2"),
        Made("Mpeg4", ".avi", "mpeg4", "-g 12 -bf 2"),
        {"MotionJpeg", Clips::MotionJpeg, "mjpeg"},
        {"ProRes", Clips::ProRes, "prores_ks"},
        Made("Dnxhr", ".mov", "dnxhd", "-profile:v dnxhr_lb -pix_fmt yuv422p", "scale=256:144"),
        Made("Dnxhr10", ".mxf", "dnxhd", "-profile:v dnxhr_hqx -pix_fmt yuv422p10le", "scale=256:144"),
        // Interlaced.
        MadeX264("MacroblockFields", "keyint=12:bframes=3:tff=1", "-flags +ilme+ildct", interlaced),
        MadeX264("MacroblockFieldsBottomFirst", "keyint=12:bframes=3:open-gop=1:bff=1", "-flags +ilme+ildct",
                 bottomFirst),
        {"FieldPictures", Clips::Fields, ""},
        {"Mpeg2Interlaced", Clips::Mpeg2Interlaced, ""},
        {"Mpeg2Program", Clips::Mpeg2Program, ""},
        // Time.
        {"EditList", Clips::EditList, ""},
        Copied("EditListInAClosedGroup", ".mp4", Clips::ClosedGroups, "-ss 0.6", ""),
        Copied("EditListOfAHole", ".mp4", Clips::OpenGroups, "-itsoffset 0.5", ""),
        Copied("EditListInASingleGroup", ".mov", Clips::SingleGroup, "-ss 1.3", ""),
        Copied("NegativeOffsets", ".mp4", Clips::OpenGroups, "", "-movflags +negative_cts_offsets"),
        Copied("FastStart", ".mp4", Clips::OpenGroups, "", "-movflags +faststart"),
        {"Fragmented", Clips::Fragmented, ""},
        {"VariableRate", Clips::VariableRate, ""},
        {"VariableMatroska", Clips::VariableMatroska, ""},
        {"Jittery", Clips::Jittery, ""},
        {"Ntsc", Clips::Ntsc, ""},
        {"Transport", Clips::Transport, ""},
        {"BareH264", Clips::BareH264, ""},
        {"OldAvi", Clips::OldAvi, ""},
    };
}

INSTANTIATE_TEST_SUITE_P(Every, MediaKind, testing::ValuesIn(Kinds()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace Tavrin::Playout
