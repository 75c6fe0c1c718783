#include "Time/TimePoint.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>

#include "Time/Wide.h"

namespace Tavrin::Time {

namespace {

using Wide::Int128;
using Wide::Magnitude;
using Wide::Saturate;
using Wide::Uint128;

constexpr std::uint64_t kSecond = 1'000'000'000;

enum class Rounding { Down, Up };

/// Sets `t` to n * d / r seconds, rounded up to whole nanoseconds and saturated, and returns true; or returns
/// false when the product does not fit 64 bits. Most that are asked for do, being within the days that usual
/// rates play, and the one division costs less there than where any number fits.
bool StartWithin64Bits(std::uint64_t n, std::uint64_t d, std::uint64_t r, kp_timepoint& t) noexcept {
    std::uint64_t scaled = 0;
    if (!Wide::Multiply(n, d, scaled) || !Wide::Multiply(scaled, kSecond, scaled)) {
        return false;
    }
    constexpr std::uint64_t highest = std::numeric_limits<kp_timepoint>::max();
    t = static_cast<kp_timepoint>(std::min(scaled / r + (scaled % r != 0 ? 1U : 0U), highest));
    return true;
}

/// n * d / r seconds in whole nanoseconds, r above zero. Values from 2^64 seconds on, far outside every time
/// point, are all given as 2^64 seconds.
///
/// n * d takes all of 128 bits, so the whole seconds are divided out before the remainder is scaled to
/// nanoseconds.
Uint128 NanosecondsAt(std::uint64_t n, std::uint64_t d, std::uint64_t r, Rounding rounding) noexcept {
    constexpr Uint128 farAway = Uint128{1} << 64U;
    const Uint128 product = Uint128{n} * d;
    const Uint128 seconds = product / r;
    if (seconds >= farAway) {
        return farAway * kSecond;
    }
    const Uint128 scaled = product % r * kSecond;
    const bool up = rounding == Rounding::Up && scaled % r != 0;
    return seconds * kSecond + scaled / r + (up ? 1U : 0U);
}

/// The start of sample n of a rate other than zero, in nanoseconds and not saturated to a time point.
Int128 StartInNanoseconds(std::int64_t n, const Ratio& rate) noexcept {
    // Upward is toward the origin below it; a negative rate mirrors both the value and the rounding.
    const auto rounding = n < 0 ? Rounding::Down : Rounding::Up;
    const auto start = static_cast<Int128>(
        NanosecondsAt(Magnitude(n), Magnitude(rate.Denominator()), Magnitude(rate.Numerator()), rounding));
    return (n < 0) == (rate.Numerator() < 0) ? start : -start;
}

std::string Sign(kp_timepoint value) {
    return value < 0 ? "-" : "";
}

std::string Padded(std::uint64_t value, std::size_t digits) {
    const std::string text = std::to_string(value);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

void CheckBuffer(const std::uint8_t* buffer, std::size_t size, const char* action) {
    if (buffer == nullptr) {
        throw std::invalid_argument(std::string("Cannot ") + action + " a time point: the buffer is null");
    }
    if (size < TimePoint::GetSerializedSize()) {
        throw std::invalid_argument(std::string("Cannot ") + action + " a time point: the buffer has " +
                                    std::to_string(size) + " bytes, it needs " +
                                    std::to_string(TimePoint::GetSerializedSize()));
    }
}

/// Reads digits with one point among them as if the point were not there. Anything else reads as some number,
/// too: the caller compares with the only text of that number.
TimePoint ReadDigits(std::string_view text) {
    constexpr std::size_t longest = sizeof("-9223372036.854775808") - 1;
    Int128 value = 0;
    for (const char c : text.substr(0, longest)) {
        if (c >= '0' && c <= '9') {
            value = value * 10 + (c - '0');
        }
    }
    return TimePoint().FromNanoseconds(Saturate(text.starts_with('-') ? -value : value));
}

}  // namespace

TimePoint::TimePoint(std::string_view text) {
    FromString(text);
}

TimePoint::TimePoint(std::int64_t seconds, double fraction) {
    if (!std::isfinite(fraction)) {
        throw std::invalid_argument("The fraction of a second " + std::to_string(fraction) +
                                    " is not finite");
    }
    // Beyond the limit the sum saturates whatever the whole seconds are; within it all of this is exact but
    // for the one rounding to nanoseconds.
    constexpr double limit = 1e20;
    const double bounded = std::clamp(fraction, -limit, limit);
    const double whole = std::trunc(bounded);
    const Int128 sum = static_cast<Int128>(seconds) + static_cast<Int128>(whole);
    t_ = Saturate(sum * kNanosecondsPerSecond + std::llround((bounded - whole) * 1e9));
}

TimePoint TimePoint::StartOfSample(std::int64_t n, const Ratio& rate) noexcept {
    if (rate.Numerator() == 0) {
        return {};
    }
    TimePoint start;
    if (n >= 0 && rate.Numerator() > 0 &&
        StartWithin64Bits(Magnitude(n), Magnitude(rate.Denominator()), Magnitude(rate.Numerator()),
                          start.t_)) {
        return start;
    }
    return start.FromNanoseconds(Saturate(StartInNanoseconds(n, rate)));
}

TimePoint& TimePoint::FromRatio(std::uint64_t n, std::uint64_t d, std::uint64_t r) {
    if (r == 0) {
        throw std::invalid_argument("Sample " + std::to_string(n) + " of the rate " + std::to_string(r) +
                                    '/' + std::to_string(d) + " has no start: the rate must not be zero");
    }
    if (!StartWithin64Bits(n, d, r, t_)) {
        t_ = Saturate(false, NanosecondsAt(n, d, r, Rounding::Up));
    }
    return *this;
}

TimePoint& TimePoint::FromString(std::string_view text) {
    const TimePoint read = ReadDigits(text);
    if (read.ToString() != text) {
        throw std::invalid_argument("\"" + std::string(text) +
                                    "\" is not a time point: expected seconds with nine decimals as in "
                                    "1.040000000 that fit 64 bits of nanoseconds");
    }
    return *this = read;
}

std::string TimePoint::ToString() const {
    const std::uint64_t magnitude = Magnitude(t_);
    return Sign(t_) + std::to_string(magnitude / kSecond) + '.' + Padded(magnitude % kSecond, 9);
}

std::string TimePoint::ToDurationString() const {
    const std::uint64_t magnitude = Magnitude(t_);
    const std::uint64_t seconds = magnitude / kSecond;
    std::string decimals = Padded(magnitude % kSecond, 9);
    while (decimals.size() > 3 && decimals.ends_with("000")) {
        decimals.resize(decimals.size() - 3);
    }
    return Sign(t_) + Padded(seconds / 3600, 2) + ':' + Padded(seconds / 60 % 60, 2) + ':' +
           Padded(seconds % 60, 2) + '.' + decimals;
}

std::int64_t TimePoint::SampleNumber(const Ratio& rate) const noexcept {
    if (t_ >= 0 && rate.Numerator() >= 0) {
        // Both products fit 64 bits for the days that usual rates play: the same division, cheaper.
        std::uint64_t scaled = 0;
        std::uint64_t unit = 0;
        if (Wide::Multiply(Magnitude(t_), Magnitude(rate.Numerator()), scaled) &&
            Wide::Multiply(Magnitude(rate.Denominator()), kSecond, unit)) {
            return static_cast<std::int64_t>(scaled / unit);
        }
    }
    // At most 2^63 * 2^63 over 2^63 * 10^9: both fit.
    const Uint128 scaled = Uint128{Magnitude(t_)} * Magnitude(rate.Numerator());
    const Uint128 unit = Uint128{Magnitude(rate.Denominator())} * kSecond;
    const bool negative = (t_ < 0) != (rate.Numerator() < 0);
    const bool downward = negative && scaled % unit != 0;
    return Saturate(negative, scaled / unit + (downward ? 1U : 0U));
}

TimePoint TimePoint::AlignWith(const Ratio& rate) const noexcept {
    return StartOfSample(SampleNumber(rate), rate);
}

TimePoint TimePoint::RoundWith(const Ratio& rate) const noexcept {
    if (rate.Numerator() == 0) {
        return {};
    }
    const std::int64_t n = SampleNumber(rate);
    const std::int64_t next = n == std::numeric_limits<std::int64_t>::max() ? n : n + 1;
    // Compared before they saturate: a start outside 64 bits is as far away as it is.
    const auto [earlier, later] = std::minmax({StartInNanoseconds(n, rate), StartInNanoseconds(next, rate)});
    return TimePoint().FromNanoseconds(Saturate(later - t_ <= t_ - earlier ? later : earlier));
}

TimePoint& TimePoint::operator/=(std::int64_t divisor) {
    if (divisor == 0) {
        throw std::invalid_argument("The time point " + ToString() + " cannot be divided by zero");
    }
    // The lowest value has no 64-bit opposite.
    t_ = divisor == -1 ? Saturate(-static_cast<Int128>(t_)) : t_ / divisor;
    return *this;
}

TimePoint& TimePoint::operator*=(const Ratio& factor) noexcept {
    const auto denominator = static_cast<std::uint64_t>(factor.Denominator());
    const Uint128 product = Uint128{Magnitude(t_)} * Magnitude(factor.Numerator());
    const Uint128 rest = product % denominator;
    const bool away = rest >= denominator - rest;
    t_ = Saturate((t_ < 0) != (factor.Numerator() < 0), product / denominator + (away ? 1U : 0U));
    return *this;
}

std::size_t TimePoint::Serialize(std::uint8_t* buffer, std::size_t size) const {
    CheckBuffer(buffer, size, "serialize");
    auto bits = static_cast<std::uint64_t>(t_);
    for (std::size_t i = GetSerializedSize(); i-- > 0; bits >>= 8U) {
        buffer[i] = static_cast<std::uint8_t>(bits & 0xFFU);
    }
    return GetSerializedSize();
}

std::size_t TimePoint::Deserialize(const std::uint8_t* buffer, std::size_t size) {
    CheckBuffer(buffer, size, "deserialize");
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < GetSerializedSize(); ++i) {
        bits = bits << 8U | buffer[i];
    }
    t_ = static_cast<kp_timepoint>(bits);
    return GetSerializedSize();
}

std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint) {
    return stream << timePoint.ToString();
}

}  // namespace Tavrin::Time
