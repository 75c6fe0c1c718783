#include "Playout/RunJudge.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace {

std::chrono::nanoseconds PeriodOf(const SampleRate& display) {
    if (!display.Positive()) {
        throw std::invalid_argument("RunJudge: a display rate of zero has no ticks");
    }
    return std::chrono::nanoseconds(TimePoint::StartOfSample(1, display).Nanoseconds());
}

TimePoint WithoutSign(const TimePoint& time) {
    return time < TimePoint() ? TimePoint() - time : time;
}

}  // namespace

RunJudge::RunJudge(std::vector<NumberedRecording> recordings, const SampleRate& display, const Ratio& speed,
                   const std::vector<TimePoint>& offsets)
    : display_(display), period_(PeriodOf(display)) {
    if (!offsets.empty() && offsets.size() != recordings.size()) {
        throw std::invalid_argument("RunJudge: " + std::to_string(offsets.size()) + " offsets for " +
                                    std::to_string(recordings.size()) + " recordings");
    }
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        const TimePoint offset = offsets.empty() ? TimePoint() : offsets[i];
        tracks_.push_back({std::move(recordings[i]), offset, {}, nullptr, {}, {}, 0});
    }
    Begin(speed);
}

void RunJudge::Begin(const Ratio& speed) {
    speed_ = speed;
    first_.reset();
    together_.reset();
    for (Track& track : tracks_) {
        const SampleRate& rate = track.recording.Index()->Rate();
        track.fetched =
            SampleRate::StreamPreloadRate(rate, SampleRate::TimeSamplingRate(rate, speed, display_));
        track.shown = nullptr;
    }
}

/// Where the play head would be now, had it never waited.
TimePoint RunJudge::DueHead(Clock::time_point now) const {
    // Ticks are noted a moment after they begin, the first one too: a quarter of a tick covers what that
    // moment varies by.
    const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(now - first_->when) + period_ / 4;
    const std::int64_t tick = TimePoint().FromNanoseconds(since.count()).SampleNumber(display_);
    return first_->head + TimePoint::StartOfSample(tick, display_) * speed_;
}

bool RunJudge::Belongs(const Track& track, const TimePoint& head) {
    const TimePoint at = head - track.offset;
    const NumberedRecording& recording = track.recording;
    const auto exact = recording.Index()->PictureAtTime(at);
    if (!exact || track.shown == nullptr) {
        return !exact && track.shown == nullptr;
    }
    if (!track.number || recording.Distance(*track.number, *exact) == 0) {
        return track.number.has_value();
    }
    const auto fetched = recording.Index()->PictureAtTime(at.AlignWith(track.fetched));
    return fetched && recording.Distance(*track.number, *fetched) == 0;
}

bool RunJudge::IsNear(const Track& track, const TimePoint& head) {
    const TimePoint at = head - track.offset;
    const auto exact = track.recording.Index()->PictureAtTime(at);
    if (!exact || track.shown == nullptr) {
        return !exact && track.shown == nullptr;
    }
    return track.number && std::abs(track.recording.Distance(*track.number, *exact)) <= kNearPictures;
}

bool RunJudge::Note(const TimePoint& head, const std::vector<std::shared_ptr<const Picture>>& pictures,
                    Clock::time_point now) {
    const bool wasFirst = IsFirst();
    if (wasFirst) {
        first_ = First{head, now};
    }
    const TimePoint due = DueHead(now);
    bool right = true;
    bool rightByClock = true;
    bool near = true;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        right = NoteTrack(tracks_[i], pictures[i], head, now) && right;
        rightByClock = rightByClock && Belongs(tracks_[i], due);
        near = near && IsNear(tracks_[i], due);
    }
    ++figures_.nbTicks;
    figures_.nbRight += right ? 1 : 0;
    figures_.nbRightByClock += rightByClock ? 1 : 0;
    figures_.nbNear += near ? 1 : 0;
    figures_.nbTogether += IsTogether(head) ? 1 : 0;
    if (!wasFirst) {
        NoteProgress(head, due, now);
    }
    head_ = head;
    last_ = now;
    return right;
}

bool RunJudge::AllBelong(const TimePoint& head) const {
    return std::all_of(tracks_.begin(), tracks_.end(),
                       [&head](const Track& track) { return Belongs(track, head); });
}

bool RunJudge::IsTogether(const TimePoint& head) {
    if (AllBelong(head)) {
        together_ = head;
        return true;
    }
    return together_ && AllBelong(*together_);
}

bool RunJudge::NoteTrack(Track& track, const std::shared_ptr<const Picture>& picture, const TimePoint& head,
                         Clock::time_point now) {
    const bool isFirst = track.shown == nullptr;
    const auto number = picture == track.shown ? track.number
                        : picture == nullptr   ? std::nullopt
                                               : track.recording.NumberOf(*picture);
    const bool isNew = picture != track.shown && (isFirst || picture == nullptr || number != track.number);
    const bool isHeld = !isFirst && !isNew && head == head_ && speed_ != Ratio();
    figures_.nbUnread += picture != nullptr && picture != track.shown && !number ? 1 : 0;
    if (isNew) {
        NoteStand(track, now);
        figures_.nbNew += picture != nullptr ? 1 : 0;
        track.since = now;
        track.nbOwnTicks = 0;
    }
    track.shown = picture;
    track.number = number;
    const bool right = Belongs(track, head) && !isHeld;
    track.nbOwnTicks += right ? 1 : 0;
    if (!isNew) {
        NoteStand(track, now);
    }
    return right;
}

void RunJudge::NoteStand(const Track& track, Clock::time_point until) {
    if (track.shown == nullptr) {
        return;
    }
    const auto stood = std::chrono::duration_cast<std::chrono::nanoseconds>(until - track.since);
    const auto nbFurther = static_cast<std::int64_t>(std::max<std::uint64_t>(track.nbOwnTicks, 1)) - 1;
    figures_.longestGap = std::max(figures_.longestGap, stood);
    figures_.longestStand = std::max(figures_.longestStand, stood - nbFurther * period_);
}

void RunJudge::NoteProgress(const TimePoint& head, const TimePoint& due, Clock::time_point now) {
    figures_.elapsed += now - last_;
    figures_.played = figures_.played + WithoutSign(head - head_);
    const std::int64_t tick = WithoutSign(TimePoint::StartOfSample(1, display_) * speed_).Nanoseconds();
    if (tick > 0) {
        const std::int64_t nbBehind = (WithoutSign(due - head).Nanoseconds() + tick / 2) / tick;
        figures_.nbBehind = std::max(figures_.nbBehind, nbBehind);
    }
}

RunFigures RunJudge::Figures() const {
    return figures_;
}

}  // namespace Tavrin::Playout
