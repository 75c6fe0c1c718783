#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/PreloadOrder.h"
#include "Player/TrackId.h"
#include "Playout/GroupReach.h"
#include "Playout/LatencyHistogram.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Trace.h"

namespace Tavrin::Playout {

/// Fetches compressed samples of any number of recordings: a whole group of pictures is read at once and then
/// serves all the orders for its samples.
///
/// What an order is answered with:
///
/// | the order's time point                  | result            | output                                  |
/// |------------------------------------------|-------------------|-----------------------------------------|
/// | in the recording, packet read            | `SUCCESS_EXIST`   | CompressedSample of the sample on grid  |
/// | before or after the recording            | `SUCCESS_MISSING` | null sample                             |
/// | in it, but the packet is not in the file | `SUCCESS_MISSING` | null sample                             |
/// | in it, but reading failed                | `ERROR`           | null sample                             |
/// | of a track that nobody added             | `ERROR`           | null sample                             |
/// | of an order without a queue              | `ERROR`           | none                                    |
///
/// Each order with a queue yields exactly one output, with the order's own time point, through the registry
/// when one is set. An output whose queue is no longer registered is dropped and its sample deleted.
///
/// *Threads:* thread-safe: Preload runs on any number of workers at once, one read at a time for each track;
/// tracks may be added and removed meanwhile. SetExistingCacheUpdateQueues and the hooks are to be set before
/// the workers start. *Blocking:* Preload on the file, and on another read of the same track.
/// *Ownership:* owns the open files; borrows the registry, which must outlive it. *Errors:* Preload throws
/// nothing of its own; the reason of a failed read is in GetInformation.
class TAVRIN_PLAYOUT_EXPORT MediaPreloader final : public Player::IPreloader {
public:
    /// How much of a track is kept read, and what reading it has cost.
    struct Information {
        std::uint64_t nbReads = 0;           ///< Groups read from the file.
        std::uint64_t nbReused = 0;          ///< Orders served by a group that had been read before.
        std::uint64_t nbFailedReads = 0;     ///< Reads that ended in an error.
        std::uint64_t nbAbandonedReads = 0;  ///< Reads that a jump made useless.
        std::uint64_t nbMissingPackets = 0;  ///< Packets that reads found not to be in the file, in all.
        std::uint64_t nbBytesKept = 0;       ///< Of the groups kept for the next orders.
        std::uint64_t nbBytesRead = 0;       ///< Taken from the file in all.
        std::size_t nbBytesHeld = 0;         ///< Of packets in memory now, whoever holds them.
        std::string lastError;               ///< Of the latest failed read, empty when none failed.
    };

    /// Called on the worker's thread after each delivery, with no lock held: a client can wait for it instead
    /// of polling. What it does comes before the return of Preload. Must not throw.
    using DeliveryHook = std::function<void(const Player::PreloadOrder& order, PreloadResult result)>;

    /// Called on the worker's thread before each read of a group from the file. May block, which holds the
    /// reads of that track only, and may throw, which makes the read fail with that text.
    using ReadHook = std::function<void(const Player::TrackId& track, std::size_t group)>;

    MediaPreloader();
    ~MediaPreloader() override;
    MediaPreloader(const MediaPreloader&) = delete;
    MediaPreloader& operator=(const MediaPreloader&) = delete;

    /// Opens the recording's file and serves it as \p track from now on, in place of any earlier recording.
    /// Throws std::runtime_error, naming the file, when it cannot be opened.
    void AddTrack(const Player::TrackId& track, std::shared_ptr<const RecordingIndex> index);
    /// Orders already being served are still answered. An unknown track is ignored.
    void RemoveTrack(const Player::TrackId& track);
    /// As of the latest read that has ended; zeros for an unknown track. Never waits for a read.
    [[nodiscard]] Information GetInformation(const Player::TrackId& track) const;
    /// How long each read of a group from the file took, failed ones included. As GetInformation otherwise.
    [[nodiscard]] LatencyHistogram GetLatency(const Player::TrackId& track) const;

    /// From now on, orders for pictures beyond the reach are answered with the nearest one within it. An unknown
    /// track is ignored.
    void SetReach(const Player::TrackId& track, const GroupReach& reach);

    /// Ends the track's read in progress, unless it is of group \p kept: its order is answered without a sample.
    /// Between packets at once; where the storage itself hangs, after a while and at the cost of opening the file
    /// anew. An unknown track is ignored.
    void Abandon(const Player::TrackId& track, std::optional<std::size_t> kept);

    /// Ends the track's read in progress at once, wherever it is: for who no longer needs the track at all.
    void GiveUp(const Player::TrackId& track);

    void SetDeliveryHook(DeliveryHook hook);
    void SetReadHook(ReadHook hook);
    /// Records the reads there; null: nowhere. To be set before the workers start.
    void SetTrace(std::shared_ptr<Trace> trace);

    PreloadResult Preload(const Player::PreloadOrder& order) override;
    /// Null (the initial state) pushes into the order's queue directly.
    void SetExistingCacheUpdateQueues(Player::ExistingCacheUpdateQueues* queues) override;

private:
    class Track;

    [[nodiscard]] std::shared_ptr<Track> Find(const Player::TrackId& track) const;
    [[nodiscard]] PreloadResult Fetch(const Player::PreloadOrder& order,
                                      std::unique_ptr<Player::ISample>& sample) const;
    void Deliver(const Player::PreloadOrder& order, std::unique_ptr<Player::ISample> sample) const;

    mutable std::shared_mutex tracksMutex_;
    std::map<Player::TrackId, std::shared_ptr<Track>> tracks_;
    Player::ExistingCacheUpdateQueues* existingQueues_ = nullptr;
    DeliveryHook deliveryHook_;
    ReadHook readHook_;
    std::shared_ptr<Trace> trace_;
};

}  // namespace Tavrin::Playout
