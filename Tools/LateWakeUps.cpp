#include "Tools/LateWakeUps.h"

namespace Tavrin::Tools {

namespace {

thread_local LateWakeUps* outermost = nullptr;

}  // namespace

LateWakeUps::LateWakeUps() : isOutermost_(outermost == nullptr) {
    if (isOutermost_) {
        outermost = this;
    }
}

LateWakeUps::~LateWakeUps() {
    if (!isOutermost_) {
        return;
    }
    outermost = nullptr;
    for (std::size_t i = 0; i < nbLate_; ++i) {
        late_[i]->notify_one();
    }
}

void LateWakeUps::Wake(std::atomic<int>* state) {
    if (outermost != nullptr && outermost->nbLate_ < kMostLate) {
        outermost->late_[outermost->nbLate_++] = state;
    } else {
        state->notify_one();
    }
}

}  // namespace Tavrin::Tools
