#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Player/DecodeOrder.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Playout/Counters.h"
#include "Playout/EventQueue.h"
#include "Playout/PictureStore.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SimulatedTime.h"
#include "Playout/UsageMeter.h"

namespace Tavrin::Playout {

/// The decoders of a machine.
struct DecoderModel {
    SimulatedTime perPicture;   ///< Time of one core for one picture.
    std::size_t nbCores = 2;    ///< That decode.
    std::size_t nbWorkers = 2;  ///< Decode workers of the session.
};

/// The decode workers of a session and its decoders, without threads and codecs. Each worker takes the orders
/// of the queues of its crew's tracks as the engine's does. An order whose picture is not in its track's store goes to one
/// of the track's lanes, which decodes forward from its group's key frame, or from where it stands, up to that
/// picture, and files what comes out on the way; a lane that another worker uses is waited for. The cores are
/// shared equally by the threads of the lanes that decode; the share is that of the moment a picture begins.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Ownership:* borrows events and registry, and the
/// queues of the tracks, which must all outlive it.
class TAVRIN_PLAYOUT_EXPORT SimulatedDecoders final {
public:
    /// Called after each answer, with the number of the track.
    using Answered = std::function<void(std::size_t track)>;

    /// What a track has of a decoder.
    struct TrackOptions {
        std::size_t storeBytes = 0;  ///< For pictures put out on the way to others.
        std::size_t nbLanes = 2;
        std::size_t nbThreads = 1;  ///< Of each lane.
    };

    /// For `nbTracks` tracks.
    SimulatedDecoders(EventQueue& events, const DecoderModel& model, std::size_t nbTracks,
                      Player::ExistingCacheUpdateQueues& registry, Answered answered);
    ~SimulatedDecoders();
    SimulatedDecoders(const SimulatedDecoders&) = delete;
    SimulatedDecoders& operator=(const SimulatedDecoders&) = delete;

    /// Tracks are numbered from 0 in the order in which they are added, as their TrackId must be.
    void AddTrack(std::shared_ptr<const RecordingIndex> index, Player::DecodeOrderQueue& queue,
                  const TrackOptions& options, const SimulatedRandom& random);

    /// Where the track is being played, which decides what its store keeps.
    void SetPlace(std::size_t track, const PlayPlace& place);

    /// Has idle workers look at the queues: to be called after orders may have been pushed.
    void LookForOrders();

    void RestartMeasuring();

    /// Percent of the cores' time spent on decoding.
    [[nodiscard]] double CoresBusyPercent();
    /// Percent of the workers' time spent on orders, and on waiting for a lane that another one uses.
    [[nodiscard]] double WorkersBusyPercent();
    [[nodiscard]] double WorkersWaitingPercent();

    /// Fills in what decoding for the track has come to: `decodes`, what became of the pictures, and their
    /// bytes.
    void Fill(TrackCounters& counters, std::size_t track) const;

private:
    struct Lane;
    struct Track;
    struct Worker;

    void Serve(Worker& worker);
    void Begin(Worker& worker);
    void Enter(Worker& worker);
    static void LeaveOut(Worker& worker);
    void DecodePacket(Worker& worker);
    void EndPacket(Worker& worker);
    void PutOut(Worker& worker, std::size_t picture);
    void Leave(Worker& worker);
    void Answer(Worker& worker);
    void CountCores();

    EventQueue& events_;
    DecoderModel model_;
    Player::ExistingCacheUpdateQueues& registry_;
    Answered answered_;
    std::vector<std::unique_ptr<Track>> tracks_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<bool> mayHaveOrders_;  ///< For each crew: since any of it last looked in vain.
    std::size_t nbThreads_ = 0;        ///< Of the lanes that decode now.
    UsageMeter cores_;
    UsageMeter busyWorkers_;
    UsageMeter waitingWorkers_;
};

}  // namespace Tavrin::Playout
