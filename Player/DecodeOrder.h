#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
#include "Player/PlayerExport.h"
#include "Player/SampleRate.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// Asks a decode worker to have one compressed sample decoded and delivered.
///
/// *Threads:* externally synchronised, as a plain value.
/// *Ownership:* owns nothing that it points at. Whoever pushes the order protects `toDecode_` once
/// (`ISample::Protect(1)`); the worker releases that protection when the sample has been decoded.
class TAVRIN_PLAYER_EXPORT DecodeOrder {
public:
    DecodeOrder() = default;
    DecodeOrder(const DecodeOrder& other) = default;
    DecodeOrder& operator=(const DecodeOrder& other) = default;
    virtual ~DecodeOrder() = default;

    /// The time point and the duration of the sample that decoding this order yields.
    ///
    /// Progressive: `orderTp_` and the duration of `toDecode_` (zero when that is null).
    /// Interlaced: the start and the length of the field of `fieldSampleRate_` that `orderTp_` falls in, or
    /// of the field after it for the bottom field; `toDecode_` is not read. With a field rate that nobody has
    /// set (zero) there are no fields: `orderTp_` and a zero duration.
    void GenerateTimePointAndDuration(Time::TimePoint& tp, Time::TimePoint& duration) const;

    ISample* toDecode_ = nullptr;        ///< The compressed sample.
    Time::TimePoint orderTp_;            ///< What the decoded sample is for.
    CacheUpdateQueue* queue_ = nullptr;  ///< Where the result is delivered.
    bool decodeTopField_ = true;         ///< Interlaced: the top field (true) or the bottom field.
    bool isInterlace_ = false;           ///< One field of interlaced material is to be produced.
    SampleRate fieldSampleRate_;         ///< Fields per second of interlaced material.
    std::int32_t width_ = 0;             ///< Picture width wanted, in pixels; 0 leaves it to the decoder.
    std::int32_t height_ = 0;            ///< Picture height wanted, in pixels; 0 leaves it to the decoder.
};

}  // namespace Tavrin::Player
