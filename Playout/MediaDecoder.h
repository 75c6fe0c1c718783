#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>

#include "Player/DecodeOrder.h"
#include "Player/ISample.h"
#include "Player/ISampleDecoder.h"
#include "Player/TrackId.h"
#include "Playout/DecodeLane.h"
#include "Playout/DecodeMeter.h"
#include "Playout/FramePool.h"
#include "Playout/GroupReach.h"
#include "Playout/LatencyHistogram.h"
#include "Playout/PictureStore.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SampleTally.h"
#include "Playout/Trace.h"

namespace Tavrin::Playout {

class TrackDecoders;

/// How a track is decoded.
struct MediaDecoderOptions {
    DecodeLaneOptions lane;
    /// Bytes of decoded pictures that the track's decoders keep together, beside those asked for. The default
    /// holds two groups of 50 pictures of 1920x1080 4:2:0 at 8 bits.
    std::size_t storeBytes = std::size_t{384} << 20;
    /// Decoders for each track. Two: one goes on in its group while another
    /// worker begins the next one, and orders that two workers take near a boundary in the wrong order do not
    /// make one decoder go back and forth.
    std::size_t nbLanes = 2;
    /// Threads of each lane's decoder are in `lane`. Bytes that all pictures of the track may take together,
    /// wherever they are; no bound of its own when zero.
    std::size_t pictureBytes = 0;
};

/// Decodes compressed samples of any number of recordings, on decoders that keep their state.
///
/// A picture that some decoder of the track has put out before is answered from the track's store as long as
/// it is there. Else an order goes to the lane that stands in the sample's group, else to the one that has been idle longest.
/// The decoded sample's time point and duration are those that the order generates. The protection of the
/// compressed sample is left to the worker. The picture keeps its own size, whatever size the order wishes:
/// scaling belongs to who shows it.
///
/// *Threads:* thread-safe: Decode runs on any number of workers at once, one picture at a time for each lane;
/// tracks may be added and removed meanwhile. *Blocking:* Decode for as long as decoding takes, and on
/// another decode in the same group. *Ownership:* owns the decoders; the caller owns the returned sample.
/// *Errors:* Decode throws std::runtime_error for an order without a CompressedSample or of a track that
/// nobody added, and returns null for a picture that cannot be decoded.
class TAVRIN_PLAYOUT_EXPORT MediaDecoder final : public Player::ISampleDecoder {
public:
    /// Called on the worker's thread at the end of each Decode, with no lock held. The worker delivers the
    /// result right after: who waits on this hook may have to look into the queue once more. Must not throw.
    using DecodedHook = std::function<void(const Player::DecodeOrder& order, bool decoded)>;

    MediaDecoder();
    ~MediaDecoder() override;
    MediaDecoder(const MediaDecoder&) = delete;
    MediaDecoder& operator=(const MediaDecoder&) = delete;

    /// Opens the decoders and serves \p track from now on, in place of any earlier recording. Throws
    /// std::runtime_error when no decoder can be opened.
    void AddTrack(const Player::TrackId& track, const std::shared_ptr<const RecordingIndex>& index,
                  const MediaDecoderOptions& options = {});
    /// Decodes in progress are finished. An unknown track is ignored.
    void RemoveTrack(const Player::TrackId& track);
    /// Where the track is being played, which decides what its store keeps; an unknown track is ignored.
    void SetPlace(const Player::TrackId& track, const PlayPlace& place);
    /// How much memory its pictures may take from now on, all together.
    void SetPictureBytes(const Player::TrackId& track, std::size_t bytes);

    /// Ends the track's decodes in progress that do not lead to picture \p kept. Their orders are answered without
    /// a sample, like those of pictures that cannot be had: the caller tells the two apart by having called this.
    /// An unknown track is ignored.
    void Abandon(const Player::TrackId& track, std::optional<std::size_t> kept);

    /// How much of each group will be asked for: the last picture of it is got out of the decoder at once.
    void SetReach(const Player::TrackId& track, const GroupReach& reach);

    /// The nearest picture of the same group that some decoder of the track has put out and that is still held; with
    /// none of that group, the nearest of all. Null for an unknown track.
    [[nodiscard]] std::shared_ptr<const Picture> Nearest(const Player::TrackId& track,
                                                         std::size_t picture) const;

    /// The picture that some decoder of the track has put out last, if it is still held.
    [[nodiscard]] std::shared_ptr<const Picture> Newest(const Player::TrackId& track) const;

    /// How fast pictures are decoded, all tracks together.
    [[nodiscard]] const DecodeMeter& Meter() const { return *meter_; }

    /// Memory of the track's pictures in use now.
    [[nodiscard]] std::size_t PictureBytes(const Player::TrackId& track) const;
    /// Sums over the track's lanes as of their latest decodes, and the latest error; zeros for an unknown
    /// track. Never waits for a decode.
    [[nodiscard]] DecodeLane::Information GetInformation(const Player::TrackId& track) const;

    /// How the orders of a track were answered.
    struct Answers {
        std::uint64_t nbFromStore = 0;     ///< Orders whose picture had been decoded before.
        LatencyHistogram latency;          ///< Of all the others, failed ones included: from order to answer.
        SampleTally::Information samples;  ///< What became of the decoded samples.
    };
    /// Zeros for an unknown track. Never waits for a decode.
    [[nodiscard]] Answers GetAnswers(const Player::TrackId& track) const;

    /// To be set before the workers start.
    void SetDecodedHook(DecodedHook hook);
    /// Records the decodes there; null: nowhere. To be set before the workers start.
    void SetTrace(std::shared_ptr<Trace> trace);

    [[nodiscard]] Player::ISample* Decode(const Player::DecodeOrder& order) override;

private:
    [[nodiscard]] std::shared_ptr<TrackDecoders> Find(const Player::TrackId& track) const;
    [[nodiscard]] std::unique_ptr<Player::ISample> DecodeOne(const Player::DecodeOrder& order) const;

    /// The tracks use it as long as they live.
    std::unique_ptr<DecodeMeter> meter_;
    mutable std::shared_mutex tracksMutex_;
    std::map<Player::TrackId, std::shared_ptr<TrackDecoders>> tracks_;
    DecodedHook decodedHook_;
    std::shared_ptr<Trace> trace_;
};

}  // namespace Tavrin::Playout
