#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/ISample.h"
#include "Player/Player.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Playout/GroupReach.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaPreloader.h"
#include "Playout/MediaStream.h"
#include "Playout/MemoryPlan.h"
#include "Playout/Session.h"
#include "Playout/SessionOptions.h"
#include "Playout/SessionTrack.h"
#include "Playout/StandInChoice.h"
#include "Playout/TrackFigures.h"
#include "Playout/TrackPlayer.h"
#include "Playout/ViewCounter.h"
#include "Time/Ratio.h"

namespace Tavrin::Playout {

/// One track of a session: its stream, its share of the memory, and what it shows.
///
/// *Threads:* bound to the session's thread. *Blocking:* never. *Ownership:* owns its stream, borrows preloader,
/// decoder, registry and player, which must outlive it. *Errors:* `Open` throws what MediaDecoder::AddTrack does.
class PlayedTrack final {
public:
    /// What it is played with.
    struct Means {
        MediaPreloader& preloader;
        MediaDecoder& decoder;
        Player::ExistingCacheUpdateQueues& registry;
        Player::Player& player;
        const SessionOptions& options;
        Player::SampleRate displayRate;
    };

    /// How the play head is moved.
    struct Manner {
        bool dragged = false;
        bool standsIn = false;  ///< Not all that is shown can be decoded at this speed.
    };

    PlayedTrack(const Means& means, const SessionTrack& settings, std::size_t number, const LanePlan& lanes);

    [[nodiscard]] const TrackNeeds& Needs() const { return needs_; }
    [[nodiscard]] const Player::TrackId& Id() const { return id_; }
    [[nodiscard]] MediaStream& Stream() const { return *stream_; }
    [[nodiscard]] ViewCounter& Counter() { return counter_; }
    [[nodiscard]] const ViewCounter& Counter() const { return counter_; }
    [[nodiscard]] const RecordingIndex& Recording() const { return *settings_.recording; }

    /// Its share of the memory, from now on; before `Open` too.
    void SetShare(std::size_t bytes);

    /// Opens its decoders and attaches its stream to the player.
    void Open();

    /// Bytes of the decoded pictures of its longest group.
    [[nodiscard]] std::size_t GroupBytes() const { return groupBytes_; }

    /// As far ahead and behind as the speed asks for, where decoding a group takes that long.
    void PlanWindow(std::chrono::duration<double> groupTime);

    /// That part of its pictures there is time for.
    void PlanReach(double share, bool standsIn);

    /// The bytes of decoded pictures that playing takes at the present speed.
    [[nodiscard]] double WantedBytesPerSecond() const;

    /// Of so many pictures, one is fetched.
    [[nodiscard]] std::size_t Stride() const;

    /// Looks up what is on show, and tells the decoders' store what is near.
    const TrackView& Look(const Manner& manner);

    /// Whether the next samples are there; farther than the window nothing is fetched.
    [[nodiscard]] bool HasAhead(std::size_t nb) const;

    /// The play head was put to its place from there. What is in progress for other places is ended, and what is
    /// ordered for them withdrawn, unless the picture is there and lies within the window: who goes by steps comes
    /// nearer to what was ordered.
    void Jumped(const Time::TimePoint& from, bool dragged);

    /// Ends what is in progress, wherever it leads.
    void GiveUp();

    [[nodiscard]] TrackSources Sources() const;

private:
    [[nodiscard]] bool IsNear(const Time::TimePoint& from) const;
    void AbandonOthers();
    void Use(Player::ISample* sample);
    void StandIn(const Manner& manner);
    [[nodiscard]] PlayPlace PlaceFor(const Manner& manner);
    [[nodiscard]] std::size_t PictureRoom() const { return bytes_ - needs_.packets; }
    [[nodiscard]] std::size_t NbFitting() const;

    Means means_;
    SessionTrack settings_;
    Player::TrackId id_;
    LanePlan lanes_;
    TrackNeeds needs_;
    std::size_t groupBytes_;
    std::size_t bytes_ = 0;
    StreamWindow window_;
    GroupReach reach_;
    std::unique_ptr<TrackPlayer> player_;
    std::unique_ptr<MediaStream> stream_;
    TrackView view_;
    Player::ISample* inUse_ = nullptr;  ///< The decoded sample on show, protected.
    StandInChoice standIn_;
    std::size_t restedAt_ = 0;  ///< The last picture under the play head that was not waited for.
    ViewCounter counter_{std::chrono::steady_clock::now()};
};

}  // namespace Tavrin::Playout
