#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Playout/Counters.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Playout/SimulatedDecoders.h"
#include "Playout/SimulatedRecording.h"
#include "Playout/SimulatedStorage.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// A wall of tracks that play in step, and what it plays from.
struct TAVRIN_PLAYOUT_EXPORT SimulationOptions {
    std::size_t nbTracks = 1;

    /// What every track plays. As many pictures as the run needs are made; RecordingModel::nbPictures does not
    /// matter.
    RecordingModel recording;

    /// Instead of `recording`: what every track plays, from its beginning, backward from its end. The run ends
    /// where it ends.
    std::shared_ptr<const RecordingIndex> like;

    /// Groups of all tracks begin at the same time, which asks the most of the storage at once. Otherwise they
    /// begin at times spread over a group's length, as those of cameras do that were not started together.
    bool aligned = false;

    StorageModel storage;
    DecoderModel decoder;  ///< Its number of workers counts, not that of `session`.
    SessionOptions session;
    Time::Ratio speed{1, 1};
    Time::TimePoint duration = Time::TimePoint().FromSeconds(20);  ///< Of playing, after the first picture.
    std::uint64_t seed = 1;

    /// At first nothing is ready ahead: late ticks in this time after the first one do not count for `holds`.
    Time::TimePoint settling = Time::TimePoint().FromSeconds(2);

    /// The wall holds when no more than this part of the ticks after that is late.
    double allowedLatePercent = 0;

    /// Throws std::invalid_argument, naming the value and the rule.
    void Check() const;

    static constexpr std::size_t kMostTracks = 10'000;
};

/// What a simulated run came to.
struct TAVRIN_PLAYOUT_EXPORT SimulationReport {
    std::size_t nbTracks = 0;
    Time::Ratio speed;
    std::size_t memoryBytes = 0;  ///< The budget of all tracks together.

    /// From the start to the first tick, at which all tracks have their picture.
    Time::TimePoint untilFirst;
    Time::TimePoint elapsed;  ///< From there to the end.
    Time::TimePoint played;   ///< The way of the play head in that time, without its sign.

    std::uint64_t nbTicks = 0;
    std::uint64_t nbLateTicks = 0;       ///< At which some track was not ready, so that none moved.
    std::uint64_t nbSettlingTicks = 0;   ///< Of the first ones, which do not count for `holds`.
    std::uint64_t nbLateSettling = 0;    ///< Of these, the late ones.
    std::uint64_t nbLateForStorage = 0;  ///< Of these, those at which some track waited for storage.
    std::uint64_t nbLateForDecoder = 0;  ///< Those at which some track waited for a decoder.
    std::vector<std::uint64_t>
        nbHeldUp;  ///< For each track, the late ticks at which it was not ready itself.

    double storageBusyPercent = 0;  ///< Of the time, something was being transferred; from the first tick on.
    double readersBusyPercent = 0;  ///< Of the preload workers' time.
    double coresBusyPercent = 0;    ///< Of the time of the cores that decode.
    double decodersBusyPercent = 0;     ///< Of the decode workers' time, waiting for one another included.
    double decodersWaitingPercent = 0;  ///< Of it, waiting for a decoder that another worker uses.

    Counters counters;  ///< As of playing, from the start of the run.
    bool holds = false;

    /// Of the ticks after settling.
    [[nodiscard]] double LatePercent() const;
    /// The speed that the play head really had, without its sign.
    [[nodiscard]] double HeldSpeed() const;
};

/// Plays tracks on simulated storage and decoders: play head, tracks, caches, planners and queues are those
/// that really play; threads, files and codecs are replaced by events on a clock that nobody waits for. The
/// same options give the same report on every run. The time that the engine itself takes, on the output thread
/// and in the workers, is not part of the model.
///
/// *Blocking:* for as long as computing it takes. *Errors:* throws std::invalid_argument as
/// SimulationOptions::Check.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT SimulationReport Simulate(const SimulationOptions& options);

/// The most tracks, up to \p most, with which the wall holds: found by halving, as if more tracks never did
/// better. 0 when not even one does.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::size_t FindMostTracks(SimulationOptions options, std::size_t most);

/// The highest speed in the direction of `options.speed`, in quarters up to \p most, with which the wall
/// holds: found by halving, as if faster never did better. 0 when a quarter of the speed is too much.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT Time::Ratio FindHighestSpeed(SimulationOptions options,
                                                                 std::int64_t most);

}  // namespace Tavrin::Playout
