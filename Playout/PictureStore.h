#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "Playout/FramePool.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Where a recording is being played, in pictures.
struct PlayPlace {
    static constexpr std::size_t kAnyNumber = SIZE_MAX;

    std::size_t picture = 0;  ///< Under the play head.
    bool backward = false;
    std::size_t stride = 1;           ///< Only every so many pictures are shown at this speed.
    std::size_t ahead = kAnyNumber;   ///< So many pictures in the direction of play are worth decoding,
    std::size_t behind = kAnyNumber;  ///< and so many on the other side.
};

/// The decoded pictures of one recording, by number, bounded in bytes; one picture is always held, however
/// large. All decoders of the recording fill it, and whoever asks for a picture looks here first.
///
/// With a pool, the bound holds for all memory of the recording's pictures, also for those that a decoder works
/// on and those that others hold; what others hold is kept, because dropping it would free nothing.
///
/// When the bound is reached, what is farthest from the play head goes first: what lies behind it counts as
/// three times as far, and pictures that the present speed does not show go before all that it shows. So in
/// reverse a group that does not fit keeps its last pictures, which are the next to be shown.
///
/// Without a place, the picture that is being decoded for stands for the play head, and the recording counts
/// as played backward: the pictures after that one go first, then the earliest.
///
/// *Threads:* thread-safe. *Blocking:* never beyond the short internal lock.
/// *Ownership:* shares the pictures with whoever was handed one.
class TAVRIN_PLAYOUT_EXPORT PictureStore {
public:
    explicit PictureStore(std::size_t maxBytes, std::shared_ptr<const FramePool> pool = nullptr)
        : maxBytes_(maxBytes), pool_(std::move(pool)) {}

    /// Drops what does not fit any more.
    void SetMaxBytes(std::size_t maxBytes);

    /// From now on. Drops what did not fit when others held it and who have let go of it since.
    void SetPlace(const PlayPlace& place);

    /// Null when it is not held.
    [[nodiscard]] std::shared_ptr<const Picture> Find(std::size_t number) const;

    /// The one with the nearest number, of those from \p first up to and without \p end; null when none is held.
    [[nodiscard]] std::shared_ptr<const Picture> Nearest(std::size_t number, std::size_t first,
                                                         std::size_t end) const;

    /// The one that was added last; null when it is not held any more.
    [[nodiscard]] std::shared_ptr<const Picture> Newest() const;

    /// Whether a picture that comes along on the way to another one is worth decoding. Everything is, as long as
    /// nobody has said where the play head is.
    [[nodiscard]] bool Wants(std::size_t number) const;

    /// Whether the play head has passed a picture; false as long as nobody has said where it is.
    [[nodiscard]] bool IsPassed(std::size_t number) const;

    /// Holds \p picture, on the way to the picture numbered \p wanted, unless all that is held is nearer.
    void Add(std::shared_ptr<const Picture> picture, std::size_t wanted);
    void Clear();

    /// Drops what is farthest until the pool has room for so much more, or nothing is left that may be dropped.
    void MakeRoom(std::size_t nbBytes);

    [[nodiscard]] std::size_t Size() const;
    [[nodiscard]] std::size_t Bytes() const;
    [[nodiscard]] std::size_t MaxBytesEver() const;

private:
    using Pictures = std::map<std::size_t, std::shared_ptr<const Picture>>;

    [[nodiscard]] std::uint64_t Distance(std::size_t number, std::size_t wanted) const;
    [[nodiscard]] Pictures::const_iterator Farthest(std::size_t wanted) const;
    [[nodiscard]] bool Overflows(std::size_t nbMoreBytes) const;
    [[nodiscard]] bool MayDrop(const std::shared_ptr<const Picture>& picture) const;
    void Drop(Pictures::const_iterator which);
    void Trim();

    mutable std::mutex mutex_;
    std::size_t maxBytes_;
    std::shared_ptr<const FramePool> pool_;
    std::optional<PlayPlace> place_;
    std::weak_ptr<const Picture> newest_;
    Pictures pictures_;
    std::size_t bytes_ = 0;
    std::size_t maxBytesEver_ = 0;
};

}  // namespace Tavrin::Playout
