#include "apps/playout/SpeedNotice.h"

#include <algorithm>
#include <cmath>

#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

using Time::Ratio;

namespace {

constexpr double kNearly = 0.98;
constexpr std::chrono::seconds kLongEnough{1};

double ToDouble(const Ratio& ratio) {
    return static_cast<double>(ratio.Numerator()) / static_cast<double>(ratio.Denominator());
}

}  // namespace

bool IsShort(double held, const Ratio& asked) {
    return std::abs(held) < kNearly * std::abs(ToDouble(asked));
}

std::optional<std::string> SpeedNotice::Note(Clock::time_point now, const Ratio& asked,
                                             const TickReport& tick) {
    for (const TrackWait& wait : tick.waits) {
        nbHeld_[{wait.track, wait.cause}] += wait.holds ? 1 : 0;
    }
    if (!IsShort(tick.heldSpeed, asked)) {
        since_.reset();
        return std::nullopt;
    }
    since_ = since_.value_or(now);
    if (now - *since_ <= kLongEnough) {
        return std::nullopt;
    }
    const Shortfall shortfall{tick.heldSpeed, asked};
    const bool isFirst = !worst_;
    worst_ = isFirst || PartOf(shortfall) < PartOf(*worst_) ? shortfall : *worst_;
    return isFirst ? std::optional(Describe(shortfall)) : std::nullopt;
}

double SpeedNotice::PartOf(const Shortfall& shortfall) {
    return std::abs(shortfall.held / ToDouble(shortfall.asked));
}

std::string SpeedNotice::Summary() const {
    return worst_ ? Describe(*worst_) : "";
}

std::string SpeedNotice::Describe(const Shortfall& shortfall) const {
    std::string text = "speed " + FormatSpeed(shortfall.asked) + " cannot be held here, " +
                       FormatDecimal(shortfall.held, 2) + " is made";
    const auto most =
        std::max_element(nbHeld_.begin(), nbHeld_.end(),
                         [](const auto& left, const auto& right) { return left.second < right.second; });
    if (most == nbHeld_.end() || most->second == 0) {
        return text;
    }
    const auto& [track, cause] = most->first;
    return text + "; most waited for: " + (cause == WaitCause::Storage ? "storage" : "the decoder") +
           " of track " + std::to_string(track);
}

}  // namespace Tavrin::Playout::Program
