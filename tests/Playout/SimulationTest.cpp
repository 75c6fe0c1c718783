#include "Playout/Simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>

#include "Playout/Support/Clips.h"

// Walls whose outcome can be reckoned by hand: what the machine can do over what the tracks ask for.

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Time::Ratio;
using Time::TimePoint;

/// 25 small pictures a second in groups of 10, 2 Mb/s (100 kB a group); 10 ms of a core for a picture, so that a
/// core decodes four tracks.
SimulationOptions SmallWall(std::size_t nbTracks) {
    SimulationOptions options;
    options.nbTracks = nbTracks;
    options.recording.groupLength = 10;
    options.recording.bitsPerSecond = 2'000'000;
    options.recording.width = 320;
    options.recording.height = 180;
    options.recording.reorderDepth = 0;
    options.storage.latency = SimulatedTime::Parse("2");
    options.decoder.perPicture = SimulatedTime::Parse("10");
    options.decoder.nbCores = 8;
    options.decoder.nbWorkers = 16;
    options.duration = TimePoint().FromSeconds(6);
    return options;
}

TEST(Simulation, HoldsWhereStorageAndDecodersHaveRoom) {
    const auto report = Simulate(SmallWall(4));
    EXPECT_TRUE(report.holds);
    EXPECT_EQ(report.nbLateTicks, 0U);
    EXPECT_EQ(report.nbTicks, 151U);
    EXPECT_EQ(report.elapsed, TimePoint().FromSeconds(6));
    EXPECT_DOUBLE_EQ(report.HeldSpeed(), 1);
}

TEST(Simulation, CountsEveryPictureOfEveryTrackAsPlayingDoes) {
    const auto report = Simulate(SmallWall(4));
    ASSERT_EQ(report.counters.tracks.size(), 4U);
    EXPECT_EQ(report.counters.nbTicks, 151U);
    for (const TrackCounters& track : report.counters.tracks) {
        EXPECT_EQ(track.pictures.nbExact, 151U);
        EXPECT_EQ(track.pictures.nbLate, 0U);
        EXPECT_EQ(track.pictures.nbMissing, 0U);
    }
}

TEST(Simulation, UsesAsMuchOfTheCoresAsThePicturesTake) {
    // 4 tracks, 25 pictures a second, 10 ms each: one of eight cores; and at first what is decoded ahead.
    SimulationOptions options = SmallWall(4);
    options.duration = TimePoint().FromSeconds(30);
    const auto report = Simulate(options);
    EXPECT_GE(report.coresBusyPercent, 12.5);
    EXPECT_LE(report.coresBusyPercent, 13.5);
}

TEST(Simulation, UsesAsMuchOfTheStorageAsTheBytesTake) {
    SimulationOptions options = SmallWall(8);
    options.storage.bytesPerSecond = 8'000'000;
    options.duration = TimePoint().FromSeconds(20);
    // 8 tracks of 250 kB/s, and at first what is read ahead.
    const auto report = Simulate(options);
    EXPECT_GE(report.storageBusyPercent, 25);
    EXPECT_LE(report.storageBusyPercent, 29);
}

TEST(Simulation, ReadsEachGroupOnce) {
    const auto report = Simulate(SmallWall(1));
    // 151 ticks and what is ready ahead (at most 1.5 s decoded, and 25 samples beyond): 21 or 22 groups.
    EXPECT_GE(report.counters.All().reads.nbReads, 16U);
    EXPECT_LE(report.counters.All().reads.nbReads, 23U);
}

TEST(Simulation, WaitsForDecodersWhereTheCoresAreTooFew) {
    SimulationOptions options = SmallWall(8);
    options.decoder.nbCores = 1;
    const auto report = Simulate(options);
    EXPECT_FALSE(report.holds);
    EXPECT_GT(report.nbLateForDecoder, report.nbLateForStorage);
    EXPECT_GT(report.coresBusyPercent, 95);
    // One core decodes four of the eight tracks.
    EXPECT_NEAR(report.HeldSpeed(), 0.5, 0.06);
    EXPECT_GT(report.counters.All().waits.decoder.count(), 0);
}

TEST(Simulation, WaitsForStorageWhereTheBandwidthIsTooLow) {
    SimulationOptions options = SmallWall(8);
    options.storage.bytesPerSecond = 1'000'000;
    const auto report = Simulate(options);
    EXPECT_FALSE(report.holds);
    EXPECT_GT(report.nbLateForStorage, report.nbLateForDecoder);
    EXPECT_GT(report.storageBusyPercent, 95);
    EXPECT_NEAR(report.HeldSpeed(), 0.5, 0.1);
    EXPECT_GT(report.counters.All().waits.storage.count(), 0);
}

TEST(Simulation, WaitsForReadsWhereTheWorkersAreTooFewToHideTheLatency) {
    SimulationOptions options = SmallWall(8);
    options.storage.latency = SimulatedTime::Parse("100");
    options.session.nbPreloadWorkers = 1;
    // Ten reads a second, and the tracks ask for twenty.
    const auto report = Simulate(options);
    EXPECT_FALSE(report.holds);
    EXPECT_GT(report.nbLateForStorage, report.nbLateForDecoder);
    EXPECT_GT(report.readersBusyPercent, 95);
    options.session.nbPreloadWorkers = 8;
    EXPECT_TRUE(Simulate(options).holds);
}

TEST(Simulation, NamesTheTracksThatHeldTheOthersUp) {
    SimulationOptions options = SmallWall(8);
    options.decoder.nbCores = 1;
    const auto report = Simulate(options);
    ASSERT_EQ(report.nbHeldUp.size(), 8U);
    EXPECT_GE(std::accumulate(report.nbHeldUp.begin(), report.nbHeldUp.end(), std::uint64_t{0}),
              report.nbLateTicks);
}

TEST(Simulation, ShowsWhatCannotBeReadAsMissingAndGoesOn) {
    SimulationOptions options = SmallWall(2);
    options.storage.failedPercent = 20;
    const auto report = Simulate(options);
    EXPECT_TRUE(report.holds);
    EXPECT_GT(report.counters.All().pictures.nbMissing, 0U);
    EXPECT_GT(report.counters.All().reads.nbFailed, 0U);
    EXPECT_GT(report.counters.All().pictures.nbExact, 100U);
}

TEST(Simulation, PlaysBackwardWithOnePassForEachGroupWhereThereIsMemory) {
    SimulationOptions options = SmallWall(1);
    options.speed = Ratio(-1, 1);
    options.session.memoryBytes = 100'000'000;
    const auto report = Simulate(options);
    EXPECT_TRUE(report.holds);
    const auto decodes = report.counters.All().decodes;
    EXPECT_GE(decodes.nbPasses, 16U);
    EXPECT_LE(decodes.nbPasses, 21U);
    EXPECT_EQ(decodes.nbPackets, 10 * decodes.nbPasses);
}

TEST(Simulation, NeedsMorePassesBackwardWhereTheMemoryIsSmall) {
    SimulationOptions roomy = SmallWall(1);
    roomy.speed = Ratio(-1, 1);
    roomy.recording.groupLength = 50;
    SimulationOptions tight = roomy;
    // A few pictures more than the least that it can be played with.
    tight.session.memoryBytes = 10'000'000;
    EXPECT_GT(Simulate(tight).counters.All().decodes.nbPackets,
              Simulate(roomy).counters.All().decodes.nbPackets * 5 / 4);
}

TEST(Simulation, IsTheSameForTheSameSeed) {
    SimulationOptions options = SmallWall(6);
    options.storage.latency = SimulatedTime::Parse("heavy:20,400");
    options.storage.failedPercent = 3;
    options.decoder.perPicture = SimulatedTime::Parse("lognormal:8,30");
    options.seed = 11;
    EXPECT_EQ(ToJson(Simulate(options).counters), ToJson(Simulate(options).counters));
}

TEST(Simulation, DiffersForAnotherSeed) {
    SimulationOptions options = SmallWall(6);
    options.storage.latency = SimulatedTime::Parse("heavy:20,400");
    const std::string first = ToJson(Simulate(options).counters);
    options.seed = 12;
    EXPECT_NE(first, ToJson(Simulate(options).counters));
}

TEST(Simulation, PlaysAThousandTracks) {
    SimulationOptions options = SmallWall(1000);
    options.decoder.perPicture = SimulatedTime::Parse("1");
    options.decoder.nbCores = 200;
    options.decoder.nbWorkers = 400;
    options.session.nbPreloadWorkers = 64;
    options.duration = TimePoint().FromSeconds(1);
    options.settling = TimePoint().FromMilliseconds(200);
    const auto report = Simulate(options);
    EXPECT_EQ(report.counters.tracks.size(), 1000U);
    EXPECT_TRUE(report.holds) << report.LatePercent();
    EXPECT_EQ(report.counters.All().pictures.nbExact, 1000 * (report.nbTicks - report.nbLateTicks));
}

TEST(Simulation, HoldsAllTracksUpWhenOneWaits) {
    SimulationOptions options = SmallWall(8);
    options.decoder.nbCores = 1;
    const auto report = Simulate(options);
    const auto& tracks = report.counters.tracks;
    for (const TrackCounters& track : tracks) {
        // The last tick is late: some have found its picture already.
        EXPECT_LE(std::max(track.pictures.nbExact, tracks.front().pictures.nbExact) -
                      std::min(track.pictures.nbExact, tracks.front().pictures.nbExact),
                  1U);
    }
}

TEST(Simulation, PlaysWhatAFileIsLaidOutLike) {
    SimulationOptions options = SmallWall(3);
    options.like = RecordingIndex::Build(Clips::ClosedGroups());
    const auto report = Simulate(options);
    EXPECT_EQ(report.counters.tracks.at(2).file, Clips::ClosedGroups());
    EXPECT_EQ(report.nbTicks, options.like->NbPictures());
}

TEST(Simulation, DoesNotCountLateTicksWhileSettling) {
    SimulationOptions options = SmallWall(8);
    options.decoder.nbCores = 1;
    options.settling = options.duration - TimePoint().FromMilliseconds(40);
    const auto report = Simulate(options);
    EXPECT_GT(report.nbLateSettling, 0U);
    EXPECT_LE(report.nbLateTicks - report.nbLateSettling, 1U);
}

TEST(Simulation, HoldsWithAsManyLateTicksAsAreAllowed) {
    SimulationOptions options = SmallWall(8);
    options.decoder.nbCores = 1;
    options.allowedLatePercent = 90;
    EXPECT_TRUE(Simulate(options).holds);
}

TEST(FindMostTracks, FindsWhatTheCoresCanDecode) {
    SimulationOptions options = SmallWall(1);
    options.decoder.nbCores = 2;
    options.duration = TimePoint().FromSeconds(4);
    const std::size_t most = FindMostTracks(options, 100);
    // Two cores decode eight tracks; the last one has no room for anything uneven.
    EXPECT_GE(most, 6U);
    EXPECT_LE(most, 8U);
    options.nbTracks = most;
    EXPECT_TRUE(Simulate(options).holds);
    options.nbTracks = most + 1;
    EXPECT_FALSE(Simulate(options).holds);
}

TEST(FindMostTracks, GoesNoFurtherThanAskedFor) {
    EXPECT_EQ(FindMostTracks(SmallWall(1), 3), 3U);
}

TEST(FindMostTracks, IsZeroWhereNotEvenOneTrackHolds) {
    SimulationOptions options = SmallWall(1);
    options.decoder.perPicture = SimulatedTime::Parse("500");
    EXPECT_EQ(FindMostTracks(options, 10), 0U);
}

TEST(FindHighestSpeed, FindsWhatTheCoresCanDecodeInTheDirectionOfPlay) {
    SimulationOptions options = SmallWall(4);
    options.decoder.nbCores = 2;
    options.speed = Ratio(-1, 1);
    options.duration = TimePoint().FromSeconds(4);
    const Ratio highest = FindHighestSpeed(options, 8);
    // 200 pictures a second of the 100 that speed 1 takes, if nothing were lost.
    // What is ready ahead makes a short run hold a little more.
    EXPECT_LE(highest, Ratio(-3, 2));
    EXPECT_GE(highest, Ratio(-5, 2));
}

TEST(SimulationOptions, AreRefusedNamingTheValueAndTheRule) {
    const auto refusal = [](const SimulationOptions& options) -> std::string {
        try {
            static_cast<void>(Simulate(options));
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(refusal(SmallWall(0)), "a number of tracks of 0: it must be from 1 to 10000");
    EXPECT_EQ(refusal(SmallWall(10'001)), "a number of tracks of 10001: it must be from 1 to 10000");
    SimulationOptions options = SmallWall(1);
    options.speed = Ratio();
    EXPECT_EQ(refusal(options), "a speed of 0: it must be another one: what stands asks for nothing");
    options = SmallWall(1);
    options.duration = TimePoint();
    EXPECT_EQ(refusal(options), "a duration of 0.000000000 s: it must be above 0");
    options = SmallWall(1);
    options.settling = options.duration;
    EXPECT_EQ(refusal(options),
              "settling for 6.000000000 s: it must be from 0 to less than the 6.000000000 s that are played");
    options = SmallWall(1);
    options.allowedLatePercent = -1;
    EXPECT_EQ(refusal(options), "-1.000000 % of late ticks: it must be from 0 to 100");
    options = SmallWall(1);
    options.decoder.nbCores = 0;
    EXPECT_EQ(refusal(options), "a number of cores of 0: it must be from 1 to 1024");
}

}  // namespace
}  // namespace Tavrin::Playout
