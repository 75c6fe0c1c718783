#include "apps/playout/Arguments.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace Tavrin::Playout::Program {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr std::int64_t kHighestSpeed = 1000;
constexpr std::int64_t kHighestRate = 1000;

/// Finer ones add nothing that could be seen, but their products with rates would leave 64 bits.
constexpr std::int64_t kHighestDenominator = 1'000'000;

constexpr std::size_t kMostDecimals = 9;
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::size_t kMostParts = 3;

/// A number of decimal digits alone; nothing when it is anything else or leaves 64 bits.
std::optional<std::int64_t> ParseDigits(std::string_view text) {
    std::int64_t value = 0;
    const bool isDigits =
        !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!isDigits || std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) {
        return std::nullopt;
    }
    return value;
}

std::int64_t PowerOfTen(std::size_t exponent) {
    std::int64_t power = 1;
    for (std::size_t i = 0; i < exponent; ++i) {
        power *= 10;
    }
    return power;
}

/// "12", or "12.5" with up to nine decimals.
std::optional<Ratio> ParseDecimal(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto whole = ParseDigits(text.substr(0, point));
    if (!whole || point == std::string_view::npos) {
        return whole ? std::optional(Ratio(*whole, 1)) : std::nullopt;
    }
    const std::string_view decimals = text.substr(point + 1);
    const auto fraction = ParseDigits(decimals);
    if (!fraction || decimals.size() > kMostDecimals) {
        return std::nullopt;
    }
    return Ratio(*whole, 1) + Ratio(*fraction, PowerOfTen(decimals.size()));
}

std::optional<Ratio> ParsePositive(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        return ParseDecimal(text);
    }
    const auto numerator = ParseDigits(text.substr(0, slash));
    const auto denominator = ParseDigits(text.substr(slash + 1));
    if (!numerator || !denominator || *denominator == 0) {
        return std::nullopt;
    }
    return Ratio(*numerator, *denominator);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string_view::npos;
         end = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/// Hours and minutes, then seconds with decimals; each of those below another is less than 60.
std::optional<Ratio> ParseSeconds(std::string_view text) {
    const auto parts = Split(text, ':');
    if (parts.size() > kMostParts) {
        return std::nullopt;
    }
    Ratio seconds;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto part = i + 1 == parts.size()
                              ? ParseDecimal(parts[i])
                              : ParsePositive(ParseDigits(parts[i]) ? parts[i] : std::string_view());
        if (!part || (i > 0 && *part >= Ratio(kSecondsPerMinute, 1))) {
            return std::nullopt;
        }
        seconds = seconds * Ratio(kSecondsPerMinute, 1) + *part;
    }
    return seconds;
}

void RefuseBeyond(const Ratio& value, std::int64_t highest, const std::string& text) {
    if (value > Ratio(highest, 1) || value < Ratio(-highest, 1)) {
        throw UsageError("'" + text + "' is more than " + std::to_string(highest));
    }
    if (value.Denominator() > kHighestDenominator) {
        throw UsageError("'" + text + "' is too finely divided: the denominator may be " +
                         std::to_string(kHighestDenominator) + " at most");
    }
}

}  // namespace

Ratio ParseRatio(const std::string& text) try {
    const bool isNegative = !text.empty() && text.front() == '-';
    const auto value = ParsePositive(std::string_view(text).substr(isNegative ? 1 : 0));
    if (!value) {
        throw UsageError("'" + text + "' is no number such as 2, -1, 1/2, 0.5 or 30000/1001");
    }
    return isNegative ? -*value : *value;
} catch (const std::overflow_error&) {
    throw UsageError("'" + text + "' is too large a number");
}

Ratio ParseSpeed(const std::string& text) {
    const Ratio speed = ParseRatio(text);
    RefuseBeyond(speed, kHighestSpeed, text);
    return speed;
}

Player::SampleRate ParseRate(const std::string& text) {
    const Ratio rate = ParseRatio(text);
    RefuseBeyond(rate, kHighestRate, text);
    if (!rate.Positive()) {
        throw UsageError("'" + text + "' is no rate: it must be above 0");
    }
    return rate;
}

TimePoint ParseTime(const std::string& text) try {
    const auto seconds = ParseSeconds(text);
    if (!seconds) {
        throw UsageError("'" + text + "' is no time such as 12, 12.5, 1:02.250 or 0:01:02.250");
    }
    // Nine decimals at most: the denominator divides a second's nanoseconds.
    return TimePoint().FromNanoseconds(
        (*seconds * Ratio(TimePoint().FromSeconds(1).Nanoseconds(), 1)).Numerator());
} catch (const std::overflow_error&) {
    throw UsageError("'" + text + "' is too large a time");
}

}  // namespace Tavrin::Playout::Program
