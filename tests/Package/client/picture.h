#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

// The outside client's own sample: it has a place in time and no content.
class Picture : public Tavrin::Player::ISample {
public:
    using TimePoint = Tavrin::Time::TimePoint;

    Picture(TimePoint tp, TimePoint duration) : tp_(tp), duration_(duration) {}
    TimePoint GetTimePoint() const override { return tp_; }
    TimePoint GetDuration() const override { return duration_; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }

private:
    TimePoint tp_;
    TimePoint duration_;
};
