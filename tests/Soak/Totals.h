#pragma once

#include <cstdint>

namespace Tavrin::Soak {

/// What a run has done so far.
struct Totals {
    std::uint64_t nbPhases_ = 0;
    std::uint64_t nbTicks_ = 0;

    // The engine half: samples ordered of storage and decoders.
    std::uint64_t nbRequests_ = 0;
    std::uint64_t nbAnswers_ = 0;  ///< Filed by the client that asked.
    std::uint64_t nbGivenUp_ = 0;  ///< Out when the client that asked went.
    std::uint64_t nbSamples_ = 0;  ///< Made by storage and decoders.
    std::uint64_t nbStreams_ = 0;  ///< That came and went.

    // The playout half.
    std::uint64_t nbSessions_ = 0;
    std::uint64_t nbReads_ = 0;  ///< Groups read from files.
    std::uint64_t nbFailedReads_ = 0;
    std::uint64_t nbPictures_ = 0;   ///< Decoded and delivered.
    std::uint64_t nbWithdrawn_ = 0;  ///< Orders taken back.
};

}  // namespace Tavrin::Soak
