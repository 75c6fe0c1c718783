#pragma once

#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Playout/Bench.h"
#include "Playout/MemoryPlan.h"
#include "Playout/NumberedRecording.h"
#include "Playout/Percentiles.h"
#include "Playout/ProcessUsage.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What the cases of a bench share: the recording, the tracks that play it, and random places in it.
///
/// *Threads:* bound to one thread.
class BenchScene {
public:
    BenchScene(const std::string& file, std::size_t nbTracks, const BenchOptions& options);

    [[nodiscard]] std::shared_ptr<Session> OpenSession() const { return OpenSession(options_.session); }
    [[nodiscard]] std::shared_ptr<Session> OpenSession(const SessionOptions& options) const;

    [[nodiscard]] const BenchOptions& Options() const { return options_; }
    [[nodiscard]] const NumberedRecording& Recording() const { return recording_; }
    [[nodiscard]] const RecordingIndex& Index() const { return *recording_.Index(); }
    [[nodiscard]] std::vector<NumberedRecording> Tracks() const { return {nbTracks_, recording_}; }

    /// Bytes of the largest group's pictures, decoded.
    [[nodiscard]] std::size_t GroupBytes() const;

    /// The least memory that the tracks can be played with.
    [[nodiscard]] std::size_t LeastBytes() const;
    /// The memory that they get when nobody says how much.
    [[nodiscard]] std::size_t UsualBytes() const;

    /// The middle of the time in which a picture is on display.
    [[nodiscard]] Time::TimePoint MiddleOf(std::size_t picture) const;

    [[nodiscard]] std::size_t RandomPicture() { return random_() % Index().NbPictures(); }
    /// Of the middle half of the recording.
    [[nodiscard]] std::size_t RandomInnerPicture();
    [[nodiscard]] std::size_t RandomBelow(std::size_t end) { return random_() % end; }

    /// Whether every track shows that picture.
    [[nodiscard]] bool Shows(const TickReport& report, std::size_t picture) const;

private:
    [[nodiscard]] TrackNeeds Needs() const;

    BenchOptions options_;
    std::size_t nbTracks_;
    NumberedRecording recording_;
    std::mt19937_64 random_;
};

/// How long the tries took: "tries", "p50Ms", "p95Ms", "p99Ms" and "maxMs".
void AddLatencies(BenchFigures& figures, const Percentiles& times);

/// Memory, and processor time and bytes read for each of the pictures shown.
void AddUsage(BenchFigures& figures, const ProcessUsage& usage, std::size_t nbPictures);

/// The cases themselves.
BenchFigures MeasureOpening(const std::string& file, const BenchOptions& options, bool backward);
BenchFigures MeasureReverseStart(BenchScene& scene);
BenchFigures MeasureFast(BenchScene& scene, const Time::Ratio& speed, double nbGroupsInBudget);
BenchFigures MeasurePlaying(BenchScene& scene, const Time::Ratio& speed);
BenchFigures MeasureSteps(BenchScene& scene, const Time::Ratio& speed);
BenchFigures MeasureTurns(BenchScene& scene);
BenchFigures MeasureNearJumps(BenchScene& scene);
BenchFigures MeasureJumps(BenchScene& scene);
BenchFigures MeasureDragging(BenchScene& scene);

}  // namespace Tavrin::Playout
