// The memory that the process really takes, as the system counts it, against the budget. Each test runs in a process
// of its own.

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/ProcessUsage.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using Time::Ratio;
using Time::TimePoint;

constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

/// What a track takes beside its share: its decoders' own tables and stacks, the demuxer, what the allocator keeps.
constexpr std::size_t kOverheadOfTrack = 24 * kMebibyte;

/// 150 pictures of 1.4 MB in three groups: decoded, a multiple of the budgets here.
std::shared_ptr<const RecordingIndex> Large() {
    static const auto index = RecordingIndex::Build(Support::Clips::Encoded(
        "large.mp4",
        "-f lavfi -i testsrc2=size=1280x720:rate=25:duration=6 -pix_fmt yuv420p -c:v libx264 -preset "
        "ultrafast -x264-params scenecut=0:keyint=50:bframes=2"));
    return index;
}

/// Plays as fast as possible to the end, or for so many ticks.
void Play(Session& session, const Ratio& speed, std::uint64_t nbTicks) {
    PlaybackOptions options;
    options.speed = speed;
    options.nbTicks = nbTicks;
    Playback(session, options).Run([](const ShownTick&, const TickReport&) { return true; });
}

/// Forward, backward, fast, and to and fro.
void PlayEverywhere(Session& session) {
    for (const Ratio& speed : {Ratio(1, 1), Ratio(-1, 1), Ratio(4, 1), Ratio(-2, 1)}) {
        Play(session, speed, 200);
    }
    std::mt19937 random(3);
    for (int jump = 0; jump < 30; ++jump) {
        session.SetSpeed(Ratio(jump % 3 - 1, 1));
        session.GoTo(Large()->SampleStart(std::uniform_int_distribution<std::int64_t>(0, 149)(random)));
        for (int look = 0; look < 4; ++look) {
            session.Tick(TimePoint());
            session.WaitForProgress(std::chrono::milliseconds(20));
        }
    }
}

void ExpectWithin(std::size_t budget, std::size_t nbTracks) {
    const auto index = Large();
    const ProcessUsage usage;
    SessionOptions options;
    options.memoryBytes = budget;
    Session session(std::vector<std::shared_ptr<const RecordingIndex>>(nbTracks, index), options);
    PlayEverywhere(session);
    const std::uint64_t taken = usage.PeakResident() - usage.ResidentAtBegin();
    EXPECT_LE(taken, budget + nbTracks * kOverheadOfTrack)
        << taken / kMebibyte << " MiB of a budget of " << budget / kMebibyte;
    // Else the bound says nothing.
    EXPECT_GE(taken, budget / 2);
}

TEST(ResidentMemory, OfOneTrackStaysWithinASmallBudget) {
    ExpectWithin(60 * kMebibyte, 1);
}

TEST(ResidentMemory, OfOneTrackStaysWithinALargeBudget) {
    ExpectWithin(160 * kMebibyte, 1);
}

TEST(ResidentMemory, OfFourTracksStaysWithinTheirBudget) {
    ExpectWithin(240 * kMebibyte, 4);
}

}  // namespace
}  // namespace Tavrin::Playout
