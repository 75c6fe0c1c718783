#pragma once

#include <cstdint>

#include "Playout/CellState.h"

namespace Tavrin::Playout::Program {

/// A colour of a timeline.
struct CellColour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    friend bool operator==(const CellColour&, const CellColour&) = default;
};

/// What a timeline shows where its pictures are in that state.
[[nodiscard]] constexpr CellColour ColourOf(CellState state) {
    switch (state) {
        case CellState::Absent:
            return {64, 64, 64};
        case CellState::AskedFor:
            return {200, 160, 40};
        case CellState::Ready:
            return {60, 160, 75};
        case CellState::Protected:
            return {70, 110, 220};
        case CellState::Missing:
            return {210, 60, 50};
    }
    return {};
}

}  // namespace Tavrin::Playout::Program
