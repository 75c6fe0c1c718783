#include "Playout/StandInChoice.h"

#include <utility>

namespace Tavrin::Playout {

namespace {

constexpr std::chrono::milliseconds kLongestStand{50};

}  // namespace

StandInChoice::PicturePointer StandInChoice::Choose(PicturePointer nearest, bool dragged,
                                                    const std::function<PicturePointer()>& newest,
                                                    Clock::time_point now) {
    if (nearest != nearest_) {
        nearest_ = nearest;
        since_ = now;
    } else if (dragged && nearest != nullptr && now - since_ > kLongestStand) {
        if (auto latest = newest()) {
            return latest;
        }
    }
    return nearest;
}

}  // namespace Tavrin::Playout
