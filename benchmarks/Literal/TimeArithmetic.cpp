#include "Literal/TimeArithmetic.h"

#include <limits>

namespace Tavrin::Player::Literal {

using Time::Ratio;
using Time::TimePoint;

namespace {

// Only before a typedef does __extension__ tell the compilers that the extension is meant.
__extension__ typedef __int128 Int128;            // NOLINT(modernize-use-using)
__extension__ typedef unsigned __int128 Uint128;  // NOLINT(modernize-use-using)

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

std::int64_t Saturate(Int128 value) {
    if (value > kHighest) {
        return kHighest;
    }
    return value < kLowest ? kLowest : static_cast<std::int64_t>(value);
}

/// The quotient rounded down; the divisor is above zero.
Int128 FloorQuotient(Int128 dividend, Int128 divisor) {
    const Int128 quotient = dividend / divisor;
    return quotient * divisor > dividend ? quotient - 1 : quotient;
}

}  // namespace

std::int64_t SampleNumber(const TimePoint& tp, const Ratio& rate) {
    return Saturate(
        FloorQuotient(Int128{tp.ToNanoseconds()} * rate.Numerator(), Int128{rate.Denominator()} * kSecond));
}

TimePoint StartOfSample(std::int64_t n, const Ratio& rate) {
    if (rate.Numerator() == 0) {
        return {};
    }
    const Int128 r = rate.Numerator();
    const Int128 product = Int128{n} * rate.Denominator();
    // The whole seconds first: the product of all three would not fit.
    const Int128 seconds = FloorQuotient(product, r);
    if (seconds > kHighest || seconds < kLowest) {
        return TimePoint().FromNanoseconds(Saturate(seconds));
    }
    const Int128 rest = (product - seconds * r) * kSecond;
    return TimePoint().FromNanoseconds(Saturate(seconds * kSecond + (rest + r - 1) / r));
}

TimePoint FromRatio(std::uint64_t n, std::uint64_t d, std::uint64_t r) {
    const Uint128 product = Uint128{n} * d;
    const Uint128 seconds = product / r;
    if (seconds > static_cast<Uint128>(kHighest)) {
        return TimePoint::GetHighestTimePoint();
    }
    const Uint128 rest = (product - seconds * r) * static_cast<Uint128>(kSecond);
    const Uint128 nanoseconds = seconds * static_cast<Uint128>(kSecond) + (rest + r - 1) / r;
    return TimePoint().FromNanoseconds(Saturate(static_cast<Int128>(nanoseconds)));
}

TimePoint AlignWith(const TimePoint& tp, const Ratio& rate) {
    return StartOfSample(SampleNumber(tp, rate), rate);
}

}  // namespace Tavrin::Player::Literal
