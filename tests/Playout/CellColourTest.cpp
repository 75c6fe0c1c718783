#include "apps/playout/CellColour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace Tavrin::Playout::Program {
namespace {

constexpr CellState kStates[] = {CellState::Absent, CellState::AskedFor, CellState::Ready,
                                 CellState::Protected, CellState::Missing};

/// The least difference in one of the three parts that can be told apart beside one another.
constexpr int kPlain = 48;

TEST(CellColour, EachStateHasOneThatCanBeToldFromTheOthers) {
    for (const CellState one : kStates) {
        for (const CellState other : kStates) {
            const CellColour left = ColourOf(one);
            const CellColour right = ColourOf(other);
            const int difference =
                std::max({std::abs(left.red - right.red), std::abs(left.green - right.green),
                          std::abs(left.blue - right.blue)});
            EXPECT_EQ(difference >= kPlain, one != other)
                << static_cast<int>(one) << " beside " << static_cast<int>(other);
        }
    }
}

TEST(CellColour, IsTheOneThatIsDocumented) {
    const CellColour absent = ColourOf(CellState::Absent);
    EXPECT_TRUE(absent.red == absent.green && absent.green == absent.blue && absent.red < 128) << "dark grey";
    const CellColour askedFor = ColourOf(CellState::AskedFor);
    EXPECT_GT(std::min(askedFor.red, askedFor.green), askedFor.blue + kPlain) << "yellow";
    const CellColour ready = ColourOf(CellState::Ready);
    EXPECT_GT(ready.green, std::max(ready.red, ready.blue) + kPlain) << "green";
    const CellColour inUse = ColourOf(CellState::Protected);
    EXPECT_GT(inUse.blue, std::max(inUse.red, inUse.green) + kPlain) << "blue";
    const CellColour missing = ColourOf(CellState::Missing);
    EXPECT_GT(missing.red, std::max(missing.green, missing.blue) + kPlain) << "red";
}

}  // namespace
}  // namespace Tavrin::Playout::Program
