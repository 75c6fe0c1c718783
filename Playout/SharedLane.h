#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "Playout/DecodeLane.h"
#include "Playout/DecodeMeter.h"
#include "Playout/FramePool.h"
#include "Playout/PacketGroup.h"
#include "Playout/Picture.h"
#include "Playout/PictureStore.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// A lane that several workers use, one at a time, and what others may know of it meanwhile.
///
/// *Threads:* Decode and GetInformation are thread-safe. What says who is in it (IsIn to Leave) is externally
/// synchronised; the lock that guards it may be held by who calls GetInformation, never by who calls Decode.
/// *Blocking:* Decode for as long as decoding takes, its own and that of whoever is before it; nothing else.
/// *Ownership:* owns the lane; shares store and pool. *Errors:* those of DecodeLane.
class SharedLane final {
public:
    SharedLane(const std::shared_ptr<const RecordingIndex>& index, const DecodeLaneOptions& options,
               const std::shared_ptr<PictureStore>& store, const std::shared_ptr<FramePool>& pool);

    /// As DecodeLane::Decode, once the lane is free; null if it is then out of date. Tells the meter what was done.
    [[nodiscard]] std::shared_ptr<const Picture> Decode(const PacketGroup& packets, std::size_t picture,
                                                        const DecodeManner& manner, DecodeMeter& meter,
                                                        const std::function<bool()>& isOutOfDate);

    /// As of the latest decode: whoever asks must not wait for the one in progress.
    [[nodiscard]] DecodeLane::Information GetInformation() const;

    /// Whether its decoder stands in the group, or has just gone on from it: the last pictures come with the first one
    /// of the next group.
    [[nodiscard]] bool IsIn(std::size_t group) const { return group_ == group || goneOnFrom_ == group; }
    /// Whether its decoder has taken packets of the group, to let out the pictures of the one where it stands.
    [[nodiscard]] bool GoesOnTo(std::size_t group) const;
    [[nodiscard]] bool IsInUse() const { return nbVisitors_ > 0; }
    /// The greater, the later.
    [[nodiscard]] std::uint64_t LastVisit() const { return lastVisit_; }

    /// A worker comes for a picture of the group.
    void Enter(std::size_t group, std::uint64_t visit);
    void Leave(std::size_t group);

private:
    class Measured;

    std::size_t pictureBytes_;
    std::mutex mutex_;  ///< Guards the lane, through decodes that may take long.
    DecodeLane lane_;
    mutable std::mutex publishedMutex_;
    DecodeLane::Information published_;
    std::optional<std::size_t> group_;
    std::optional<std::size_t> goneOnFrom_;
    std::size_t nbVisitors_ = 0;
    std::uint64_t lastVisit_ = 0;
};

}  // namespace Tavrin::Playout
