#pragma once

#include <cstdint>

#include "Player/SampleRate.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// Short spellings of time points for tables of expectations.
inline Time::TimePoint Ns(std::int64_t nanoseconds) {
    return Time::TimePoint().FromNanoseconds(nanoseconds);
}
inline Time::TimePoint Ms(std::int64_t milliseconds) {
    return Time::TimePoint().FromMilliseconds(milliseconds);
}
inline Time::TimePoint Sec(std::int64_t seconds) {
    return Time::TimePoint().FromSeconds(seconds);
}

/// The start of sample `number`, which is not below zero, of `rate`.
inline Time::TimePoint StartOf(std::int64_t number, const SampleRate& rate) {
    return Time::TimePoint().FromRatio(static_cast<std::uint64_t>(number),
                                       static_cast<std::uint64_t>(rate.Denominator()),
                                       static_cast<std::uint64_t>(rate.Numerator()));
}

}  // namespace Tavrin::Player::Testing
