#pragma once

#include <cstddef>
#include <memory>

#include "Player/IPlayer.h"
#include "Player/SampleRate.h"
#include "Playout/FieldOrder.h"
#include "Playout/RecordingIndex.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The play head as one stream sees it: where it is, which samples are fetched there, and what exists around it.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Ownership:* shares the recording, borrows the player it is linked to. What asks
/// where the play head is needs a link. *Errors:* none.
class StreamHead final {
public:
    StreamHead(std::shared_ptr<const RecordingIndex> recording, const Player::SampleRate& displayRate,
               FieldOutput fields);

    void Link(Player::IPlayer* player) { player_ = player; }
    [[nodiscard]] bool IsLinked() const { return player_ != nullptr; }
    [[nodiscard]] Player::IPlayer* Player() const { return player_; }
    void SetDisplayRate(const Player::SampleRate& rate) { displayRate_ = rate; }

    void SetBegin(const Time::TimePoint& tp) { begin_ = tp; }
    void SetEnd(const Time::TimePoint& tp) { end_ = tp; }
    [[nodiscard]] const Time::TimePoint& Begin() const { return begin_; }
    [[nodiscard]] const Time::TimePoint& End() const { return end_; }
    [[nodiscard]] const RecordingIndex& Recording() const { return *recording_; }
    [[nodiscard]] const FieldOrder& Fields() const { return fields_; }

    [[nodiscard]] const Time::TimePoint& Now() const { return player_->GetCurrentTimePoint(); }
    [[nodiscard]] Time::Ratio Speed() const { return player_->GetSpeed(); }
    [[nodiscard]] bool Stands() const { return Speed() == Time::Ratio(); }

    /// Between begin and end, and there is a picture.
    [[nodiscard]] bool Exists(const Time::TimePoint& tp) const;

    /// The rate that is fetched: that of the samples shown, halved until the display can show it.
    [[nodiscard]] Player::SampleRate FetchRate() const;

    /// The sample to fetch for the play head. After a hole, that of a coarser rate may lie in it.
    [[nodiscard]] Time::TimePoint Needed() const;

    /// The beginning of the sample fetched that is so many further on in the direction of play.
    [[nodiscard]] Time::TimePoint Further(const Time::TimePoint& from, std::int64_t nb) const;

    /// Whether the play head is beyond the sample of that rate that begins there.
    [[nodiscard]] bool HasPassed(const Time::TimePoint& tp, const Player::SampleRate& rate) const;

    /// Windows count pictures; two fields of one take the memory of one.
    [[nodiscard]] std::size_t NbOfSamples(std::size_t nbPictures) const;

private:
    std::shared_ptr<const RecordingIndex> recording_;
    FieldOrder fields_;
    Player::SampleRate displayRate_;
    Time::TimePoint begin_;
    Time::TimePoint end_;
    Player::IPlayer* player_ = nullptr;
};

}  // namespace Tavrin::Playout
