#pragma once

#include <chrono>
#include <set>

#include "Logging/ILogger.h"
#include "Player/IPlayer.h"
#include "Player/IStream.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// The play head: a time point that moves at a rational speed, and stands still while a stream is not ready,
/// so that all displayed tracks stay in step.
///
///     Running --update refused for an unready stream--> Waiting
///     Waiting --update that advances------------------> Running   (the length of the wait is logged)
///
/// A jump or a change of speed leaves the wait as it is.
///
/// *Threads:* bound to one thread: the client's output thread calls everything, and the streams answer on it.
/// *Blocking:* never.
/// *Ownership:* keeps plain pointers to the attached streams; each is detached before it is destroyed. The
/// player links no stream and touches none on destruction.
/// *Errors:* none. A null stream is ignored. Arithmetic that leaves 64 bits saturates.
class TAVRIN_PLAYER_EXPORT Player : public IPlayer {
public:
    /// At the origin, at speed 1/1, waiting for unready streams.
    Player();
    ~Player() override;

    const Time::TimePoint& GetCurrentTimePoint() const override { return tp_; }
    void SetSpeed(const Time::Ratio& speed) override;
    Time::Ratio GetSpeed() const override { return speed_; }

    /// Jumps to `tp`, or to the origin when `tp` lies before it.
    void GoTo(const Time::TimePoint& tp) override;

    /// Moves the play head by `delta` times the speed, rounded to the nearest nanosecond, but never before
    /// the origin; there is no upper end. Moves nothing while an attached stream is not ready and waiting is
    /// on. The streams are asked in the order of their addresses, up to the first that is not ready.
    void Update(const Time::TimePoint& delta) override;

    /// Attaching twice and detaching a stream that is not attached are harmless.
    void AttachStream(Stream* stream) override;
    void DetachStream(Stream* stream) override;
    void DetachAllStreams();

    /// Whether `Update` stands still while a stream is not ready (the default), or asks no stream at all.
    void WaitWhenStreamIsNotReady(bool wait);

    /// True when no attached stream is both linked and showing a sample that is not empty.
    bool AllDisplayedCamerasEmpty() const;

    /// Resets the flag that `AllDisplayedCamerasEmpty` reads on every attached stream, linked or not.
    void ResetDisplayedCamerasEmptyFlag();

private:
    Stream* FirstUnreadyStream() const;
    void BeginWait(Stream& unready);
    void EndWait();

    Time::TimePoint tp_;
    Time::Ratio speed_;
    std::set<Stream*> streams_;
    bool waitStreamNotReady_ = true;
    std::chrono::steady_clock::time_point timeNotReady_;
    bool timeNotReadySet_ = false;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
