#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Playout/Announcements.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/PlayedTrack.h"
#include "Playout/ReachPlanner.h"
#include "Playout/Session.h"
#include "Playout/SessionWorkers.h"
#include "Playout/SpeedMeter.h"
#include "Playout/TickGate.h"
#include "Playout/Trace.h"
#include "Playout/ViewCounter.h"

namespace Tavrin::Playout {

/// What a session is behind its interface: one play head, the tracks, and the workers that serve them.
///
/// *Threads:* bound to the session's thread; preloader, decoder and announcements are shared with the workers.
class Session::Impl {
public:
    Impl(std::vector<SessionTrack> tracks, const SessionOptions& options);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    TickReport Tick(const Time::TimePoint& delta, LookKind kind);
    TickReport TickTo(const Time::TimePoint& head);
    bool WaitForProgress(std::chrono::milliseconds timeout);
    void SetSpeed(const Time::Ratio& speed);
    void GoTo(const Time::TimePoint& tp, bool dragged);
    void AllowStandIns(bool allowed) { standInsAllowed_ = allowed; }
    void SetMemory(std::size_t nbBytes);
    [[nodiscard]] bool HasAhead(std::size_t nb) const;
    [[nodiscard]] std::size_t Memory() const { return memory_; }
    [[nodiscard]] TrackInformation GetInformation(std::size_t track) const;
    [[nodiscard]] Counters GetCounters() const;
    [[nodiscard]] Trace* GetTrace() const { return options_.trace.get(); }

    [[nodiscard]] const SessionTrack& TrackAt(std::size_t track) const { return settings_.at(track); }
    [[nodiscard]] const RecordingIndex& Recording(std::size_t track) const {
        return *TrackAt(track).recording;
    }
    [[nodiscard]] std::size_t NbTracks() const { return settings_.size(); }
    [[nodiscard]] const Player::SampleRate& DisplayRate() const { return displayRate_; }
    [[nodiscard]] const FieldOrder& Samples(std::size_t track) const {
        return tracks_.at(track)->Stream().Fields();
    }
    [[nodiscard]] const Player::Player& PlayHead() const { return player_; }
    [[nodiscard]] std::vector<CellState> CellStates(std::size_t track, const CellRange& range) const;
    [[nodiscard]] MediaPreloader& Preloader() { return preloader_; }

private:
    void AddTracks();
    void StartWorkers();
    void Intake();
    [[nodiscard]] TraceSpan Record(LookKind kind) const;
    bool NoteReadiness();
    TickReport LookAround(bool moved, LookKind kind, TraceSpan& span);
    void NoteWaits(TickReport& report);
    void Count(const TickReport& report, LookKind kind);
    void WithdrawAll();
    void PlanWindows();
    void FollowDecoding();
    void ShareOut(std::size_t nbBytes);
    void PlanReach();
    [[nodiscard]] double WantedBytesPerSecond() const;
    [[nodiscard]] std::vector<Player::SampleRate> FetchRates() const;
    [[nodiscard]] std::uint64_t NbAnswers() const;

    SessionOptions options_;
    std::vector<SessionTrack> settings_;
    Player::SampleRate displayRate_;
    TickGate gate_;
    SpeedMeter meter_;
    Announcements announcements_;
    Player::ExistingCacheUpdateQueues registry_;
    MediaPreloader preloader_;
    MediaDecoder decoder_;
    Player::Player player_;
    std::vector<std::unique_ptr<PlayedTrack>> tracks_;
    std::optional<SessionWorkers> workers_;
    std::uint64_t nbTicks_ = 0;
    std::uint64_t nbOutputTicks_ = 0;
    std::size_t memory_ = 0;
    double plannedWith_ = 0;  ///< Decoded bytes per second.
    bool dragged_ = false;
    bool standInsAllowed_ = false;
    ReachPlanner reachPlanner_;
};

}  // namespace Tavrin::Playout
