#include "Playout/ReachPlanner.h"

#include <algorithm>

namespace Tavrin::Playout {

namespace {

/// Decoded pictures that a machine can be taken to manage before it has shown what it can: rather too many, since what
/// is left out without need has to be decoded after all.
constexpr double kAssumedBytesPerSecond = 600e6;

constexpr double kEnough = 1.0;
constexpr double kEnoughAgain = 1.25;

/// Of what is possible, some is lost on what comes too late.
constexpr double kUsable = 0.8;

constexpr double kMost = 0.99;

}  // namespace

void ReachPlanner::Plan(double wanted, double measured) {
    const double possible = measured > 0 ? measured : kAssumedBytesPerSecond;
    leavesOut_ = wanted > 0 && possible < wanted * (leavesOut_ ? kEnoughAgain : kEnough);
    share_ = leavesOut_ ? std::min(kUsable * possible / wanted, kMost) : 1;
}

}  // namespace Tavrin::Playout
