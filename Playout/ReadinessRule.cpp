#include "Playout/ReadinessRule.h"

#include <stdexcept>

namespace Tavrin::Playout {

ReadinessRule ReadinessRule::HoldUpTo(const Time::TimePoint& longest) {
    if (longest <= Time::TimePoint()) {
        throw std::invalid_argument("a track cannot be waited for up to " + longest.ToDurationString() +
                                    ": the time must be above zero (one never waited for is optional)");
    }
    return ReadinessRule(longest);
}

}  // namespace Tavrin::Playout
