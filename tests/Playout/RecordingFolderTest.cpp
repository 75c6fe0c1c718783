// Recordings that somebody else made: every one in a folder, on every course, held against a straight decode of it.
//
// The folder is the one that the environment names by TAVRIN_TEST_RECORDINGS, else the one that CMake was told
// of. Without a folder there is nothing to test.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/CommandEachTick.h"
#include "Playout/Support/Oracle.h"
#include "Playout/Verifier.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using Player::SampleStatus;
using Support::CommandEachTick;
using Support::Oracle;
using Time::Ratio;
using Time::TimePoint;

/// A recording, and what a straight decode makes of it.
struct Recording {
    explicit Recording(const std::string& file) : index(RecordingIndex::Build(file)), oracle(index) {}

    /// A straight decode puts it out.
    [[nodiscard]] bool IsThere(std::size_t picture) const { return !oracle.md5.at(picture).empty(); }
    /// A straight decode puts it out whole: then there is no excuse for other pixels.
    [[nodiscard]] bool IsWhole(std::size_t picture) const {
        return IsThere(picture) && !oracle.damaged.at(picture);
    }
    [[nodiscard]] TimePoint StartOf(std::size_t picture) const {
        return index->SampleStart(index->Picture(picture).sample);
    }
    /// Samples whose picture is one of these.
    [[nodiscard]] std::uint64_t NbSamples(const std::function<bool(std::size_t picture)>& isMeant) const {
        std::uint64_t nb = 0;
        for (std::int64_t sample = 0; sample < index->NbSamples(); ++sample) {
            const auto picture = index->PictureAt(sample);
            nb += picture && isMeant(*picture) ? 1 : 0;
        }
        return nb;
    }

    std::shared_ptr<const RecordingIndex> index;
    Oracle oracle;
};

/// Judges each tick that a session shows of a recording, and counts.
class Judge {
public:
    Judge(const Recording& recording, const Session& session) : recording_(recording), session_(session) {}

    /// The play head, counted by the test, stands in that sample.
    void Look(std::int64_t sample, const ShownTick& shown, const TickReport& tick) {
        ASSERT_EQ(shown.time.SampleNumber(recording_.index->Rate()), sample) << "tick " << shown.tick;
        const TrackView& view = tick.tracks.front();
        ASSERT_NE(view.status, SampleStatus::NotReady) << "at " << shown.time;
        EXPECT_FALSE(view.standIn) << "at " << shown.time;
        const auto belongs = recording_.index->PictureAtTime(shown.time.AlignWith(FetchRate()));
        if (!belongs) {
            EXPECT_EQ(shown.pictures.front(), nullptr) << "in a hole, at " << shown.time;
            EXPECT_FALSE(view.missing) << "in a hole, at " << shown.time;
        } else if (view.missing) {
            ++nbMissing;
            EXPECT_FALSE(recording_.IsWhole(*belongs)) << "picture " << *belongs << " is missing";
        } else {
            LookAt(*belongs, shown.pictures.front());
        }
    }

    std::uint64_t nbMissing = 0;  ///< Ticks that say that their picture is missing.

private:
    /// At speeds at which not every picture is shown, the last one fetched at or before the play head belongs there.
    [[nodiscard]] SampleRate FetchRate() const {
        const SampleRate& rate = recording_.index->Rate();
        return SampleRate::StreamPreloadRate(
            rate, SampleRate::TimeSamplingRate(rate, session_.Speed(), session_.DisplayRate()));
    }

    void LookAt(std::size_t belongs, const std::shared_ptr<const Picture>& picture) {
        ASSERT_NE(picture, nullptr) << "picture " << belongs << " is neither shown nor missing";
        EXPECT_EQ(picture->Number(), belongs);
        if (picture == last_) {
            return;
        }
        last_ = picture;
        if (recording_.IsWhole(belongs)) {
            EXPECT_FALSE(picture->Damaged()) << "picture " << belongs;
            EXPECT_EQ(picture->Md5(), recording_.oracle.md5.at(belongs)) << "picture " << belongs;
        } else if (!recording_.IsThere(belongs)) {
            EXPECT_TRUE(picture->Damaged()) << "picture " << belongs << " is not whole in a straight decode";
        }
    }

    const Recording& recording_;
    const Session& session_;
    std::shared_ptr<const Picture> last_;  ///< Looked at already.
};

class RecordingFolder : public testing::Test {
protected:
    void SetUp() override {
        const char* const named = std::getenv("TAVRIN_TEST_RECORDINGS");
        folder_ = named != nullptr ? named : TAVRIN_TEST_RECORDINGS;
        if (folder_.empty() || (named == nullptr && !std::filesystem::is_directory(folder_))) {
            GTEST_SKIP() << "there is no folder of recordings: TAVRIN_TEST_RECORDINGS names none";
        }
        // A name that is wrong must not pass for a folder that plays well.
        ASSERT_TRUE(std::filesystem::is_directory(folder_)) << folder_ << " is no folder";
        ASSERT_FALSE(Files().empty()) << "there is no recording in " << folder_;
    }

    [[nodiscard]] std::vector<std::string> Files() const {
        const std::set<std::string> endings{".mp4", ".mov", ".webm", ".mkv", ".mxf", ".ts", ".mpg", ".avi"};
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            if (endings.contains(entry.path().extension().string())) {
                files.push_back(entry.path().string());
            }
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    /// Until the first recording in which something is wrong.
    void ForEach(const std::function<void(const Recording& recording)>& check,
                 const std::string& namePart = "") const {
        std::size_t nb = 0;
        for (const std::string& file : Files()) {
            const std::string name = std::filesystem::path(file).filename().string();
            if (name.find(namePart) != std::string::npos && !HasFailure()) {
                SCOPED_TRACE(name);
                check(Recording(file));
                ++nb;
            }
        }
        if (nb == 0) {
            GTEST_SKIP() << "no recording there has a name with \"" << namePart << '"';
        }
    }

    /// As fast as the pictures come; the samples at which the play head should stand tick by tick.
    static void Play(const Recording& recording, Session& session, const PlaybackOptions& options,
                     const std::vector<std::int64_t>& samples, ICommandSource* commands = nullptr) {
        Judge judge(recording, session);
        const PlayReport report = Playback(session, options)
                                      .Run(
                                          [&](const ShownTick& shown, const TickReport& tick) {
                                              EXPECT_LT(shown.tick, samples.size()) << "a tick too many";
                                              if (shown.tick < samples.size()) {
                                                  judge.Look(samples[shown.tick], shown, tick);
                                              }
                                              return !HasFailure();
                                          },
                                          nullptr, commands);
        EXPECT_EQ(report.nbTicks, samples.size());
        EXPECT_EQ(report.tracks.front().nbMissing, judge.nbMissing) << "what is missing is reported";
        EXPECT_EQ(report.nbLateTicks, 0U) << "nothing is late where every picture is waited for";
    }

    /// All of it: every tick is as it should be, there are as many as there should be, and what is not there is
    /// reported.
    static void ExpectPlaysAt(const Recording& recording, const Ratio& speed) {
        Session session({recording.index});
        const std::int64_t last = recording.index->NbSamples() - 1;
        const std::int64_t every =
            std::max<std::int64_t>(std::abs(speed.Numerator()) / speed.Denominator(), 1);
        // Backward from the last sample that is fetched.
        const std::int64_t first = speed.Positive() ? 0 : last / every * every;
        std::vector<std::int64_t> samples;
        for (Ratio at(first, 1); at >= Ratio() && at < Ratio(last + 1, 1); at = at + speed) {
            samples.push_back(at.Numerator() / at.Denominator());
        }
        PlaybackOptions options;
        options.speed = speed;
        Play(recording, session, options, samples);
    }

    static void ExpectStandsAtSpeedZero(const Recording& recording) {
        SCOPED_TRACE("standing");
        Session session({recording.index});
        const std::int64_t last = recording.index->NbSamples() - 1;
        for (const std::int64_t sample : {std::int64_t{0}, last / 2, last}) {
            PlaybackOptions options;
            options.speed = Ratio();
            options.from = recording.index->SampleStart(sample);
            options.nbTicks = 3;
            Play(recording, session, options, {sample, sample, sample});
        }
    }

    /// Back through all of it and forward again.
    static void ExpectSteps(const Recording& recording) {
        SCOPED_TRACE("stepping");
        const std::size_t last = recording.index->NbPictures() - 1;
        std::vector<PlayCommand> steps;
        std::vector<std::size_t> pictures{last};
        for (std::size_t step = 1; step <= last; ++step) {
            steps.emplace_back(StepBy{-1});
            pictures.push_back(last - step);
        }
        for (std::size_t step = 1; step <= last; ++step) {
            steps.emplace_back(StepBy{1});
            pictures.push_back(step);
        }
        ExpectLeadsTo(recording, steps, pictures);
    }

    static void ExpectJumps(const Recording& recording) {
        constexpr std::size_t kNbJumps = 10;
        SCOPED_TRACE("jumping");
        std::mt19937 random(20'240'229);
        std::vector<PlayCommand> jumps;
        std::vector<std::size_t> pictures{0};
        for (std::size_t jump = 0; jump < kNbJumps; ++jump) {
            // Never to where it stands already, which shows nothing anew.
            pictures.push_back((pictures.back() + 1 + random() % (recording.index->NbPictures() - 1)) %
                               recording.index->NbPictures());
            jumps.emplace_back(JumpTo{recording.StartOf(pictures.back())});
        }
        ExpectLeadsTo(recording, jumps, pictures);
    }

    /// One command at each tick but the first, from rest at the first of these pictures.
    static void ExpectLeadsTo(const Recording& recording, const std::vector<PlayCommand>& commands,
                              const std::vector<std::size_t>& pictures) {
        std::vector<std::vector<PlayCommand>> each(1);
        for (const PlayCommand& command : commands) {
            each.push_back({command});
        }
        std::vector<std::int64_t> samples;
        for (const std::size_t picture : pictures) {
            samples.push_back(recording.index->Picture(picture).sample);
        }
        PlaybackOptions options;
        options.speed = Ratio();
        options.from = recording.StartOf(pictures.front());
        CommandEachTick source(std::move(each));
        Session session({recording.index});
        Play(recording, session, options, samples, &source);
    }

    std::filesystem::path folder_;
};

TEST_F(RecordingFolder, EachIsDecodedAsTheProgramDecodesIt) {
    ForEach([](const Recording& recording) {
        std::vector<std::string> sums;
        for (const std::string& md5 : recording.oracle.md5) {
            if (!md5.empty()) {
                sums.push_back(md5);
            }
        }
        EXPECT_EQ(sums, Clips::SumsOfTheProgram(recording.index->File()));
    });
}

TEST_F(RecordingFolder, EachVerifiesAndWhatItLacksIsCounted) {
    ForEach([](const Recording& recording) {
        VerifierOptions options;
        options.seed = 20'240'229;
        options.nbJumps = 10;
        const VerifyReport report = Verifier(recording.index, options).Run();
        EXPECT_FALSE(report.difference) << report.difference->pass << ", picture "
                                        << report.difference->picture << ": " << report.difference->what;
        EXPECT_EQ(report.nbDecoded, recording.oracle.result.nbPictures);
        const auto& damaged = recording.oracle.damaged;
        EXPECT_EQ(report.nbDamaged,
                  static_cast<std::size_t>(std::count(damaged.begin(), damaged.end(), true)));
        ASSERT_EQ(report.passes.size(), 3U);
        for (std::size_t pass = 0; pass < 2; ++pass) {
            SCOPED_TRACE(report.passes[pass].name);
            EXPECT_GE(report.passes[pass].nbSame,
                      recording.NbSamples([&](std::size_t picture) { return recording.IsWhole(picture); }));
            EXPECT_EQ(report.passes[pass].nbMissing,
                      recording.NbSamples([&](std::size_t picture) { return !recording.IsThere(picture); }));
            EXPECT_EQ(report.passes[pass].NbCompared(),
                      recording.NbSamples([](std::size_t) { return true; }));
        }
    });
}

TEST_F(RecordingFolder, EachPlaysAtEverySpeed) {
    ForEach([](const Recording& recording) {
        for (const Ratio& speed :
             {Ratio(1, 1), Ratio(-1, 1), Ratio(1, 2), Ratio(-2, 1), Ratio(4, 1), Ratio(-16, 1)}) {
            SCOPED_TRACE(speed.ToString());
            ExpectPlaysAt(recording, speed);
        }
        ExpectStandsAtSpeedZero(recording);
    });
}

TEST_F(RecordingFolder, EachStepsAndJumpsToThePicturesAskedFor) {
    ForEach([](const Recording& recording) {
        ExpectSteps(recording);
        ExpectJumps(recording);
    });
}

/// What playing a recording forward once comes to.
TrackCounters CountersOf(const Recording& recording) {
    Session session({recording.index});
    Playback(session, {}).Run([](const ShownTick&, const TickReport&) { return true; });
    return session.GetCounters().tracks.front();
}

TEST_F(RecordingFolder, OfADamagedOneTheErrorsAndTheLostPicturesAreReported) {
    ForEach(
        [](const Recording& recording) {
            const auto isLost = [&](std::size_t picture) { return !recording.IsThere(picture); };
            ASSERT_GT(recording.NbSamples(isLost), 0U) << "it is called damaged, and lacks nothing";
            const TrackCounters counters = CountersOf(recording);
            EXPECT_EQ(counters.pictures.nbMissing, recording.NbSamples(isLost));
            EXPECT_GE(counters.decodes.nbErrors, recording.oracle.result.nbErrors);
        },
        "damaged");
}

TEST_F(RecordingFolder, OfATruncatedOneItIsSaidHowMuchIsCutOff) {
    ForEach(
        [](const Recording& recording) {
            EXPECT_GT(recording.index->NbMissingPackets(), 0U);
            EXPECT_LT(recording.index->NbPictures(),
                      recording.index->NbMissingPackets() + recording.index->NbPictures());
            const auto isLost = [&](std::size_t picture) { return !recording.IsThere(picture); };
            EXPECT_EQ(CountersOf(recording).pictures.nbMissing, recording.NbSamples(isLost));
        },
        "truncated");
}

}  // namespace
}  // namespace Tavrin::Playout
