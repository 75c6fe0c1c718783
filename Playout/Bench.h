#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/SessionOptions.h"

namespace Tavrin::Playout {

/// How a bench measures.
struct BenchOptions {
    SessionOptions session;
    std::chrono::milliseconds duration{10'000};  ///< Of each case that plays or drags.
    std::size_t nbTries = 40;                    ///< Of each case that jumps, turns or steps.
    std::uint64_t seed = 1;                      ///< Of the random pictures.
};

/// What was measured, by name; a name's ending is its unit (Ms, MiB, Percent, PerSecond).
using BenchFigures = std::vector<std::pair<std::string, double>>;

/// One case: what is done, and with how many tracks.
struct BenchCase {
    std::string name;  ///< Such as "play:-1" or "jump".
    std::size_t nbTracks = 1;
};

/// Every case, in the order in which they are measured.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT const std::vector<BenchCase>& BenchCases();

/// The cases that are meant by names separated by commas: each the name of a case ("play:-1") or the part of
/// it before the colon ("play"). Throws std::invalid_argument, naming it, for one that is neither.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::vector<BenchCase> SelectBenchCases(const std::string& names);

/// Takes about as much memory as a case is going to take, and gives it back. Where a machine gets its memory from a host only
/// when it touches it, the first decoder to do so works at a fraction of its speed, which is not what a bench measures.
/// To be called in a process of its own: the process's peak would be that of the memory taken here.
///
/// *Blocking:* until all is touched. *Errors:* throws std::runtime_error when the recording cannot be opened, and
/// std::bad_alloc when there is not so much memory.
TAVRIN_PLAYOUT_EXPORT void WarmMemory(const BenchCase& what, const std::string& file,
                                      const BenchOptions& options);

/// Measures one case on a recording, which every track plays from a reader and decoders of its own. What is
/// shown is judged by the numbers in its pixels where the recording has them.
///
/// *Blocking:* for as long as the case takes. Memory, processor time and bytes read are those of the whole
/// process, so a process of its own for each case gives the clean figures. *Errors:* throws
/// std::runtime_error when the recording cannot be played, and std::invalid_argument for a case that is none
/// of BenchCases().
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT BenchFigures RunBenchCase(const BenchCase& what, const std::string& file,
                                                              const BenchOptions& options);

}  // namespace Tavrin::Playout
