#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Playout/LatencyHistogram.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// What the output's ticks came to. Each tick counts in one of these. Looks between ticks (`Session::Tick` with
/// a zero delta) count only what they newly find: a picture that comes late counts as late at its tick, and as
/// exact once it is there.
struct PictureCounters {
    std::uint64_t nbExact = 0;     ///< A new picture: the one that belongs to the play head.
    std::uint64_t nbLate = 0;      ///< The picture was not ready.
    std::uint64_t nbRepeated = 0;  ///< The picture of the tick before, as it should be.
    std::uint64_t nbStoodIn = 0;   ///< Another picture stood in for one that was not ready.
    std::uint64_t nbMissing = 0;   ///< The picture cannot be read or decoded.
    std::uint64_t nbEmpty = 0;     ///< The recording has no picture there.
};

/// What became of the decoded pictures that were made ready, and of the orders for them.
struct FetchCounters {
    std::uint64_t nbFetched = 0;        ///< Decoded and delivered; a field counts as one.
    std::uint64_t nbEvicted = 0;        ///< Of these, no longer held.
    std::uint64_t nbEvictedUnseen = 0;  ///< Of those, never shown: fetched in vain.
    std::uint64_t nbWithdrawn = 0;      ///< Orders taken back because they no longer mattered.
    std::uint64_t nbReady = 0;          ///< Held now.
    std::uint64_t nbProtected = 0;      ///< Of these, in use, so that they cannot be dropped.
    std::uint64_t nbPending = 0;        ///< Orders now whose answer is still out.
};

/// Wall time for which the picture under the play head was not there, by what it waited for.
struct WaitCounters {
    std::chrono::nanoseconds storage{0};
    std::chrono::nanoseconds decoder{0};
};

/// Reading, by groups of pictures.
struct ReadCounters {
    std::uint64_t nbReads = 0;           ///< Groups read from the file.
    std::uint64_t nbReused = 0;          ///< Orders served by a group that had been read before.
    std::uint64_t nbFailed = 0;          ///< Reads that ended in an error.
    std::uint64_t nbAbandoned = 0;       ///< Reads given up, or not begun any more, because of a jump.
    std::uint64_t nbMissingPackets = 0;  ///< Packets that reads found not to be in the file.
    LatencyHistogram latency;            ///< Of each read of a group, however it ended.
};

/// Decoding, by orders for a picture and by packets.
struct DecodeCounters {
    std::uint64_t nbFromStore = 0;       ///< Orders whose picture had been decoded on the way to another.
    std::uint64_t nbPackets = 0;         ///< Given to the decoders.
    std::uint64_t nbPacketsLeftOut = 0;  ///< Passed over, as nobody needed their pictures.
    std::uint64_t nbPasses = 0;          ///< Times that a group was begun at its key frame.
    std::uint64_t nbAbandoned = 0;       ///< Decodes given up because of a jump.
    std::uint64_t nbErrors = 0;          ///< Reported by the decoders.
    LatencyHistogram latency;            ///< Of each order that a decoder was needed for, however it ended.
};

/// Bytes. A picture that is both ready and in the decoders' store is in memory once; it counts in both, and once
/// in all pictures.
struct ByteCounters {
    std::uint64_t read = 0;        ///< Taken from storage since the beginning.
    std::uint64_t compressed = 0;  ///< Packets in memory now.
    std::uint64_t decoded = 0;     ///< Pictures ready now.
    std::uint64_t store = 0;       ///< Pictures in the decoders' store now.
    std::uint64_t pictures = 0;    ///< All pictures in memory now, those that decoders work on included.
    std::uint64_t budget = 0;      ///< What the track may take now: packets and pictures.
};

/// What playing a track has come to since the session began.
struct TAVRIN_PLAYOUT_EXPORT TrackCounters {
    std::string file;  ///< Empty in sums.
    PictureCounters pictures;
    FetchCounters fetches;
    WaitCounters waits;
    ReadCounters reads;
    DecodeCounters decodes;
    ByteCounters bytes;

    /// Adds what another track came to; the file stays.
    TrackCounters& operator+=(const TrackCounters& other);
};

/// What a session has come to since it began: a value, to be kept and compared.
struct TAVRIN_PLAYOUT_EXPORT Counters {
    std::uint64_t nbTicks = 0;  ///< Output ticks, without the looks in between.
    std::vector<TrackCounters> tracks;

    /// The sum over the tracks.
    [[nodiscard]] TrackCounters All() const;
};

/// As a JSON object: "ticks", "all" and "tracks", a list, each with the objects "pictures", "fetches",
/// "waits", "reads", "decodes" and "bytes". docs/counters.md describes every member.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::string ToJson(const Counters& counters);

/// As text in the OpenMetrics format 1.0, for a collector. Sums over the tracks are left to the collector.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::string ToOpenMetrics(const Counters& counters);

}  // namespace Tavrin::Playout
