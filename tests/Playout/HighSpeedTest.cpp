// Sixteen times the speed in real time, in both directions: how far the play head gets is counted by ticks, so that
// a machine that holds the process up makes a run longer but not wrong.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

constexpr std::uint64_t kNbTicks = 45;

/// Ticks for which a picture may stay on show at most: half a second on a machine that has other things to do.
constexpr std::uint64_t kLongestStand = 12;

/// A clip's packets over and over.
std::string Repeated(const std::string& name, const std::string& clip, int nbTimes) {
    return Clips::Encoded(
        name, "-stream_loop " + std::to_string(nbTimes - 1) + " -i " + Clips::Quoted(clip) + " -c copy");
}

/// 48 pictures in groups of 12, large and of a codec whose decoder has no threads.
std::string Large() {
    return Clips::Encoded("large.mkv",
                          "-f lavfi -i testsrc2=size=1920x1080:rate=200:duration=0.24 -pix_fmt yuv420p "
                          "-c:v wmv2 -g 12 -q:v 31");
}
constexpr std::size_t kNbLarge = 48;

/// 32 s of them. At sixteen times the speed 3200 pictures pass in a second, eight times what one core decodes.
std::shared_ptr<const RecordingIndex> MoreThanCanBeDecoded() {
    static const auto index = RecordingIndex::Build(Repeated("many-large.mkv", Large(), 134));
    return index;
}

/// 32 s of small pictures, 25 in a second.
std::shared_ptr<const RecordingIndex> Easy() {
    static const auto index = RecordingIndex::Build(Repeated("many-small.mkv", Clips::ClosedGroups(), 14));
    return index;
}

/// Stops after so many ticks, and then waits for the picture there.
class StopAfter final : public ICommandSource {
public:
    explicit StopAfter(std::uint64_t nbTicks) : left_(nbTicks) {}

    std::vector<PlayCommand> Take(const TimePoint& /*at*/) override {
        if (left_ == 0 || --left_ > 0) {
            return {};
        }
        return {SetSpeed{Ratio()}};
    }
    [[nodiscard]] bool IsOpen() const override { return left_ > 0; }

private:
    std::uint64_t left_;
};

/// What was on show at a tick.
struct Tick {
    TimePoint time;
    bool isLate = false;
    bool standIn = false;
    bool missing = false;
    std::shared_ptr<const Picture> picture;
};

class HighSpeed : public testing::TestWithParam<std::int64_t> {
protected:
    /// Plays in real time, on a display of 25 per second, from one end of the recording; stops after kNbTicks.
    void Play(const std::shared_ptr<const RecordingIndex>& index) {
        index_ = index;
        SessionOptions settings;
        settings.displayRate = SampleRate(25, 1);
        settings.nbDecodeWorkers = 1;
        session_ = std::make_unique<Session>(std::vector{index}, settings);
        PlaybackOptions options;
        options.speed = Ratio(GetParam(), 1);
        options.realTime = true;
        StopAfter commands(kNbTicks);
        report_ = Playback(*session_, options)
                      .Run(
                          [this](const ShownTick& shown, const TickReport& tick) {
                              const TrackView& view = tick.tracks.front();
                              auto& ticks = session_->Speed() == Ratio() ? stopped_ : playing_;
                              ticks.push_back({shown.time, !tick.IsReady(), view.standIn, view.missing,
                                               shown.pictures.front()});
                              return true;
                          },
                          nullptr, &commands);
        ASSERT_GE(playing_.size(), kNbTicks - 1);
        ASSERT_FALSE(stopped_.empty());
    }

    /// The play head goes on by sixteen ticks' worth at every tick that is not late, and by nothing at the others.
    void ExpectTheRateIsHeld() const {
        const std::int64_t perTick =
            GetParam() * index_->Rate().Numerator() / index_->Rate().Denominator() / 25;
        for (std::size_t tick = 1; tick < playing_.size(); ++tick) {
            const auto way = SampleOf(playing_[tick]) - SampleOf(playing_[tick - 1]);
            const bool isFirstLate = playing_[tick].isLate && !playing_[tick - 1].isLate;
            const bool moves = isFirstLate || !playing_[tick - 1].isLate;
            EXPECT_EQ(way, moves ? perTick : 0) << "tick " << tick;
        }
    }

    void ExpectPicturesKeepChanging() const {
        std::uint64_t nbSince = 0;
        for (std::size_t tick = 1; tick < playing_.size(); ++tick) {
            nbSince = playing_[tick].picture == playing_[tick - 1].picture ? nbSince + 1 : 0;
            EXPECT_LE(nbSince, kLongestStand) << "at tick " << tick;
        }
    }

    /// What is on show without being marked belongs there.
    void ExpectWhatStandsInIsMarked() const {
        const SampleRate fetched = SampleRate::StreamPreloadRate(
            index_->Rate(),
            SampleRate::TimeSamplingRate(index_->Rate(), Ratio(GetParam(), 1), SampleRate(25, 1)));
        for (const Tick& tick : playing_) {
            ASSERT_NE(tick.picture, nullptr) << "at " << tick.time;
            EXPECT_FALSE(tick.missing) << "at " << tick.time;
            if (!tick.standIn && !tick.isLate && tick.picture->Number() != index_->PictureAtTime(tick.time)) {
                EXPECT_EQ(tick.picture->Number(), index_->PictureAtTime(tick.time.AlignWith(fetched)))
                    << "at " << tick.time;
            }
        }
    }

    [[nodiscard]] std::uint64_t NbStandIns() const {
        return static_cast<std::uint64_t>(
            std::count_if(playing_.begin(), playing_.end(), [](const Tick& tick) { return tick.standIn; }));
    }

    [[nodiscard]] std::int64_t SampleOf(const Tick& tick) const {
        return tick.time.SampleNumber(index_->Rate());
    }

    std::shared_ptr<const RecordingIndex> index_;
    std::unique_ptr<Session> session_;
    std::vector<Tick> playing_;
    std::vector<Tick> stopped_;
    PlayReport report_;
};

TEST_P(HighSpeed, WhereAllCanBeDecodedEachTickShowsItsPictureAndTheRateIsHeld) {
    Play(Easy());
    ExpectTheRateIsHeld();
    ExpectPicturesKeepChanging();
    ExpectWhatStandsInIsMarked();
    EXPECT_LE(report_.nbLateTicks, report_.nbTicks / 4);
}

TEST_P(HighSpeed, WhereNotAllCanBeDecodedOthersStandInAndAreMarked) {
    Play(MoreThanCanBeDecoded());
    ExpectTheRateIsHeld();
    ExpectPicturesKeepChanging();
    ExpectWhatStandsInIsMarked();
    for (const Tick& tick : playing_) {
        EXPECT_FALSE(tick.isLate) << "the play head waits for nothing, at " << tick.time;
    }
    EXPECT_GT(NbStandIns(), playing_.size() / 4);
    EXPECT_GE(session_->GetCounters().tracks.front().pictures.nbStoodIn, NbStandIns());
}

TEST_P(HighSpeed, KeyFramesStandInWhereThereIsTimeForLittleElse) {
    Play(MoreThanCanBeDecoded());
    std::size_t nbKeys = 0;
    std::size_t nb = 0;
    // What was decoded before it was known how little there is time for is still at hand in the beginning.
    for (std::size_t tick = playing_.size() / 2; tick < playing_.size(); ++tick) {
        if (playing_[tick].standIn) {
            ++nb;
            nbKeys += index_->Picture(playing_[tick].picture->Number()).key ? 1 : 0;
        }
    }
    ASSERT_GT(nb, 0U);
    EXPECT_GT(nbKeys, nb / 2);
}

TEST_P(HighSpeed, WhereItStopsTheExactPictureComesInPlaceOfAStandIn) {
    Play(MoreThanCanBeDecoded());
    const Tick& last = stopped_.back();
    EXPECT_FALSE(last.isLate);
    EXPECT_FALSE(last.standIn);
    ASSERT_NE(last.picture, nullptr);
    const auto belongs = index_->PictureAtTime(last.time);
    ASSERT_TRUE(belongs.has_value());
    EXPECT_EQ(last.picture->Number(), *belongs);
    static const Support::Oracle oracle(RecordingIndex::Build(Large()));
    EXPECT_EQ(last.picture->Md5(), oracle.md5.at(*belongs % kNbLarge));
}

INSTANTIATE_TEST_SUITE_P(BothWays, HighSpeed, testing::Values(16, -16),
                         [](const auto& speed) { return speed.param > 0 ? "Forward" : "Backward"; });

}  // namespace
}  // namespace Tavrin::Playout
