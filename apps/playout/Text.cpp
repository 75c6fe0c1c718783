#include "apps/playout/Text.h"

#include <sys/resource.h>

#include <iomanip>
#include <sstream>

namespace Tavrin::Playout::Program {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr std::size_t kMostRanges = 8;
constexpr std::uint64_t kKibibyte = 1024;

double ToDouble(const Ratio& ratio) {
    return static_cast<double>(ratio.Numerator()) / static_cast<double>(ratio.Denominator());
}

}  // namespace

std::string FormatTime(const TimePoint& time) {
    // A whole number of milliseconds is printed with three decimals.
    return TimePoint().FromMilliseconds(time.Milliseconds()).ToDurationString();
}

std::string FormatRate(const Ratio& rate) {
    return rate.Denominator() == 1 ? std::to_string(rate.Numerator())
                                   : rate.ToString() + " (" + FormatDecimal(ToDouble(rate), 2) + ")";
}

std::string FormatSpeed(const Ratio& speed) {
    return speed.Denominator() == 1 ? std::to_string(speed.Numerator()) : speed.ToString();
}

std::string FormatDecimal(double value, int decimals) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(decimals) << value;
    return out.str();
}

std::string FormatMebibytes(std::uint64_t bytes) {
    return FormatDecimal(static_cast<double>(bytes) / static_cast<double>(kKibibyte * kKibibyte), 1) + " MiB";
}

std::string FormatCount(std::uint64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string FormatRanges(const std::set<std::size_t>& numbers) {
    std::ostringstream out;
    std::size_t nbRanges = 0;
    std::size_t nbNamed = 0;
    for (auto first = numbers.begin(); first != numbers.end() && nbRanges < kMostRanges; ++nbRanges) {
        auto last = first;
        auto next = first;
        while (++next != numbers.end() && *next == *last + 1) {
            last = next;
        }
        out << (nbRanges == 0 ? "" : ", ") << *first;
        if (last != first) {
            out << '-' << *last;
        }
        nbNamed += *last - *first + 1;
        first = next;
    }
    if (nbNamed < numbers.size()) {
        out << " and " << numbers.size() - nbNamed << " more";
    }
    return out.str();
}

std::uint64_t PeakMemory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::uint64_t>(usage.ru_maxrss) * kKibibyte;
}

}  // namespace Tavrin::Playout::Program
