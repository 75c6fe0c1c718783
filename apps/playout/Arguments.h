#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "Player/SampleRate.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout::Program {

/// What was asked for cannot be meant: the program ends with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An exact number from a whole number (-2), a fraction (30000/1001, -1/2) or a decimal (0.5, 29.97), in
/// digits and an optional minus sign. Throws UsageError for anything else, and for terms that leave 64 bits.
[[nodiscard]] Time::Ratio ParseRatio(const std::string& text);

/// A ratio of at most 1000 either way, in terms that leave room for the arithmetic of times.
[[nodiscard]] Time::Ratio ParseSpeed(const std::string& text);

/// A ratio above 0 and at most 1000, in pictures per second.
[[nodiscard]] Player::SampleRate ParseRate(const std::string& text);

/// A time from seconds (12, 12.5), m:ss or h:mm:ss, with up to nine decimals. Throws UsageError for anything
/// else.
[[nodiscard]] Time::TimePoint ParseTime(const std::string& text);

}  // namespace Tavrin::Playout::Program
