#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Time/TimeExport.h"

namespace Tavrin::Time {

/// An exact rational number: a play speed (1/1 forward, 0/1 a still picture, negative backward) or a rate in
/// samples per second (25/1, 30000/1001), for which no floating-point number is exact.
///
/// The value is always held reduced and with a positive denominator: Ratio(2, -4) is -1/2, and every zero is
/// 0/1. So equal values have equal terms. There are deliberately no operators that change a ratio in place
/// apart from assignment: a derived class may restrict the values it holds, as a sample rate does.
///
/// *Threads:* externally synchronised (a plain value; copies are independent).
/// *Blocking:* never.
/// *Errors:* a zero denominator, and a division by zero, throw std::invalid_argument. A result whose reduced
/// terms do not fit signed 64 bits throws std::overflow_error. Nothing is ever rounded or wrapped, and an
/// operation that throws changes nothing.
class TAVRIN_TIME_EXPORT Ratio {
public:
    /// Zero, held as 0/1.
    Ratio() noexcept = default;

    /// The value numerator / denominator, reduced.
    Ratio(std::int64_t numerator, std::int64_t denominator);

    Ratio(const Ratio&) noexcept = default;
    Ratio& operator=(const Ratio&) noexcept = default;
    virtual ~Ratio();

    /// The reduced numerator; it carries the sign.
    [[nodiscard]] std::int64_t Numerator() const noexcept { return numerator_; }

    /// The reduced denominator, always above zero.
    [[nodiscard]] std::int64_t Denominator() const noexcept { return denominator_; }

    /// The absolute value. Throws std::overflow_error for the one numerator without a positive counterpart,
    /// the lowest 64-bit number.
    [[nodiscard]] Ratio Abs() const;

    /// True only for a value strictly above zero.
    [[nodiscard]] bool Positive() const noexcept { return numerator_ > 0; }

    [[nodiscard]] Ratio operator-() const;
    [[nodiscard]] Ratio operator+(const Ratio& other) const;
    [[nodiscard]] Ratio operator-(const Ratio& other) const;
    [[nodiscard]] Ratio operator*(const Ratio& other) const;
    [[nodiscard]] Ratio operator/(const Ratio& other) const;

    /// By value, which equal terms show because both sides are reduced.
    friend bool operator==(const Ratio& left, const Ratio& right) noexcept {
        return left.numerator_ == right.numerator_ && left.denominator_ == right.denominator_;
    }

    /// By value, exact for all terms.
    friend std::strong_ordering operator<=>(const Ratio& left, const Ratio& right) noexcept {
        return left.Compare(right);
    }

    /// "numerator/denominator" in decimal, as in 30000/1001.
    [[nodiscard]] std::string ToString() const;

    /// The value of a text "numerator/denominator", or of a "numerator" alone for a whole number; reduced or
    /// not, each term decimal with an optional minus sign and nothing around it. Throws std::invalid_argument
    /// for any other text, for terms outside signed 64 bits and for a zero denominator.
    [[nodiscard]] static Ratio FromString(std::string_view text);

private:
    [[nodiscard]] std::strong_ordering Compare(const Ratio& other) const noexcept;

    std::int64_t numerator_ = 0;
    std::int64_t denominator_ = 1;
};

/// Prints ToString(), whatever number formatting the stream is set to.
TAVRIN_TIME_EXPORT std::ostream& operator<<(std::ostream& stream, const Ratio& ratio);

}  // namespace Tavrin::Time
