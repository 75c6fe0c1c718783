#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Counts the decoded samples of a track and the memory of their pictures, from when a sample is made to when
/// the last of its owners, in the end the cache, deletes it.
///
/// The samples report themselves: an eviction does not say what it took, and walking a cache to find out would
/// cost with its size. A picture that several samples stand for counts once.
///
/// *Threads:* thread-safe. *Blocking:* never beyond the short internal lock. *Ownership:* shared by the
/// samples it counts, so it may outlive the decoder; keeps no picture alive. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT SampleTally final {
public:
    struct Information {
        std::uint64_t nbMade = 0;        ///< Samples ever made.
        std::uint64_t nbGone = 0;        ///< Of these, no longer there.
        std::uint64_t nbGoneUnseen = 0;  ///< Of those, never shown.
        std::size_t bytes = 0;           ///< Pictures of the samples that are there.
    };

    void NoteMade(const Picture& picture);
    /// \p seen: it was on show at least once.
    void NoteGone(const Picture& picture, bool seen);

    [[nodiscard]] Information GetInformation() const;

private:
    mutable std::mutex mutex_;
    Information information_;
    std::map<const Picture*, std::size_t> nbSamples_;  ///< Of each picture; told apart, never followed.
};

}  // namespace Tavrin::Playout
