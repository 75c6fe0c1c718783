#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <string>
#include <string_view>

#include "Time/Ratio.h"
#include "Time/TimeExport.h"

namespace Tavrin::Time {

/// A count of nanoseconds from the origin.
using kp_timepoint = std::int64_t;

/// An instant of a recording, or a duration: a signed 64-bit count of nanoseconds (about 292 years either
/// way).
///
/// Samples are numbered on the grid of a rate of r/d samples per second:
///
///     sample            -1          0          1          2
///               ---[==========[==========[==========[==========---   [ first nanosecond of a sample
///     seconds       -d/r         0         d/r       2*d/r
///
/// Sample n begins at the first whole nanosecond at or after n*d/r seconds. The sample number of a time point
/// t is floor(t * r/d), downward below the origin too. So each start lies in its own sample for every rate up
/// to 10^9 samples per second, and moving in and out of sample numbers never drifts. Every result is exact:
/// the intermediates are wide enough for all values of the operands.
///
/// At a negative rate time runs backward: everything is mirrored at the origin, so that the sample number is
/// floor(t * r/d) as ever, sample n begins at the last whole nanosecond at or before n*d/r seconds, and
/// starts still lie in their own samples. A zero rate (one that nobody has set) has the one sample 0, which
/// begins at the origin.
///
/// *Threads:* externally synchronised (a plain value; copies are independent).
/// *Blocking:* never.
/// *Errors:* a result outside 64 bits saturates at the lowest or the highest value; nothing wraps. What is
/// refused throws std::invalid_argument and leaves the object as it was.
class TAVRIN_TIME_EXPORT TimePoint {
public:
    /// The origin, zero.
    constexpr TimePoint() noexcept = default;

    /// Reads the form that ToString() writes; see FromString().
    explicit TimePoint(std::string_view text);

    /// Whole seconds plus a fraction of a second, each with its own sign: (-1, 0.25) is -0.75 s. The fraction
    /// may exceed one second; it is rounded to the nearest nanosecond, halves away from zero. Throws
    /// std::invalid_argument when it is not finite.
    TimePoint(std::int64_t seconds, double fraction);

    /// A bare number does not say its unit: use FromNanoseconds() and its siblings.
    template <std::integral Number>
    explicit TimePoint(Number) = delete;

    /// A fixed instant for tests and placeholders: 1 h 2 min 3.456789012 s. It is neither the origin nor an
    /// extreme, and no sample of the usual rates begins there.
    [[nodiscard]] static constexpr TimePoint GetArbitraryTimePoint() noexcept {
        return TimePoint().FromNanoseconds(3'723'456'789'012);
    }

    /// The highest 64-bit value, which no time point exceeds.
    [[nodiscard]] static constexpr TimePoint GetHighestTimePoint() noexcept {
        return TimePoint().FromNanoseconds(kHighest);
    }

    /// The start of sample n of the rate, n of either sign; saturates. For n and rate not below zero it
    /// equals FromRatio(n, rate.Denominator(), rate.Numerator()), except that a zero rate gives the origin.
    [[nodiscard]] static TimePoint StartOfSample(std::int64_t n, const Ratio& rate) noexcept;

    /// Sets n * d / r seconds rounded up to a whole nanosecond: the start of sample n of a rate of r/d
    /// samples per second, called as FromRatio(n, rate.Denominator(), rate.Numerator()). Throws
    /// std::invalid_argument when r is zero. Sample numbers below zero do not pass through the unsigned
    /// parameter: StartOfSample() takes them.
    TimePoint& FromRatio(std::uint64_t n, std::uint64_t d, std::uint64_t r);

    /// Sets a count of whole seconds; saturates.
    constexpr TimePoint& FromSeconds(std::int64_t count) noexcept {
        t_ = Multiply(count, kNanosecondsPerSecond);
        return *this;
    }

    /// Sets a count of whole milliseconds; saturates.
    constexpr TimePoint& FromMilliseconds(std::int64_t count) noexcept {
        t_ = Multiply(count, kNanosecondsPerMillisecond);
        return *this;
    }

    /// Sets a count of nanoseconds.
    constexpr TimePoint& FromNanoseconds(std::int64_t count) noexcept {
        t_ = count;
        return *this;
    }

    /// Reads exactly what ToString() writes. Throws std::invalid_argument for any other text (another number
    /// of decimals, a plus sign, spaces, leading zeros, a value outside 64 bits).
    TimePoint& FromString(std::string_view text);

    /// The whole value in seconds, truncated toward zero.
    [[nodiscard]] constexpr std::int64_t Seconds() const noexcept { return t_ / kNanosecondsPerSecond; }

    /// The whole value in milliseconds, truncated toward zero.
    [[nodiscard]] constexpr std::int64_t Milliseconds() const noexcept {
        return t_ / kNanosecondsPerMillisecond;
    }

    /// The whole value in nanoseconds.
    [[nodiscard]] constexpr std::int64_t Nanoseconds() const noexcept { return t_; }

    /// The same as Nanoseconds().
    [[nodiscard]] constexpr std::int64_t ToNanoseconds() const noexcept { return t_; }

    /// Signed seconds with nine decimals, exact: 1.040000000, -0.000000001.
    [[nodiscard]] std::string ToString() const;

    /// For people: hours (two digits or more), minutes and seconds, with three, six or nine decimals, as many
    /// groups of three as it takes to be exact: 00:00:01.040, -27:46:40.000, 00:00:00.000000001.
    [[nodiscard]] std::string ToDurationString() const;

    /// The number floor(t * rate) of the sample of the rate that this time point falls in; saturates. Zero at
    /// a zero rate.
    [[nodiscard]] std::int64_t SampleNumber(const Ratio& rate) const noexcept;

    /// The start of sample SampleNumber(rate): at a positive rate never later than this time point, unless it
    /// saturates at the lowest value. The origin at a zero rate.
    [[nodiscard]] TimePoint AlignWith(const Ratio& rate) const noexcept;

    /// The nearest start of a sample of the rate, halfway going to the later one; saturates. The origin at a
    /// zero rate.
    [[nodiscard]] TimePoint RoundWith(const Ratio& rate) const noexcept;

    /// The absolute value; that of the lowest value is the highest.
    [[nodiscard]] constexpr TimePoint Abs() const noexcept { return t_ < 0 ? -*this : *this; }

    [[nodiscard]] constexpr TimePoint operator-() const noexcept { return TimePoint() - *this; }

    constexpr TimePoint& operator+=(const TimePoint& duration) noexcept {
        const bool saturatesLow = duration.t_ < 0;  // kept, as the duration may be this object itself
        if (__builtin_add_overflow(t_, duration.t_, &t_)) {
            t_ = saturatesLow ? kLowest : kHighest;
        }
        return *this;
    }

    constexpr TimePoint& operator-=(const TimePoint& duration) noexcept {
        const bool saturatesHigh = duration.t_ < 0;
        if (__builtin_sub_overflow(t_, duration.t_, &t_)) {
            t_ = saturatesHigh ? kHighest : kLowest;
        }
        return *this;
    }

    constexpr TimePoint& operator*=(std::int64_t factor) noexcept {
        t_ = Multiply(t_, factor);
        return *this;
    }

    /// Truncates toward zero, as whole numbers divide. Throws std::invalid_argument for zero.
    TimePoint& operator/=(std::int64_t divisor);

    /// Scales by an exact factor, rounding to the nearest nanosecond, halves away from zero: scaling by a
    /// factor and by its negative gives opposite values, so that a play head moved forward and back by the
    /// same amount returns to the same place.
    TimePoint& operator*=(const Ratio& factor) noexcept;

    [[nodiscard]] constexpr TimePoint operator+(const TimePoint& duration) const noexcept {
        return TimePoint(*this) += duration;
    }
    [[nodiscard]] constexpr TimePoint operator-(const TimePoint& other) const noexcept {
        return TimePoint(*this) -= other;
    }
    [[nodiscard]] constexpr TimePoint operator*(std::int64_t factor) const noexcept {
        return TimePoint(*this) *= factor;
    }
    [[nodiscard]] TimePoint operator/(std::int64_t divisor) const { return TimePoint(*this) /= divisor; }
    [[nodiscard]] TimePoint operator*(const Ratio& factor) const noexcept {
        return TimePoint(*this) *= factor;
    }

    /// Times are scaled exactly or not at all: say a Ratio instead of a floating-point factor.
    template <std::floating_point Number>
    TimePoint operator*(Number) const = delete;
    template <std::floating_point Number>
    TimePoint operator/(Number) const = delete;
    template <std::floating_point Number>
    TimePoint& operator*=(Number) = delete;
    template <std::floating_point Number>
    TimePoint& operator/=(Number) = delete;

    friend constexpr bool operator==(const TimePoint&, const TimePoint&) noexcept = default;
    // clang-tidy 14 sees the comparison with literal zero that the compiler writes into it.
    // NOLINTNEXTLINE(modernize-use-nullptr)
    friend constexpr std::strong_ordering operator<=>(const TimePoint&, const TimePoint&) noexcept = default;

    /// The number of bytes of the serialised form: 8.
    [[nodiscard]] static constexpr std::size_t GetSerializedSize() noexcept { return sizeof(kp_timepoint); }

    /// Writes the value to the first GetSerializedSize() bytes of the buffer, two's complement, most
    /// significant byte first on every machine, and returns how many bytes it wrote. Throws
    /// std::invalid_argument, with nothing written, when the buffer is null or shorter.
    std::size_t Serialize(std::uint8_t* buffer, std::size_t size) const;

    /// Sets the value that Serialize() wrote at the begin of the buffer and returns how many bytes it read.
    /// Throws std::invalid_argument when the buffer is null or shorter than GetSerializedSize().
    std::size_t Deserialize(const std::uint8_t* buffer, std::size_t size);

private:
    static constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
    static constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
    static constexpr kp_timepoint kLowest = std::numeric_limits<kp_timepoint>::min();
    static constexpr kp_timepoint kHighest = std::numeric_limits<kp_timepoint>::max();

    static constexpr kp_timepoint Multiply(std::int64_t left, std::int64_t right) noexcept {
        kp_timepoint product = 0;
        if (__builtin_mul_overflow(left, right, &product)) {
            product = (left < 0) == (right < 0) ? kHighest : kLowest;
        }
        return product;
    }

    kp_timepoint t_ = 0;
};

[[nodiscard]] constexpr TimePoint operator*(std::int64_t factor, const TimePoint& duration) noexcept {
    return duration * factor;
}

/// Prints ToString(), whatever number formatting the stream is set to.
TAVRIN_TIME_EXPORT std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint);

}  // namespace Tavrin::Time
