#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Playout/FramePool.h"
#include "Playout/PacketGroup.h"
#include "Playout/Picture.h"
#include "Playout/PictureStore.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// How a lane decodes.
struct DecodeLaneOptions {
    /// Bytes of decoded pictures kept beside the one asked for, when the lane has a store of its own. The
    /// default holds a group of 50 pictures of 1920x1080 4:2:0 at 8 bits (157 MiB with the decoder's padding).
    std::size_t storeBytes = std::size_t{192} << 20;
    /// Threads of the decoder. One: the workers of several lanes are the parallelism.
    int nbThreads = 1;
};

/// How one picture is to be decoded.
struct DecodeManner {
    /// Asked between packets, once the pass has put out a picture, with the latest one; true ends the decode
    /// without an answer. What was put out until then stays in the store, and the lane goes on from there the next
    /// time.
    std::function<bool(std::size_t latest)> isStale;

    /// Nothing later of the group will be asked for in this pass: the picture is got out of the decoder at once
    /// instead of being followed by those that it waits for.
    bool last = false;

    /// The group that will be asked for next, when the pictures are shown one after the other; null otherwise. At
    /// the end of a run of pictures its first packets then let out the last ones, and the lane goes on into it:
    /// a decoder that is told of an end, and begins anew, leaves its threads idle meanwhile.
    std::shared_ptr<const PacketGroup> following;
};

/// A decoder with its state: decodes the pictures of one recording group by group, each group forward and,
/// as far as memory allows, only once, in whatever order its pictures are asked for.
///
/// - A picture still to come in the group where the decoder stands is decoded by going on from there.
/// - Any other picture restarts its group at the group's key frame.
/// - Pictures put out on the way stay in a store bounded in bytes (one picture at least). When they do not
///   all fit, the last ones up to the wanted one stay, so that in reverse a group of n pictures with room for
///   k takes n/k passes, rounded up, instead of n.
/// - Pictures on the way that the store does not want, and from which none is predicted, are left out.
/// - A picture that the decoder passes over (damage, missing packets) is remembered, and answered at once.
/// - Into the group that follows it goes on without beginning anew, where neither shares packets with the other and
///   both are whole. After the first error, and where a decoder drops pictures at a key frame, it no longer does.
///
/// What comes out of a group does not depend on what was decoded before it, save for what a decoder makes up in
/// damaged pictures.
///
/// *Threads:* externally synchronised. *Blocking:* for as long as decoding takes. *Ownership:* keeps the
/// index alive; borrows a group for the call. *Errors:* the constructor throws std::runtime_error when no
/// decoder can be opened; Decode does when memory runs out. Errors in the recording are counted, not thrown.
class TAVRIN_PLAYOUT_EXPORT DecodeLane final {
public:
    struct Information {
        std::uint64_t nbPacketsDecoded = 0;   ///< Packets given to the decoder.
        std::uint64_t nbPasses = 0;           ///< Times that a group was begun at its key frame.
        std::uint64_t nbPacketsLeftOut = 0;   ///< Packets on the way that nobody needed.
        std::uint64_t nbAbandoned = 0;        ///< Decodes that became stale.
        std::uint64_t nbGoneOn = 0;           ///< Groups that were entered without beginning anew.
        std::optional<std::size_t> goesOnTo;  ///< Group of which the decoder has taken packets ahead.
        std::uint64_t nbErrors = 0;           ///< Errors that the decoder reported.
        std::size_t nbStored = 0;             ///< Pictures in the store now.
        std::size_t storedBytes = 0;          ///< Their bytes now.
        std::size_t maxStoredBytes = 0;       ///< The most that there ever were.
        std::string lastError;
    };

    /// Shares \p store with the other lanes of the recording; null gives the lane one of its own. Takes the
    /// pictures' memory from \p pool, when there is one.
    explicit DecodeLane(std::shared_ptr<const RecordingIndex> index, const DecodeLaneOptions& options = {},
                        std::shared_ptr<PictureStore> store = nullptr,
                        std::shared_ptr<FramePool> pool = nullptr);
    ~DecodeLane();
    DecodeLane(const DecodeLane&) = delete;
    DecodeLane& operator=(const DecodeLane&) = delete;

    /// The picture, which must be of \p group and \p group of this lane's recording (std::invalid_argument);
    /// null when the decoder does not put it out, and when the decode became stale.
    [[nodiscard]] std::shared_ptr<const Picture> Decode(const PacketGroup& group, std::size_t picture,
                                                        const DecodeManner& manner = {});

    /// Drops the stored pictures and the decoder's position.
    void Reset();

    [[nodiscard]] Information GetInformation() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Tavrin::Playout
