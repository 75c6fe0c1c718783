#pragma once

#include "Player/IPlayer.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// A player as one of its tracks sees it: in the time of the track's recording, which begins at an offset on
/// the player's timeline.
///
/// The track's stream, caches and planners live in the recording's own time, so that its samples lie on its
/// own grid whatever the offset is: nothing is rounded, since an offset is a whole number of nanoseconds.
/// Before the recording begins, the play head is negative here.
///
/// *Threads:* bound to one thread, the player's. *Ownership:* borrows the player.
class TrackPlayer final : public Player::IPlayer {
public:
    TrackPlayer(Player::IPlayer& player, const Time::TimePoint& offset) : player_(player), offset_(offset) {}

    /// Up to date as of the latest call.
    const Time::TimePoint& GetCurrentTimePoint() const override {
        return now_ = player_.GetCurrentTimePoint() - offset_;
    }
    void SetSpeed(const Time::Ratio& speed) override { player_.SetSpeed(speed); }
    Time::Ratio GetSpeed() const override { return player_.GetSpeed(); }
    void GoTo(const Time::TimePoint& tp) override { player_.GoTo(tp + offset_); }
    void Update(const Time::TimePoint& delta) override { player_.Update(delta); }
    void AttachStream(Player::Stream* stream) override { player_.AttachStream(stream); }
    void DetachStream(Player::Stream* stream) override { player_.DetachStream(stream); }

private:
    Player::IPlayer& player_;
    const Time::TimePoint offset_;
    mutable Time::TimePoint now_;  ///< What the reference that is handed out refers to.
};

}  // namespace Tavrin::Playout
