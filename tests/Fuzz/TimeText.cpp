// Texts and serialised bytes of times and ratios: whatever is read is either refused as documented, or written again
// and read as the same value.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Fuzz/Support/Require.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"
#include "Time/Wide.h"

namespace Tavrin::Fuzz {
namespace {

using Time::Ratio;
using Time::TimePoint;
using Time::Wide::Magnitude;

constexpr unsigned kBitsPerByte = 8;

template <typename Value>
std::string PrintedWithOddSettings(const Value& value) {
    std::ostringstream out;
    out << std::hex << std::showpos << std::showbase << std::setprecision(1) << value;
    return out.str();
}

/// The nanoseconds that a duration's text says, without its sign.
std::uint64_t MagnitudeOfDuration(const std::string& text) {
    constexpr std::uint64_t kMinutesPerHour = 60;
    constexpr std::uint64_t kSecondsPerMinute = 60;
    constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
    constexpr std::size_t kMostDecimals = 9;
    std::istringstream in(text.substr(text.starts_with('-') ? 1 : 0));
    std::uint64_t hours = 0;
    std::uint64_t minutes = 0;
    std::uint64_t seconds = 0;
    std::string separators(3, ' ');
    std::string decimals;
    in >> hours >> separators[0] >> minutes >> separators[1] >> seconds >> separators[2] >> decimals;
    Require(separators == "::." && decimals.size() <= kMostDecimals && decimals.size() % 3 == 0,
            "a duration is hours, minutes, seconds and decimals in groups of three", text);
    decimals.resize(kMostDecimals, '0');
    return ((hours * kMinutesPerHour + minutes) * kSecondsPerMinute + seconds) * kNanosecondsPerSecond +
           std::stoull(decimals);
}

void CheckWrittenForms(const TimePoint& tp) {
    const std::string text = tp.ToString();
    Require(TimePoint(text) == tp, "a time point is read as it was written", text);
    Require(PrintedWithOddSettings(tp) == text, "a stream's settings do not change a time point", text);
    const std::string duration = tp.ToDurationString();
    Require(MagnitudeOfDuration(duration) == Magnitude(tp.Nanoseconds()), "a duration is exact", duration);
    Require(duration.starts_with('-') == (tp < TimePoint()), "a duration has its sign", duration);
}

void CheckTimePoint(std::string_view text) {
    const TimePoint before = TimePoint::GetArbitraryTimePoint();
    TimePoint tp = before;
    try {
        tp.FromString(text);
    } catch (const std::invalid_argument&) {
        Require(tp == before, "a text that is refused leaves the time point as it was", text);
        return;
    }
    Require(tp.ToString() == text, "nothing but the text of a time point is taken for it", text);
    CheckWrittenForms(tp);
}

void CheckTerms(const Ratio& ratio, const std::string& text) {
    const auto slash = text.find('/');
    const std::int64_t numerator = std::strtoll(text.c_str(), nullptr, 10);
    const std::int64_t denominator =
        slash == std::string::npos ? 1 : std::strtoll(text.c_str() + slash + 1, nullptr, 10);
    Require(Time::Wide::Product(ratio.Numerator(), denominator) ==
                Time::Wide::Product(numerator, ratio.Denominator()),
            "a ratio has the value of its text", text);
    Require(ratio.Denominator() > 0, "a denominator is above zero", text);
    Require(std::gcd(Magnitude(ratio.Numerator()), Magnitude(ratio.Denominator())) == 1, "a ratio is reduced",
            text);
}

void CheckRatio(const std::string& text) {
    Ratio ratio;
    try {
        ratio = Ratio::FromString(text);
    } catch (const std::invalid_argument&) {
        return;
    } catch (const std::overflow_error&) {
        // Of the whole class: reduced, the terms do not fit with the sign in the numerator.
        Require(text.find("/-") != std::string::npos, "terms that fit are a ratio", text);
        return;
    }
    CheckTerms(ratio, text);
    Require(Ratio::FromString(ratio.ToString()) == ratio, "a ratio is read as it was written", text);
    Require(PrintedWithOddSettings(ratio) == ratio.ToString(), "a stream's settings do not change a ratio",
            text);
}

void CheckShortBuffer(const TimePoint& tp, std::size_t size) {
    constexpr std::uint8_t kUntouched = 0xA5;
    std::array<std::uint8_t, TimePoint::GetSerializedSize()> buffer{};
    buffer.fill(kUntouched);
    try {
        tp.Serialize(buffer.data(), size);
    } catch (const std::invalid_argument&) {
        for (const std::uint8_t byte : buffer) {
            Require(byte == kUntouched, "into a buffer that is too short nothing is written");
        }
        return;
    }
    Require(false, "a buffer that is too short is refused");
}

void CheckSerialised(const std::uint8_t* data, std::size_t size) {
    const TimePoint before = TimePoint::GetArbitraryTimePoint();
    TimePoint tp = before;
    try {
        Require(tp.Deserialize(data, size) == TimePoint::GetSerializedSize(), "eight bytes are read");
    } catch (const std::invalid_argument&) {
        Require(size < TimePoint::GetSerializedSize(), "bytes that are enough are read");
        Require(tp == before, "bytes that are refused leave the time point as it was");
        return;
    }
    std::uint64_t literal = 0;
    for (std::size_t i = 0; i < TimePoint::GetSerializedSize(); ++i) {
        literal = literal << kBitsPerByte | data[i];
    }
    Require(static_cast<std::uint64_t>(tp.Nanoseconds()) == literal, "the most significant byte is first");
    std::array<std::uint8_t, TimePoint::GetSerializedSize()> written{};
    Require(tp.Serialize(written.data(), written.size()) == written.size(), "eight bytes are written");
    Require(std::equal(written.begin(), written.end(), data), "bytes are written as they were read");
    CheckShortBuffer(tp, size % TimePoint::GetSerializedSize());
    CheckWrittenForms(tp);
}

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    Tavrin::Fuzz::CheckTimePoint(text);
    Tavrin::Fuzz::CheckRatio(text);
    Tavrin::Fuzz::CheckSerialised(data, size);
    return 0;
}
