#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "Player/ISample.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What the compressed and the decoded sample have in common: time, duration and properties as text.
///
/// *Threads:* immutable but for the protection counter, which is thread-safe. *Ownership:* what the accessors
/// return lives as long as the sample.
class TAVRIN_PLAYOUT_EXPORT MediaSample : public Player::ISample {
public:
    [[nodiscard]] Time::TimePoint GetTimePoint() const final { return tp_; }
    [[nodiscard]] Time::TimePoint GetDuration() const final { return duration_; }

    [[nodiscard]] std::set<std::string> GetPropertyKeys() const final;
    /// The property's text (not terminated by a zero that counts); an unknown key gives null and size 0.
    [[nodiscard]] const std::uint8_t* GetProperty(const std::string& key, std::uint64_t& size) const final;

protected:
    using Properties = std::map<std::string, std::string>;
    MediaSample(const Time::TimePoint& tp, const Time::TimePoint& duration, Properties properties);

private:
    Time::TimePoint tp_;
    Time::TimePoint duration_;
    Properties properties_;
};

}  // namespace Tavrin::Playout
