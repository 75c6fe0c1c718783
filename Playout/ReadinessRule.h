#pragma once

#include <optional>

#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// How long the play head waits for a track whose picture is not there.
///
/// | rule     | the play head                                                                            |
/// |----------|------------------------------------------------------------------------------------------|
/// | required | stands until the picture is there: the track never shows another time than the others     |
/// | hold     | stands for so much wall time at most; then the others go on, and the track keeps the      |
/// |          | picture it has until it has caught up                                                     |
/// | optional | never stands: the track shows a picture when it is there                                  |
///
/// A track that was given up is not waited for again before it has had its picture once, or before a jump:
/// otherwise one dead disk would slow down the whole wall for good.
///
/// *Threads:* immutable. *Errors:* HoldUpTo throws std::invalid_argument.
class TAVRIN_PLAYOUT_EXPORT ReadinessRule final {
public:
    /// Required.
    ReadinessRule() = default;

    [[nodiscard]] static ReadinessRule Required() { return {}; }
    [[nodiscard]] static ReadinessRule Optional() { return ReadinessRule(Time::TimePoint()); }

    /// Wall time, above zero: anything else is refused.
    [[nodiscard]] static ReadinessRule HoldUpTo(const Time::TimePoint& longest);

    /// The wall time after which the others go on; nothing: they never do.
    [[nodiscard]] const std::optional<Time::TimePoint>& LongestWait() const { return longestWait_; }

    friend bool operator==(const ReadinessRule&, const ReadinessRule&) = default;

private:
    explicit ReadinessRule(const Time::TimePoint& longest) : longestWait_(longest) {}

    std::optional<Time::TimePoint> longestWait_;
};

}  // namespace Tavrin::Playout
