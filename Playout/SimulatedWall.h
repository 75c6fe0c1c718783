#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Playout/EventQueue.h"
#include "Playout/MediaStream.h"
#include "Playout/MemoryPlan.h"
#include "Playout/SimulatedDecoders.h"
#include "Playout/SimulatedReaders.h"
#include "Playout/SimulatedStorage.h"
#include "Playout/Simulation.h"
#include "Playout/ViewCounter.h"
#include "Playout/WaitCause.h"

namespace Tavrin::Playout {

/// A session and the output that paces it, on simulated time: what Session and Playback do in real time, with
/// the tracks of the one and the ticks of the other.
///
/// *Threads:* externally synchronised. *Blocking:* never.
class SimulatedWall final {
public:
    explicit SimulatedWall(const SimulationOptions& options);
    ~SimulatedWall();
    SimulatedWall(const SimulatedWall&) = delete;
    SimulatedWall& operator=(const SimulatedWall&) = delete;

    /// Once.
    [[nodiscard]] SimulationReport Run();

private:
    struct Track;

    [[nodiscard]] LanePlan LanesOf(const RecordingIndex& recording) const;
    void ShareOutMemory();
    void OpenTrack(std::size_t number);
    void GoToStart();
    void PlayFor(const Time::TimePoint& duration);
    bool Tick(const Time::TimePoint& delta, LookKind kind);
    void WaitUntil(const Time::TimePoint& time);
    void WaitUntilReady();
    void FileAnswers();
    void File(std::size_t number);
    void Look(Track& track, LookKind kind);
    void NotePlace(std::size_t number);
    void NoteTick();
    void BeginMeasuring();
    void Fill(TrackCounters& counters, std::size_t number) const;
    [[nodiscard]] bool IsReady() const { return nbUnready_ == 0; }
    [[nodiscard]] bool EndsWith(const Time::TimePoint& head) const;

    SimulationOptions options_;
    EventQueue events_;
    Player::ExistingCacheUpdateQueues registry_;
    SimulatedStorage storage_;
    SimulatedReaders readers_;
    SimulatedDecoders decoders_;
    Player::Player player_;
    Player::SampleRate displayRate_;
    std::vector<std::unique_ptr<Track>> tracks_;
    std::vector<std::size_t> answered_;  ///< Tracks with answers that nobody has filed, between ticks.
    std::size_t nbUnready_ = 0;
    bool owes_ = false;  ///< The play head has moved to where nothing has been shown yet.
    SimulationReport report_;
};

}  // namespace Tavrin::Playout
