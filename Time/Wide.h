#pragma once

#include <cstdint>
#include <limits>

/// 128-bit intermediates for the exact arithmetic of this library; not installed.
namespace Tavrin::Time::Wide {

// Only before a typedef does __extension__ tell the compilers that the extension is meant.
__extension__ typedef __int128 Int128;            // NOLINT(modernize-use-using)
__extension__ typedef unsigned __int128 Uint128;  // NOLINT(modernize-use-using)

/// |value|, which for the lowest 64-bit number only an unsigned type holds.
constexpr std::uint64_t Magnitude(std::int64_t value) noexcept {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

/// The exact product. It is taken unsigned, where overflow checks of sanitizers do not look, because some
/// compilers check a signed 128-bit product with a function that their default runtime does not have.
constexpr Int128 Product(std::int64_t left, std::int64_t right) noexcept {
    const auto wideLeft = static_cast<Uint128>(static_cast<Int128>(left));
    const auto wideRight = static_cast<Uint128>(static_cast<Int128>(right));
    return static_cast<Int128>(wideLeft * wideRight);
}

/// Sets `result` to the product and returns true, or returns false when it does not fit.
constexpr bool Multiply(std::uint64_t left, std::uint64_t right, std::uint64_t& result) noexcept {
    return !__builtin_mul_overflow(left, right, &result);
}

/// The nearest 64-bit value.
constexpr std::int64_t Saturate(Int128 value) noexcept {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    if (value < lowest) {
        return lowest;
    }
    return value > highest ? highest : static_cast<std::int64_t>(value);
}

/// The nearest 64-bit value to the number of the given sign and magnitude; the magnitude is below 2^127.
constexpr std::int64_t Saturate(bool negative, Uint128 magnitude) noexcept {
    const auto value = static_cast<Int128>(magnitude);
    return Saturate(negative ? -value : value);
}

}  // namespace Tavrin::Time::Wide
