#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/multiprecision/cpp_int.hpp>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <string>

#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Time::Testing {

/// Integers without bounds: the arithmetic that the library's is held against. Without expression templates,
/// so that a result has the type it is declared with.
using Big =
    boost::multiprecision::number<boost::multiprecision::cpp_int_backend<>, boost::multiprecision::et_off>;

inline constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
inline constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

inline Big FloorDivide(const Big& dividend, const Big& divisor) {
    Big quotient;
    Big rest;
    boost::multiprecision::divide_qr(dividend, divisor, quotient, rest);
    return rest != 0 && (rest < 0) != (divisor < 0) ? quotient - 1 : quotient;
}

inline Big CeilDivide(const Big& dividend, const Big& divisor) {
    return -FloorDivide(-dividend, divisor);
}

inline bool FitsSixtyFourBits(const Big& value) {
    return value >= kLowest && value <= kHighest;
}

inline Big Clamped(const Big& value) {
    if (value < kLowest) {
        return kLowest;
    }
    return value > kHighest ? Big(kHighest) : value;
}

inline TimePoint Ns(std::int64_t count) {
    return TimePoint().FromNanoseconds(count);
}

/// Random cases from a fixed seed, or from the one in the environment variable TAVRIN_TEST_SEED; the seed is
/// printed, so that a failure can be run again.
class PropertyTest : public ::testing::Test {
protected:
    PropertyTest() {
        const char* const chosen = std::getenv("TAVRIN_TEST_SEED");
        const std::uint64_t seed = chosen != nullptr ? std::stoull(chosen) : 20'240'229;
        std::cout << "TAVRIN_TEST_SEED=" << seed << std::endl;
        random_.seed(seed);
    }

    std::int64_t Between(std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
    }

    /// Uniform in the number of bits, so that small and huge magnitudes are equally likely; 1 or more.
    std::int64_t Magnitude(std::int64_t highest = kHighest) {
        const int bits = static_cast<int>(Between(1, 63));
        const std::int64_t top = bits == 63 ? kHighest : (std::int64_t{1} << bits) - 1;
        return Between(1, std::min(top, highest));
    }

    /// Any 64-bit number: of all magnitudes and both signs, and often an extreme or beside one.
    std::int64_t Any() {
        switch (Between(0, 9)) {
            case 0:
                return kHighest - Between(0, 2);
            case 1:
                return kLowest + Between(0, 2);
            case 2:
                return Between(-2, 2);
            default:
                return Between(0, 1) == 0 ? Magnitude() : -Magnitude();
        }
    }

    std::mt19937_64 random_;
};

}  // namespace Tavrin::Time::Testing
