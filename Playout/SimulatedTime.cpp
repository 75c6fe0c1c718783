#include "Playout/SimulatedTime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <vector>

namespace Tavrin::Playout {

namespace {

/// The 99th percentile of a normal distribution, in standard deviations.
constexpr double kNormalP99 = 2.3263478740408408;

/// A tail longer than that says more about the distribution than about any storage.
constexpr double kLongestTail = 100;

std::optional<double> ParseMilliseconds(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    const bool isTime =
        error == std::errc() && stop == end && value >= 0 && value <= SimulatedTime::kMostMilliseconds;
    return isTime ? std::optional(value) : std::nullopt;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts{""};
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

[[noreturn]] void Refuse(const std::string& text) {
    throw std::invalid_argument("'" + text +
                                "' is no length of time: it must be milliseconds from 0 to 60000 (8), "
                                "uniform:LOWEST,HIGHEST, lognormal:P50,P99 or heavy:P50,P99, the second not "
                                "below the first, and these percentiles above 0");
}

}  // namespace

SimulatedRandom::SimulatedRandom(std::uint64_t seed, std::uint64_t stream)
    : state_(seed * 0x9e3779b97f4a7c15U + stream) {
    // Neighbouring seeds and streams begin alike; what they come to after a few steps has nothing in common.
    constexpr int nbSteps = 4;
    for (int step = 0; step < nbSteps; ++step) {
        state_ = Next() ^ (stream << 32U);
    }
}

/// SplitMix64: one word of state, which thousands of tracks can afford.
std::uint64_t SimulatedRandom::Next() {
    state_ += 0x9e3779b97f4a7c15U;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    return mixed ^ (mixed >> 31U);
}

double SimulatedRandom::Fraction() {
    // 52 bits and a half, so that neither 0 nor 1 can come.
    constexpr unsigned unused = 12;
    constexpr double nbValues = 4503599627370496.0;
    return (static_cast<double>(Next() >> unused) + 0.5) / nbValues;
}

SimulatedTime SimulatedTime::Parse(const std::string& text) {
    const std::size_t colon = text.find(':');
    const std::string name = colon == std::string::npos ? "" : text.substr(0, colon);
    const auto numbers = Split(colon == std::string::npos ? text : text.substr(colon + 1), ',');
    const auto first = ParseMilliseconds(numbers.front());
    const auto second = ParseMilliseconds(numbers.back());
    if (!first || !second || numbers.size() != (name.empty() ? 1U : 2U) || *second < *first) {
        Refuse(text);
    }
    SimulatedTime time;
    time.text_ = text;
    time.first_ = *first;
    time.second_ = *second;
    if (name == "uniform") {
        time.shape_ = Shape::Uniform;
    } else if ((name == "lognormal" || name == "heavy") && *first > 0) {
        time.shape_ = name == "heavy" ? Shape::Heavy : Shape::LogNormal;
    } else if (colon != std::string::npos) {
        Refuse(text);
    }
    return time;
}

double SimulatedTime::Milliseconds(SimulatedRandom& random) const {
    switch (shape_) {
        case Shape::Fixed:
            return first_;
        case Shape::Uniform:
            return first_ + (second_ - first_) * random.Fraction();
        case Shape::LogNormal: {
            const double radius = std::sqrt(-2 * std::log(random.Fraction()));
            const double normal = radius * std::cos(2 * std::numbers::pi * random.Fraction());
            return first_ * std::exp(normal * std::log(second_ / first_) / kNormalP99);
        }
        case Shape::Heavy: {
            // x = lowest * u^-slope has its median at u = 1/2 and its 99th percentile at u = 1/100.
            const double slope = std::log(second_ / first_) / std::log(50.0);
            const double drawn = first_ * std::pow(2 * random.Fraction(), -slope);
            return std::min(drawn, second_ * kLongestTail);
        }
    }
    return 0;
}

Time::TimePoint SimulatedTime::Draw(SimulatedRandom& random) const {
    constexpr double kNanosecondsPerMillisecond = 1e6;
    return Time::TimePoint().FromNanoseconds(std::llround(Milliseconds(random) * kNanosecondsPerMillisecond));
}

}  // namespace Tavrin::Playout
