#pragma once

#include "Player/IPlayer.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// A play head that stands wherever the test puts it, also where a real one would not.
///
/// *Threads:* bound to one thread.
class StubPlayer final : public IPlayer {
public:
    StubPlayer() = default;
    StubPlayer(const Time::TimePoint& tp, const Time::Ratio& speed) : tp_(tp), speed_(speed) {}

    const Time::TimePoint& GetCurrentTimePoint() const override { return tp_; }
    void SetSpeed(const Time::Ratio& speed) override { speed_ = speed; }
    Time::Ratio GetSpeed() const override { return speed_; }
    void GoTo(const Time::TimePoint& tp) override { tp_ = tp; }
    void Update(const Time::TimePoint& delta) override { tp_ += delta * speed_; }
    void AttachStream(Stream*) override {}
    void DetachStream(Stream*) override {}

private:
    Time::TimePoint tp_;
    Time::Ratio speed_;
};

}  // namespace Tavrin::Player::Testing
