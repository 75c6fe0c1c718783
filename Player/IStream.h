#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/IPlayer.h"
#include "Player/ISample.h"
#include "Player/PlayerExport.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// What `Stream::GetCurrentSample` found.
enum class SampleStatus : std::int32_t {
    New = 0,              ///< A sample that was not handed out before.
    New_And_Decoded = 1,  ///< The same, freshly decoded.
    Same = 2,             ///< The sample of the call before.
    Empty = 3,            ///< The stream has no sample at this time point.
    NotReady = 4,         ///< The sample is still being fetched or decoded.
    Unlinked = 5          ///< No player drives the stream.
};

/// One displayed camera or track. Clients implement it; the `Player` knows its tracks only through it.
///
/// The implementer guarantees:
/// 1. `IsReady` and `IsLinked` return at once: the player asks them at every update;
/// 2. neither attaches nor detaches a stream from within these answers;
/// 3. `GetStreamParameters` returns a reference that lives as long as the stream;
/// 4. `currentSampleIsEmpty` is set whenever the current sample is empty.
///
/// The implementer may assume that the player calls, on its driving thread, only `IsReady`, `IsLinked`,
/// `GetStreamParameters` (for a message), `IsEmptyFlag` and `ResetEmptyFlag`; it links no stream: linking is
/// the client's business.
///
/// *Threads:* bound to one thread, the one that drives the player.
/// *Ownership:* the client owns the stream; it is detached from its player before it is destroyed.
class TAVRIN_PLAYER_EXPORT Stream {
public:
    /// What a stream plays and where its orders go.
    struct StreamParameters {
        std::string type_;                   ///< The kind of stream, in the client's own terms.
        bool interlace_ = false;             ///< The material is interlaced.
        SampleRate compressedSampleRate_;    ///< Rate of the samples in storage.
        SampleRate uncompressedSampleRate_;  ///< Rate of the decoded samples.
        SampleRate displayRate_;             ///< Rate at which the output shows samples.
        TrackId trackId_;
        PreloadOrderQueue* preloadQueue_ = nullptr;  ///< Not owned.
        std::size_t nbPreloading_ = 0;               ///< Compressed samples to keep preloaded.
        DecodeOrderQueue* decodeQueue_ = nullptr;    ///< Not owned.
        std::size_t nbDecoding_ = 0;                 ///< Decoded samples to keep ready.
        std::int32_t width_ = 0;                     ///< Pixels.
        std::int32_t height_ = 0;                    ///< Pixels.
        std::int32_t scale_factor_x_ = 1;
        std::int32_t scale_factor_y_ = 1;
    };

    Stream() = default;
    explicit Stream(std::int64_t id) : stream_id(id) {}
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    virtual ~Stream() = default;

    /// The first time point of the stream.
    virtual Time::TimePoint Begin() = 0;
    virtual void SetBegin(const Time::TimePoint& tp) = 0;

    /// The last time point of the stream.
    virtual Time::TimePoint End() = 0;
    virtual void SetEnd(const Time::TimePoint& tp) = 0;

    /// Whether the stream has a sample at `tp`.
    virtual bool Exists(const Time::TimePoint& tp) = 0;

    /// The time point of the sample after, or before, the one at `tp`.
    virtual Time::TimePoint Next(const Time::TimePoint& tp) = 0;
    virtual Time::TimePoint Previous(const Time::TimePoint& tp) = 0;

    /// The sample at the player's current time point. `*sample` is written only with `New`,
    /// `New_And_Decoded` and `Same`; it stays the stream's and lives until the stream's next eviction pass
    /// unless the caller protects it.
    virtual SampleStatus GetCurrentSample(ISample** sample) = 0;

    virtual void SetStreamParameters(const StreamParameters& parameters) = 0;
    virtual const StreamParameters& GetStreamParameters() = 0;

    /// Remembers, or forgets, the player that drives this stream.
    virtual void LinkPlayer(IPlayer* player) = 0;
    virtual void UnlinkPlayer() = 0;
    virtual bool IsLinked() = 0;

    /// Whether the stream can show the sample at the player's current time point. The player stands still
    /// while any attached stream answers false.
    virtual bool IsReady() = 0;

    /// The queue through which compressed, or decoded, samples reach this stream's cache.
    virtual CacheUpdateQueue* GetCacheUpdateQueue() = 0;
    virtual CacheUpdateQueue* GetUncompressedCacheUpdateQueue() = 0;

    /// How many compressed samples to keep preloaded.
    virtual void SetCompressedPreloadNumber(std::size_t nb) = 0;

    /// The number of preload orders that wait, for diagnostics.
    virtual std::int32_t DebugPreloadQueueSize() = 0;

    std::int64_t StreamId() const { return stream_id; }
    void SetStreamId(std::int64_t id) { stream_id = id; }

    /// Whether the stream may ask for samples ahead of the play head.
    void EnablePreload(bool enable) { preloading_ = enable; }

    /// Whether the current sample was empty when the stream last looked.
    bool IsEmptyFlag() const { return currentSampleIsEmpty; }
    void ResetEmptyFlag() { currentSampleIsEmpty = false; }

protected:
    std::int64_t stream_id = 0;
    bool preloading_ = true;
    bool currentSampleIsEmpty = false;
};

}  // namespace Tavrin::Player
