#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout::Program {

/// Hours, minutes, seconds and milliseconds, truncated.
[[nodiscard]] std::string FormatTime(const Time::TimePoint& time);

/// "25", or "30000/1001 (29.97)".
[[nodiscard]] std::string FormatRate(const Time::Ratio& rate);

/// "2", or "1/2".
[[nodiscard]] std::string FormatSpeed(const Time::Ratio& speed);

/// With as many decimals; for figures that were measured, never for times to count with.
[[nodiscard]] std::string FormatDecimal(double value, int decimals);

[[nodiscard]] std::string FormatMebibytes(std::uint64_t bytes);

/// "1 picture", "2 pictures".
[[nodiscard]] std::string FormatCount(std::uint64_t count, const std::string& noun);

/// "3, 7-9, 12"; with more than a few ranges the rest is counted.
[[nodiscard]] std::string FormatRanges(const std::set<std::size_t>& numbers);

/// The most memory that this process has held so far, in bytes.
[[nodiscard]] std::uint64_t PeakMemory();

}  // namespace Tavrin::Playout::Program
