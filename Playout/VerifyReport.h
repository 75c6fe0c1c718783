#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What one way of playing a recording came to, beside its straight decode. The four counts add up to the
/// pictures looked at.
struct VerifyPass {
    std::string name;             ///< "forward", "backward" or "jumps".
    std::uint64_t nbSame = 0;     ///< The right picture, with the right pixels.
    std::uint64_t nbMissing = 0;  ///< Missing, and a straight decode does not put it out either.

    /// A straight decode marks the picture as damaged (or lacks it, and what was played is marked so), and
    /// what was played there differs or is missing: the decoder made it up from other neighbours. Not a
    /// difference.
    std::uint64_t nbConcealed = 0;
    std::uint64_t nbDifferent = 0;

    [[nodiscard]] std::uint64_t NbCompared() const { return nbSame + nbMissing + nbConcealed + nbDifferent; }
};

/// Where playing a recording showed something else than its straight decode.
struct VerifyDifference {
    std::string pass;
    Time::TimePoint time;     ///< The play head.
    std::size_t picture = 0;  ///< The picture that belongs there.
    std::string what;         ///< For a person to read: "picture 7 is on show instead" and the like.
};

/// What the verification of a recording came to.
struct VerifyReport {
    std::size_t nbPictures = 0;                  ///< In the recording's index.
    std::size_t nbDecoded = 0;                   ///< That a straight decode puts out.
    std::size_t nbDamaged = 0;                   ///< Of these, marked as damaged by the decoder.
    std::vector<VerifyPass> passes;              ///< Those that were begun.
    std::optional<VerifyDifference> difference;  ///< The first one; verification ends there.
    bool stopped = false;                        ///< By the caller, before its end.
};

}  // namespace Tavrin::Playout
