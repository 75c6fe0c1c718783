// What tracks hold, as they count it themselves, against the budget: at every look, whatever is done to the play head.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Playout/Counters.h"
#include "Playout/CrewPlan.h"
#include "Playout/MemoryPlan.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
namespace Clips = Support::Clips;
using Time::Ratio;
using Time::TimePoint;

/// Pictures refer to as many before them as the codec allows.
std::string ManyReferences() {
    return Clips::Encoded(
        "references.mp4",
        "-f lavfi -i testsrc2=size=320x240:rate=25:duration=4 -pix_fmt yuv420p -c:v libx264 "
        "-preset slow -x264-params scenecut=0:keyint=50:bframes=3:ref=16");
}

/// What is done to a play head by chance, and what its tracks hold meanwhile.
class Held {
public:
    Held(const std::string& file, std::size_t nbTracks, std::size_t bytesEach)
        : recording_(RecordingIndex::Build(file)),
          session_(std::vector<std::shared_ptr<const RecordingIndex>>(nbTracks, recording_),
                   OptionsFor(nbTracks * bytesEach)) {}

    void Play(int nbRounds) {
        const std::vector<Ratio> speeds{Ratio(1, 1), Ratio(-1, 1), Ratio(4, 1), Ratio(-2, 1), Ratio()};
        const auto nbSamples = recording_->End().SampleNumber(recording_->Rate());
        std::mt19937 random(7);
        std::uniform_int_distribution<std::int64_t> sample(0, nbSamples - 1);
        std::uniform_int_distribution<std::size_t> speed(0, speeds.size() - 1);
        for (int round = 0; round < nbRounds; ++round) {
            session_.SetSpeed(speeds[speed(random)]);
            session_.GoTo(recording_->SampleStart(sample(random)));
            for (int tick = 0; tick < 12; ++tick) {
                Look(recording_->SampleStart(1));
            }
        }
    }

    /// Bytes by which a track was beyond its share, at the worst.
    [[nodiscard]] std::uint64_t MostBeyond() const { return mostBeyond_; }
    /// The largest part of a share that was taken.
    [[nodiscard]] double LargestPart() const { return largestPart_; }

private:
    static SessionOptions OptionsFor(std::size_t bytes) {
        SessionOptions options;
        options.memoryBytes = bytes;
        return options;
    }

    /// The reports are let go at once: the pictures in them would be in memory on the caller's account.
    void Look(const TimePoint& delta) {
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        bool isReady = session_.Tick(delta).IsReady();
        Measure();
        while (!isReady) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            session_.WaitForProgress(20ms);
            isReady = session_.Tick(TimePoint()).IsReady();
            Measure();
        }
    }

    void Measure() {
        for (const TrackCounters& track : session_.GetCounters().tracks) {
            const std::uint64_t taken = track.bytes.compressed + track.bytes.pictures;
            mostBeyond_ = std::max(mostBeyond_, taken > track.bytes.budget ? taken - track.bytes.budget : 0);
            largestPart_ =
                std::max(largestPart_, static_cast<double>(taken) / static_cast<double>(track.bytes.budget));
        }
    }

    std::shared_ptr<const RecordingIndex> recording_;
    Session session_;
    std::uint64_t mostBeyond_ = 0;
    double largestPart_ = 0;
};

class Budget : public testing::TestWithParam<std::string (*)()> {};

TEST_P(Budget, HoldsWhateverIsDone) {
    const std::string file = GetParam()();
    for (const std::size_t nbTracks : {1U, 3U}) {
        const auto recording = RecordingIndex::Build(file);
        const TrackNeeds needs = NeedsOf(*recording, PlanLanes(*recording, nbTracks, NbCoresHere()));
        for (const std::size_t bytes : {needs.least, (needs.least + needs.usual) / 2, needs.usual}) {
            Held held(file, nbTracks, bytes);
            held.Play(12);
            EXPECT_EQ(held.MostBeyond(), 0U)
                << nbTracks << " tracks of " << bytes << " bytes: " << held.LargestPart() << ", pictures of "
                << needs.picture << ", " << needs.working / needs.picture << " of them worked on";
            // Else the bound says nothing.
            EXPECT_GT(held.LargestPart(), 0.3) << nbTracks << " tracks of " << bytes << " bytes";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, Budget,
                         testing::Values(&Clips::LongGroups, &Clips::OpenGroups, &Clips::ClosedGroups,
                                         &Clips::SingleGroup, &Clips::MotionJpeg, &Clips::IntraOnlyH264,
                                         &ManyReferences));

}  // namespace
}  // namespace Tavrin::Playout
