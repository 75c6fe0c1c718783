#pragma once

#include <cstdint>

#include "Time/Ratio.h"
#include "Time/TimePoint.h"

/// The engine's algorithms as they are defined, written down plainly: what the benchmarks measure the engine
/// against. Nothing here is used outside of `benchmarks/`, and nothing here is made slower than plain code
/// is.
///
/// Sample numbers by the formulas, each with its own division of 128 bits, for rates not below zero.
namespace Tavrin::Player::Literal {

/// floor(t * rate), saturated; 0 at a zero rate.
std::int64_t SampleNumber(const Time::TimePoint& tp, const Time::Ratio& rate);

/// The first whole nanosecond at or after n * d / r seconds, saturated; the origin at a zero rate.
Time::TimePoint StartOfSample(std::int64_t n, const Time::Ratio& rate);

/// The same for terms that take all of 64 bits; r is not zero.
Time::TimePoint FromRatio(std::uint64_t n, std::uint64_t d, std::uint64_t r);

/// The start of the sample that `tp` falls in.
Time::TimePoint AlignWith(const Time::TimePoint& tp, const Time::Ratio& rate);

}  // namespace Tavrin::Player::Literal
