#pragma once

#include <cstdint>
#include <memory>

#include "Player/DecodeOrder.h"
#include "Player/SampleRate.h"
#include "Playout/DecodedSample.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// Whether interlaced recordings are shown by whole pictures or field by field.
enum class FieldOutput {
    Automatic,  ///< By fields where the display shows at least as many a second, else by pictures.
    Frames,     ///< By pictures.
    Fields      ///< By fields, also where the display does not show all of them.
};

/// The samples that a recording is shown in: its pictures, or the two fields of each, in the order that the
/// recording names. A recording that is not interlaced has pictures only.
///
///     pictures         |    0    |    1    |    the recording's rate
///     fields           | 0t | 0b | 1t | 1b |    twice that; here the top field comes first
///
/// A picture that stays on display for longer than its two fields goes on with the second one: motion never goes
/// back.
///
/// *Threads:* immutable. *Ownership:* shares the index. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT FieldOrder final {
public:
    FieldOrder(std::shared_ptr<const RecordingIndex> recording, const Player::SampleRate& displayRate,
               FieldOutput wanted);

    [[nodiscard]] bool IsByFields() const { return isByFields_; }

    /// Samples a second.
    [[nodiscard]] const Player::SampleRate& Rate() const { return rate_; }

    /// The part of its picture that the sample at a time point is.
    [[nodiscard]] PictureField FieldAt(const Time::TimePoint& tp) const;

    /// Makes it an order for the sample that begins at \p tp, whose time point it will yield.
    void Aim(Player::DecodeOrder& order, const Time::TimePoint& tp) const;

    /// The sample that is so many further on: by pictures however long they stay, by fields likewise. Outside of
    /// the recording by the grid alone.
    [[nodiscard]] std::int64_t SampleFurther(const Time::TimePoint& from, std::int64_t nb) const;

private:
    [[nodiscard]] bool IsSecond(const Time::TimePoint& tp, std::size_t picture) const;
    [[nodiscard]] std::int64_t NbFields() const { return isByFields_ ? 2 : 1; }

    std::shared_ptr<const RecordingIndex> recording_;
    bool isByFields_;
    Player::SampleRate rate_;
};

/// The rate of the samples that it is shown in, without the rest.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT Player::SampleRate FieldRate(const RecordingIndex& recording);

}  // namespace Tavrin::Playout
