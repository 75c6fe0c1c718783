#include "Time/Ratio.h"

#include <charconv>
#include <limits>
#include <numeric>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "Time/Wide.h"

namespace Tavrin::Time {

namespace {

using Wide::Int128;
using Wide::Product;
using Wide::Uint128;

struct Terms {
    std::int64_t numerator;
    std::int64_t denominator;
};

std::string Print(std::int64_t numerator, std::int64_t denominator) {
    return std::to_string(numerator) + '/' + std::to_string(denominator);
}

bool IsNarrow(Uint128 value) noexcept {
    return value <= std::numeric_limits<std::uint64_t>::max();
}

Uint128 GreatestCommonDivisor(Uint128 a, Uint128 b) noexcept {
    // Division is what this costs, and it is cheap once both fit 64 bits: mostly at once.
    while (b != 0 && !(IsNarrow(a) && IsNarrow(b))) {
        const Uint128 rest = a % b;
        a = b;
        b = rest;
    }
    return b == 0 ? a : std::gcd(static_cast<std::uint64_t>(a), static_cast<std::uint64_t>(b));
}

/// The value numerator / denominator reduced, with a positive denominator; nothing when that does not fit.
/// The denominator is not zero, and neither term is the lowest 128-bit number.
std::optional<Terms> Reduce(Int128 numerator, Int128 denominator) noexcept {
    if (denominator < 0) {
        numerator = -numerator;
        denominator = -denominator;
    }
    const auto magnitude = static_cast<Uint128>(numerator < 0 ? -numerator : numerator);
    const auto divisor =
        static_cast<Int128>(GreatestCommonDivisor(magnitude, static_cast<Uint128>(denominator)));
    if (divisor != 1) {
        numerator /= divisor;
        denominator /= divisor;
    }
    const Int128 lowest = std::numeric_limits<std::int64_t>::min();
    const Int128 highest = std::numeric_limits<std::int64_t>::max();
    if (numerator < lowest || numerator > highest || denominator > highest) {
        return std::nullopt;
    }
    return Terms{static_cast<std::int64_t>(numerator), static_cast<std::int64_t>(denominator)};
}

[[noreturn]] void ThrowOverflow(const std::string& expression) {
    throw std::overflow_error("The reduced terms of the ratio " + expression +
                              " do not fit signed 64 bits with a positive denominator");
}

/// The result of an operation on two ratios, from its terms; the operands are there for the message only.
Ratio Combine(Int128 numerator, Int128 denominator, const Ratio& left, char operation, const Ratio& right) {
    const auto terms = Reduce(numerator, denominator);
    if (!terms) {
        ThrowOverflow(left.ToString() + ' ' + operation + ' ' + right.ToString());
    }
    return {terms->numerator, terms->denominator};
}

/// The whole text as one decimal term, or nothing.
std::optional<std::int64_t> ParseTerm(std::string_view text) noexcept {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

Ratio::Ratio(std::int64_t numerator, std::int64_t denominator) {
    if (denominator == 0) {
        throw std::invalid_argument("The ratio " + Print(numerator, denominator) + " has a zero denominator");
    }
    const auto terms = Reduce(numerator, denominator);
    if (!terms) {
        ThrowOverflow(Print(numerator, denominator));
    }
    numerator_ = terms->numerator;
    denominator_ = terms->denominator;
}

Ratio::~Ratio() = default;

Ratio Ratio::Abs() const {
    return numerator_ < 0 ? -*this : *this;
}

Ratio Ratio::operator-() const {
    if (numerator_ == std::numeric_limits<std::int64_t>::min()) {
        ThrowOverflow("-(" + ToString() + ')');
    }
    return {-numerator_, denominator_};
}

Ratio Ratio::operator+(const Ratio& other) const {
    // Each product is at most 2^63 * (2^63 - 1), so that the sum of two fits.
    return Combine(Product(numerator_, other.denominator_) + Product(other.numerator_, denominator_),
                   Product(denominator_, other.denominator_), *this, '+', other);
}

Ratio Ratio::operator-(const Ratio& other) const {
    return Combine(Product(numerator_, other.denominator_) - Product(other.numerator_, denominator_),
                   Product(denominator_, other.denominator_), *this, '-', other);
}

Ratio Ratio::operator*(const Ratio& other) const {
    return Combine(Product(numerator_, other.numerator_), Product(denominator_, other.denominator_), *this,
                   '*', other);
}

Ratio Ratio::operator/(const Ratio& other) const {
    if (other.numerator_ == 0) {
        throw std::invalid_argument("The ratio " + ToString() + " cannot be divided by " + other.ToString());
    }
    return Combine(Product(numerator_, other.denominator_), Product(denominator_, other.numerator_), *this,
                   '/', other);
}

std::strong_ordering Ratio::Compare(const Ratio& other) const noexcept {
    const Int128 left = Product(numerator_, other.denominator_);
    const Int128 right = Product(other.numerator_, denominator_);
    if (left == right) {
        return std::strong_ordering::equal;
    }
    return left < right ? std::strong_ordering::less : std::strong_ordering::greater;
}

std::string Ratio::ToString() const {
    return Print(numerator_, denominator_);
}

Ratio Ratio::FromString(std::string_view text) {
    const auto slash = text.find('/');
    const auto numerator = ParseTerm(text.substr(0, slash));
    const auto denominator =
        slash == std::string_view::npos ? std::optional<std::int64_t>(1) : ParseTerm(text.substr(slash + 1));
    if (!numerator || !denominator) {
        throw std::invalid_argument(
            "\"" + std::string(text) +
            "\" is not a ratio: expected two whole numbers of 64 bits as in 30000/1001");
    }
    return {*numerator, *denominator};
}

std::ostream& operator<<(std::ostream& stream, const Ratio& ratio) {
    return stream << ratio.ToString();
}

}  // namespace Tavrin::Time
