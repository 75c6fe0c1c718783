#pragma once

#include <chrono>
#include <cstdint>

#include "Soak/Breakage.h"
#include "Soak/Choices.h"
#include "Soak/Totals.h"

namespace Tavrin::Soak {

/// What a phase is run with.
struct PhaseMeans {
    Choices& choices_;
    Totals& totals_;
    Breakage breakage_ = Breakage::None;
    /// An answer that has not come by then never comes: a multiple of what the slowest storage takes, on a machine
    /// that does something else.
    std::chrono::milliseconds bound_{30'000};
};

}  // namespace Tavrin::Soak
