#include "Playout/Playback.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>

#include "Playout/Pacer.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

namespace {

using Clock = std::chrono::steady_clock;

/// How long a wait may keep the stop flag waiting.
constexpr std::chrono::milliseconds kLongestWait{50};

/// However much progress is reported, a picture that has not come after so many stall times will not come.
constexpr int kMostStallTimes = 10;

bool IsBackward(const Ratio& speed) {
    return speed < Ratio();
}

/// The finest rate has the narrowest samples: a play head kept off their edges stays off those of the others.
SampleRate FinestRate(const Session& session) {
    SampleRate finest;
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        finest = std::max(finest, session.Recording(track).Rate());
    }
    return finest;
}

const RecordingIndex& Longest(const Session& session) {
    std::size_t longest = 0;
    for (std::size_t track = 1; track < session.NbTracks(); ++track) {
        if (session.Recording(track).End() > session.Recording(longest).End()) {
            longest = track;
        }
    }
    return session.Recording(longest);
}

}  // namespace

/// One run, from the first tick to the last.
class Playback::Course {
public:
    Course(const Playback& playback, const TickCallback& show, const std::atomic<bool>* stop)
        : playback_(playback),
          options_(playback.options_),
          session_(playback.session_),
          show_(show),
          stop_(stop),
          begin_(Clock::now()),
          lastReady_(begin_),
          lastProgress_(begin_) {
        report_.tracks.resize(session_.NbTracks());
    }

    PlayReport Run() {
        if (ShowFirst()) {
            options_.realTime ? PlayInRealTime() : PlayFast();
        }
        return report_;
    }

private:
    /// Whether there is a picture to go on from.
    bool ShowFirst() {
        tick_ = session_.Tick(TimePoint());
        if (!AwaitReady()) {
            return false;
        }
        firstShown_ = Clock::now();
        report_.untilFirst = firstShown_ - begin_;
        report_.first = tick_.time;
        Show();
        return true;
    }

    void PlayFast() {
        while (!IsOver() && Move()) {
            Show();
        }
    }

    /// Moves the play head by one tick and waits until every track is ready there; false when stopped.
    bool Move() {
        do {
            // A track that asks again for what it could not have holds the play head once more.
            if (!AwaitReady()) {
                return false;
            }
            TickOn();
        } while (!tick_.moved);
        return AwaitReady();
    }

    void PlayInRealTime() {
        Pacer pacer(session_.DisplayRate(), firstShown_);
        while (!IsOver() && WaitFor(pacer.Due())) {
            report_.nbSleptThrough += pacer.Begin(Clock::now());
            if (owes_) {
                tick_ = session_.Tick(TimePoint());
            } else {
                TickOn();
                owes_ = tick_.moved;
            }
            tick_.IsReady() ? Show() : ShowLate();
        }
    }

    /// Asks the play head to move by one tick.
    void TickOn() {
        tick_ = session_.Tick(playback_.schedule_.Delta(nbMoves_));
        nbMoves_ += tick_.moved ? 1 : 0;
    }

    [[nodiscard]] bool IsStopped() {
        if (stop_ != nullptr && stop_->load()) {
            report_.end = PlayEnd::Stopped;
        }
        return report_.end == PlayEnd::Stopped;
    }

    [[nodiscard]] bool IsOver() {
        if (IsStopped()) {
            return true;
        }
        if (options_.nbTicks && report_.nbTicks >= *options_.nbTicks) {
            report_.end = PlayEnd::Counted;
            return true;
        }
        return !owes_ && playback_.IsOver(playback_.schedule_.Next(session_.CurrentTime(), nbMoves_));
    }

    /// Waits until every track is ready; false when stopped.
    bool AwaitReady() {
        while (!tick_.IsReady()) {
            if (IsStopped()) {
                return false;
            }
            WaitForProgress(kLongestWait);
        }
        lastReady_ = Clock::now();
        return true;
    }

    /// Waits until the time is there, and meanwhile moves on the pictures that are late; false when stopped.
    bool WaitFor(Clock::time_point due) {
        for (auto now = Clock::now(); now < due; now = Clock::now()) {
            if (IsStopped()) {
                return false;
            }
            const auto slice = std::min<Clock::duration>(due - now, kLongestWait);
            if (tick_.IsReady()) {
                std::this_thread::sleep_for(slice);
            } else {
                WaitForProgress(std::chrono::duration_cast<std::chrono::milliseconds>(slice));
            }
        }
        return true;
    }

    /// Waits for an answer of storage or decoder and files it.
    void WaitForProgress(std::chrono::milliseconds longest) {
        const bool progressed = session_.WaitForProgress(longest);
        const auto now = Clock::now();
        lastProgress_ = progressed ? now : lastProgress_;
        tick_ = session_.Tick(TimePoint());
        if (tick_.IsReady()) {
            lastReady_ = now;
        } else if (now - std::max(lastProgress_, lastReady_) >= options_.stallTimeout ||
                   now - lastReady_ >= options_.stallTimeout * kMostStallTimes) {
            Fail(now - lastReady_);
        }
    }

    [[noreturn]] void Fail(Clock::duration waited) const {
        const auto unready =
            std::find_if(tick_.tracks.begin(), tick_.tracks.end(),
                         [](const TrackView& view) { return view.status == SampleStatus::NotReady; });
        const auto track = static_cast<std::size_t>(unready - tick_.tracks.begin());
        throw std::runtime_error(
            session_.Recording(track).File() + ": playing stalled at " + tick_.time.ToDurationString() +
            ": neither storage nor decoder delivered the picture within " +
            std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count()) + " ms");
    }

    void Show() {
        ShownTick shown;
        for (std::size_t track = 0; track < tick_.tracks.size(); ++track) {
            const TrackView& view = tick_.tracks[track];
            Count(report_.tracks[track], view, !shown_.pictures.empty() ? shown_.pictures[track] : nullptr);
            shown.pictures.push_back(view.picture);
        }
        shown_ = std::move(shown);
        owes_ = false;
        HandOut();
    }

    static void Count(TrackReport& report, const TrackView& view,
                      const std::shared_ptr<const Picture>& before) {
        if (view.missing) {
            ++report.nbMissing;
        } else if (view.picture == nullptr) {
            ++report.nbEmpty;
        } else if (before != nullptr && before->Number() == view.picture->Number()) {
            ++report.nbRepeated;
        } else {
            ++report.nbNew;
        }
    }

    /// All tracks keep the pictures of the tick before, so that they stay in step.
    void ShowLate() {
        for (TrackReport& track : report_.tracks) {
            ++track.nbLate;
        }
        ++report_.nbLateTicks;
        HandOut();
    }

    void HandOut() {
        shown_.tick = report_.nbTicks++;
        shown_.time = tick_.time;
        report_.last = tick_.time;
        report_.elapsed = Clock::now() - firstShown_;
        if (!show_(shown_, tick_)) {
            report_.end = PlayEnd::Stopped;
        }
    }

    const Playback& playback_;
    const PlaybackOptions& options_;
    Session& session_;
    const TickCallback& show_;
    const std::atomic<bool>* stop_;
    const Clock::time_point begin_;
    Clock::time_point firstShown_;
    Clock::time_point lastReady_;
    Clock::time_point lastProgress_;
    TickReport tick_;
    ShownTick shown_;
    bool owes_ = false;  ///< The play head has moved to where nothing has been shown yet.
    std::uint64_t nbMoves_ = 0;
    PlayReport report_;
};

Playback::Playback(Session& session, const PlaybackOptions& options)
    : session_(session),
      options_(options),
      schedule_(FinestRate(session), session.DisplayRate(), options.speed) {
    CheckTimes();
    if (options_.speed == Ratio() && !options_.nbTicks) {
        options_.nbTicks = 1;
    }
    start_ = FindStart();
    if (IsOver(start_)) {
        throw std::invalid_argument("no picture lies between " + start_.ToDurationString() + " and " +
                                    options_.to.value_or(session_.End()).ToDurationString() + " at speed " +
                                    options_.speed.ToString());
    }
}

void Playback::CheckTimes() const {
    const TimePoint from = options_.from.value_or(TimePoint());
    if (from < TimePoint() || options_.to.value_or(TimePoint()) < TimePoint()) {
        throw std::invalid_argument("times to play from and to must not be negative");
    }
    if (options_.speed == Ratio() && options_.to) {
        throw std::invalid_argument("at speed 0 the play head stands still and never comes to " +
                                    options_.to->ToDurationString());
    }
    if (!IsBackward(options_.speed) && from >= session_.End()) {
        throw std::invalid_argument("nothing to play from " + from.ToDurationString() +
                                    ": the recording ends at " + session_.End().ToDurationString());
    }
    if (options_.from && options_.to &&
        (IsBackward(options_.speed) ? *options_.to > from : *options_.to <= from)) {
        throw std::invalid_argument("playing from " + from.ToDurationString() + " at speed " +
                                    options_.speed.ToString() + " never comes to " +
                                    options_.to->ToDurationString());
    }
}

TimePoint Playback::FindStart() const {
    const TimePoint lastMoment = session_.End() - TimePoint().FromNanoseconds(1);
    const TimePoint at = IsBackward(options_.speed) ? std::min(options_.from.value_or(lastMoment), lastMoment)
                                                    : options_.from.value_or(TimePoint());
    const TimePoint start = schedule_.Start(at);
    if (start < session_.End()) {
        return start;
    }
    // The finest recording's sample there reaches beyond the end of the longest one.
    return TickSchedule(Longest(session_).Rate(), session_.DisplayRate(), options_.speed).Start(at);
}

bool Playback::IsOver(const TimePoint& head) const {
    if (IsBackward(options_.speed)) {
        return head < options_.to.value_or(TimePoint());
    }
    return head >= std::min(options_.to.value_or(session_.End()), session_.End());
}

PlayReport Playback::Run(const TickCallback& show, const std::atomic<bool>* stop) {
    session_.SetSpeed(options_.speed);
    session_.GoTo(start_);
    return Course(*this, show, stop).Run();
}

}  // namespace Tavrin::Playout
