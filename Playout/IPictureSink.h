#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Playout/DecodedSample.h"
#include "Playout/Picture.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What all tracks show at one tick of the output.
struct ShownTick {
    std::uint64_t tick = 0;  ///< Counted from 0.
    Time::TimePoint time;    ///< The play head.
    double heldSpeed = 0;    ///< The speed that is really made; see TickReport::heldSpeed.
    /// One for each track, in the order of the tracks; null where a track has nothing to show.
    std::vector<std::shared_ptr<const Picture>> pictures;
    /// The lines of each that are on show; empty: of all of them all.
    std::vector<PictureField> fields;

    [[nodiscard]] PictureField FieldOf(std::size_t track) const {
        return track < fields.size() ? fields[track] : PictureField::Frame;
    }
};

/// Where shown pictures go: a file, a folder, nowhere.
///
/// The implementer guarantees:
/// 1. Write keeps no reference to the tick after its return, other than shares of the pictures.
/// 2. After Finish, what was written is complete on disk; a second Finish does nothing.
///
/// It may assume:
/// 1. Ticks come in increasing order, always with the same number of tracks, from one thread at a time.
/// 2. Finish is called once after the last Write; a sink destroyed without it may leave a torn file behind.
///
/// *Threads:* externally synchronised. *Blocking:* on the disk. *Errors:* Write and Finish throw
/// std::runtime_error in one line that names the file and the reason.
class IPictureSink {
public:
    virtual ~IPictureSink() = default;
    virtual void Write(const ShownTick& tick) = 0;
    virtual void Finish() = 0;
};

}  // namespace Tavrin::Playout
