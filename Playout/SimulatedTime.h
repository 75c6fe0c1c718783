#pragma once

#include <cstdint>
#include <string>

#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// Random numbers that are the same on every machine for the same seed and stream; each track has a stream of
/// its own, so that what one of them draws does not depend on how many there are.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT SimulatedRandom final {
public:
    SimulatedRandom(std::uint64_t seed, std::uint64_t stream);

    /// Evenly distributed, above 0 and below 1.
    [[nodiscard]] double Fraction();

private:
    [[nodiscard]] std::uint64_t Next();

    std::uint64_t state_;
};

/// How long something takes, drawn anew each time.
///
/// | written as           | distribution                                                              |
/// |----------------------|---------------------------------------------------------------------------|
/// | `8`                  | always 8 ms                                                               |
/// | `uniform:2,10`       | evenly between 2 and 10 ms                                                |
/// | `lognormal:5,40`     | logarithm normally distributed, with half at most 5 ms and 99 % at most 40 |
/// | `heavy:5,40`         | the same two percentiles with a Pareto tail, cut off at 100 times the 99th |
///
/// *Threads:* immutable. *Blocking:* never.
class TAVRIN_PLAYOUT_EXPORT SimulatedTime final {
public:
    /// Always nothing.
    SimulatedTime() = default;

    /// Throws std::invalid_argument, naming the text and the rule, for what is none of the above, for times
    /// below 0 or above kMostMilliseconds, and for a second time below the first.
    [[nodiscard]] static SimulatedTime Parse(const std::string& text);

    [[nodiscard]] Time::TimePoint Draw(SimulatedRandom& random) const;

    /// As it is written.
    [[nodiscard]] const std::string& ToString() const { return text_; }

    static constexpr double kMostMilliseconds = 60'000;

private:
    enum class Shape { Fixed, Uniform, LogNormal, Heavy };

    [[nodiscard]] double Milliseconds(SimulatedRandom& random) const;

    Shape shape_ = Shape::Fixed;
    double first_ = 0;   ///< The time itself; the lowest; the median.
    double second_ = 0;  ///< The highest; the 99th percentile.
    std::string text_ = "0";
};

}  // namespace Tavrin::Playout
