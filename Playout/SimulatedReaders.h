#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadOrder.h"
#include "Player/PreloadThread.h"
#include "Playout/Counters.h"
#include "Playout/PacketGroup.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SimulatedStorage.h"
#include "Playout/UsageMeter.h"

namespace Tavrin::Playout {

/// The preload workers of a session and its preloader, without threads and files: each worker takes the orders
/// of its tracks' queues as the engine's does, one after the other; an order whose group is not at hand has
/// the whole group read from a simulated storage, and every order yields one output through the registry.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Ownership:* borrows events, storage and registry,
/// and the queues of the tracks, which must all outlive it.
class TAVRIN_PLAYOUT_EXPORT SimulatedReaders final {
public:
    /// Called after each answer, with the number of the track.
    using Answered = std::function<void(std::size_t track)>;

    SimulatedReaders(EventQueue& events, SimulatedStorage& storage,
                     Player::ExistingCacheUpdateQueues& registry, std::size_t nbWorkers, Answered answered);
    ~SimulatedReaders();
    SimulatedReaders(const SimulatedReaders&) = delete;
    SimulatedReaders& operator=(const SimulatedReaders&) = delete;

    /// Tracks are numbered from 0 in the order in which they are added, as their TrackId must be.
    void AddTrack(std::shared_ptr<const RecordingIndex> index, Player::PreloadOrderQueue& queue,
                  const SimulatedRandom& random);

    /// Has idle workers look at their queues: to be called after orders may have been pushed.
    void LookForOrders();

    void RestartMeasuring();

    /// Percent of the workers' time spent on reads.
    [[nodiscard]] double BusyPercent();
    [[nodiscard]] std::size_t NbWorkers() const { return workers_.size(); }

    /// Fills in what reading for the track has come to: `reads`, and the bytes read and held.
    void Fill(TrackCounters& counters, std::size_t track) const;

private:
    struct Track;
    struct Worker;

    void Serve(Worker& worker);
    [[nodiscard]] bool AnswerAtOnce(const Player::PreloadOrder& order);
    void BeginRead(Worker& worker, const Player::PreloadOrder& order);
    void EndRead(Worker& worker, const Player::PreloadOrder& order, bool succeeded);
    void Answer(const Player::PreloadOrder& order, std::shared_ptr<const PacketGroup> group);
    [[nodiscard]] static std::shared_ptr<const PacketGroup> MakeGroup(const Track& track, std::size_t number);

    EventQueue& events_;
    SimulatedStorage& storage_;
    Player::ExistingCacheUpdateQueues& registry_;
    Answered answered_;
    std::vector<std::unique_ptr<Track>> tracks_;
    std::vector<std::unique_ptr<Worker>> workers_;
    UsageMeter usage_;
};

}  // namespace Tavrin::Playout
