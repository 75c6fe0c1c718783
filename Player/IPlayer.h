#pragma once

#include "Player/PlayerExport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

class Stream;

/// A play head: where it stands, how fast it moves, and the streams it drives.
///
/// *Threads:* externally synchronised: the thread that drives the player also asks it.
class TAVRIN_PLAYER_EXPORT IPlayer {
public:
    IPlayer() = default;
    IPlayer(const IPlayer&) = delete;
    IPlayer& operator=(const IPlayer&) = delete;
    virtual ~IPlayer() = default;

    /// The play head; the reference stays valid as long as the player and shows its later moves.
    virtual const Time::TimePoint& GetCurrentTimePoint() const = 0;

    /// 1/1 is normal play, a negative speed plays backwards, zero holds the picture.
    virtual void SetSpeed(const Time::Ratio& speed) = 0;
    virtual Time::Ratio GetSpeed() const = 0;

    /// Jumps to `tp`.
    virtual void GoTo(const Time::TimePoint& tp) = 0;

    /// Advances the play head by `delta`, the wall time since the last update, times the speed.
    virtual void Update(const Time::TimePoint& delta) = 0;

    /// From now on `stream` takes part; it must be detached before it is destroyed.
    virtual void AttachStream(Stream* stream) = 0;
    virtual void DetachStream(Stream* stream) = 0;
};

}  // namespace Tavrin::Player
