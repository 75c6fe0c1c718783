#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Playout/CompressedSample.h"
#include "Playout/DecodeLane.h"
#include "Playout/DecodeMeter.h"
#include "Playout/FramePool.h"
#include "Playout/GroupReach.h"
#include "Playout/LatencyHistogram.h"
#include "Playout/MediaDecoder.h"
#include "Playout/Picture.h"
#include "Playout/PictureStore.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SampleTally.h"
#include "Playout/SharedLane.h"
#include "Playout/Trace.h"

namespace Tavrin::Playout {

/// The decoders of one track: its lanes, and the store and the memory that they share.
///
/// *Threads:* thread-safe. Locks are taken in the order lane, track, then what either looks up (store, pool, what a lane
/// publishes); no client is called with one held. *Blocking:* Decode for as long as decoding takes, and on another
/// decode in the same group; nothing else beyond a short lock. *Ownership:* owns the lanes; borrows the meter, which
/// must outlive it. *Errors:* the constructor throws what DecodeLane's does; Decode throws std::runtime_error for a
/// sample of another recording, and std::bad_alloc where memory runs out.
class TrackDecoders final {
public:
    TrackDecoders(const std::shared_ptr<const RecordingIndex>& index, const MediaDecoderOptions& options,
                  DecodeMeter& meter);

    /// The picture of the sample; null where it cannot be had, and where the play head has been put elsewhere.
    [[nodiscard]] std::shared_ptr<const Picture> Decode(const CompressedSample& sample, Trace* trace);

    [[nodiscard]] const PictureStore& Store() const { return *store_; }
    void SetPlace(const PlayPlace& place);
    void SetReach(const GroupReach& reach);
    void SetPictureBytes(std::size_t bytes);
    /// As MediaDecoder::Abandon.
    void Abandon(std::optional<std::size_t> kept);

    /// As MediaDecoder::Nearest.
    [[nodiscard]] std::shared_ptr<const Picture> Nearest(std::size_t picture) const;
    [[nodiscard]] std::size_t PictureBytes() const;

    [[nodiscard]] const std::shared_ptr<SampleTally>& Tally() const { return tally_; }
    [[nodiscard]] MediaDecoder::Answers GetAnswers() const;
    /// Sums over the lanes, as of their latest decodes.
    [[nodiscard]] DecodeLane::Information GetInformation() const;

private:
    class Timing;
    class Visit;

    [[nodiscard]] bool ShowsAllForward() const;
    [[nodiscard]] std::size_t StoreBytes(std::size_t bytes) const;
    [[nodiscard]] SharedLane& Choose(std::size_t group);

    std::shared_ptr<const RecordingIndex> index_;
    DecodeMeter& meter_;
    std::size_t margin_ = 0;
    std::shared_ptr<FramePool> pool_;
    std::shared_ptr<PictureStore> store_;
    std::vector<std::unique_ptr<SharedLane>> lanes_;
    std::atomic<std::uint64_t> nbFromStore_{0};
    mutable std::mutex latencyMutex_;
    LatencyHistogram latency_;
    std::shared_ptr<SampleTally> tally_ = std::make_shared<SampleTally>();

    /// Guards what follows, and who is in the lanes.
    mutable std::mutex mutex_;
    GroupReach reach_;
    bool showsAllForward_ = false;
    std::optional<std::size_t> kept_;
    std::uint64_t nbAbandonments_ = 0;
    std::uint64_t nbVisits_ = 0;
};

}  // namespace Tavrin::Playout
