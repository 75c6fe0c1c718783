#include "Playout/Playback.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <variant>

#include "Playout/Course.h"
#include "Playout/Pacer.h"
#include "Playout/Trace.h"

namespace Tavrin::Playout {

using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

namespace {

using Clock = std::chrono::steady_clock;

/// How long a wait may keep the stop flag waiting.
constexpr std::chrono::milliseconds kLongestWait{50};

/// However much progress is reported, a picture that has not come after so many stall times will not come.
constexpr int kMostStallTimes = 10;

/// Several tracks begin together when each has so many pictures to go on with, but not much later than with one.
constexpr std::size_t kNbGathered = 4;
constexpr std::size_t kNbGatheredAlone = 2;
constexpr std::chrono::milliseconds kLongestGathering{200};

/// In the order of the variant.
constexpr std::array kCommandNames{"speed", "jump", "step", "drag", "release", "quit"};
static_assert(kCommandNames.size() == std::variant_size_v<PlayCommand>);

const char* NameOf(const PlayCommand& command) {
    return kCommandNames[command.index()];
}

}  // namespace

/// One run, from the first tick to the last.
class Playback::Runner {
public:
    Runner(const Playback& playback, const TickCallback& show, const std::atomic<bool>* stop,
           ICommandSource* commands)
        : options_(playback.options_),
          session_(playback.session_),
          course_(session_, options_),
          show_(show),
          stop_(stop),
          commands_(commands),
          begin_(Clock::now()),
          lastReady_(begin_),
          lastProgress_(begin_) {
        report_.tracks.resize(session_.NbTracks());
        nbTicksAtMost_ = options_.nbTicks;
        if (!nbTicksAtMost_ && commands_ == nullptr && options_.speed == Ratio()) {
            nbTicksAtMost_ = 1;
        }
    }

    PlayReport Run() {
        session_.AllowStandIns(options_.realTime);
        Obey(TimePoint());
        if (!IsStopped() && ShowFirst()) {
            options_.realTime ? PlayInRealTime() : PlayFast();
        }
        return report_;
    }

private:
    /// Whether there is a picture to go on from.
    bool ShowFirst() {
        course_.Begin();
        tick_ = session_.Tick(TimePoint());
        if (!AwaitReady() || !Gather()) {
            return false;
        }
        firstShown_ = Clock::now();
        report_.untilFirst = firstShown_ - begin_;
        report_.first = tick_.time;
        Show();
        return true;
    }

    /// The first pictures take longer, until decoders and memory are warm, and tracks share the cores: were they to begin
    /// as soon as the last of them has its first picture, its second one would come late. False when stopped.
    bool Gather() {
        const auto latest = Clock::now() + kLongestGathering;
        const std::size_t nb = session_.NbTracks() > 1 ? kNbGathered : kNbGatheredAlone;
        while (options_.realTime && Clock::now() < latest && !session_.HasAhead(nb)) {
            if (IsStopped()) {
                return false;
            }
            WaitForProgress(
                std::clamp<Clock::duration>(latest - Clock::now(), Clock::duration::zero(), kLongestWait));
        }
        return true;
    }

    void PlayFast() {
        for (std::int64_t tick = 1; !IsOver(); ++tick) {
            Obey(TimePoint::StartOfSample(tick, session_.DisplayRate()));
            if (IsOver()) {
                return;
            }
            KeepInside();
            if (!Move()) {
                return;
            }
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
            jumps_ = course_.JumpsNext();
            tick_ = course_.Tick();
        } while (!tick_.moved);
        return AwaitReady();
    }

    void PlayInRealTime() {
        Pacer pacer(session_.DisplayRate(), firstShown_);
        while (!IsOver() && AwaitTick(pacer)) {
            Obey(pacer.Elapsed());
            if (IsOver()) {
                return;
            }
            KeepInside();
            if (owes_ && !course_.JumpsNext()) {
                tick_ = session_.TickInPlace();
            } else {
                jumps_ = course_.JumpsNext();
                tick_ = course_.Tick();
                owes_ = tick_.moved;
                AwaitBriefly(pacer);
            }
            tick_.IsReady() || course_.IsDragged() ? Show() : ShowLate();
        }
    }

    /// Waits until the next tick begins: when it is due, or when what is owed is there, so that it stands no
    /// longer than it has to, and the next one as long as it should. False when stopped.
    bool AwaitTick(Pacer& pacer) {
        if (owes_ ? !WaitUntilReady(pacer.Due()) : !WaitFor(pacer.Due())) {
            return false;
        }
        const auto now = Clock::now();
        if (now < pacer.Due()) {
            pacer.Resume(now);
        } else {
            report_.nbSleptThrough += pacer.Begin(now);
        }
        return true;
    }

    /// A picture that comes within a quarter of its tick is shown then, and the next tick is in time.
    void AwaitBriefly(const Pacer& pacer) {
        const std::chrono::nanoseconds tick(
            TimePoint::StartOfSample(1, session_.DisplayRate()).Nanoseconds());
        if (!course_.IsDragged()) {
            WaitUntilReady(pacer.Due() - tick + tick / 4);
        }
    }

    /// Takes the commands for the tick that begins at that time.
    void Obey(const TimePoint& at) {
        if (commands_ == nullptr) {
            return;
        }
        for (const PlayCommand& command : commands_->Take(at)) {
            if (session_.GetTrace() != nullptr) {
                session_.GetTrace()->Mark("command", NameOf(command));
            }
            if (std::holds_alternative<Quit>(command)) {
                report_.end = PlayEnd::Quit;
                return;
            }
            course_.Apply(command);
            ++report_.nbCommands;
            // Whoever waited for a picture now waits for another one.
            lastReady_ = Clock::now();
        }
    }

    [[nodiscard]] bool IsStopped() {
        if (stop_ != nullptr && stop_->load()) {
            report_.end = PlayEnd::Stopped;
        }
        return report_.end == PlayEnd::Stopped || report_.end == PlayEnd::Quit;
    }

    [[nodiscard]] bool IsOver() {
        if (IsStopped()) {
            return true;
        }
        if (nbTicksAtMost_ && report_.nbTicks >= *nbTicksAtMost_) {
            report_.end = PlayEnd::Counted;
            return true;
        }
        return !owes_ && HasArrived();
    }

    /// Nothing more is to be shown, and no command can change that.
    [[nodiscard]] bool HasArrived() const {
        if (commands_ == nullptr) {
            return course_.EndsNext();
        }
        return !commands_->IsOpen() && (course_.EndsNext() || (course_.Stands() && tick_.IsReady()));
    }

    /// Where playing on would leave what is to be played, the play head stands.
    void KeepInside() {
        if ((!owes_ || course_.JumpsNext()) && course_.EndsNext()) {
            course_.Halt();
        }
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

    /// Waits until nothing holds the play head, at most until then; false when stopped.
    bool WaitUntilReady(Clock::time_point latest) {
        for (auto now = Clock::now(); !tick_.IsReady() && now < latest; now = Clock::now()) {
            if (IsStopped()) {
                return false;
            }
            WaitForProgress(std::min<Clock::duration>(latest - now, kLongestWait));
        }
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
                WaitForProgress(slice);
            }
        }
        return true;
    }

    /// Waits for an answer of storage or decoder and files it; no longer than the play head is held.
    void WaitForProgress(Clock::duration longest) {
        for (const TrackWait& wait : tick_.waits) {
            longest = wait.left ? std::min<Clock::duration>(longest, *wait.left) : longest;
        }
        const bool progressed =
            session_.WaitForProgress(std::chrono::ceil<std::chrono::milliseconds>(longest));
        const auto now = Clock::now();
        lastProgress_ = progressed ? now : lastProgress_;
        tick_ = session_.Tick(TimePoint());
        if (tick_.IsReady()) {
            lastReady_ = now;
        } else if (now - std::max(lastProgress_, lastReady_) >= options_.stallTimeout ||
                   now - lastReady_ >= options_.stallTimeout * kMostStallTimes) {
            Fail();
        }
    }

    [[noreturn]] void Fail() const {
        const auto wait = std::find_if(tick_.waits.begin(), tick_.waits.end(),
                                       [](const TrackWait& each) { return each.holds; });
        const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(wait->waited);
        throw std::runtime_error(session_.Recording(wait->track).File() + ": playing stalled at " +
                                 tick_.time.ToDurationString() + ": track " + std::to_string(wait->track) +
                                 " has waited " + std::to_string(waited.count()) + " ms for " +
                                 (wait->cause == WaitCause::Storage ? "storage" : "its decoder"));
    }

    void Show() {
        ShownTick shown;
        for (std::size_t track = 0; track < tick_.tracks.size(); ++track) {
            const TrackView& view = tick_.tracks[track];
            const bool isAgain = !shown_.pictures.empty() && IsSame(view, track);
            Count(report_.tracks[track], view, isAgain);
            shown.pictures.push_back(view.picture);
            shown.fields.push_back(view.field);
        }
        shown_ = std::move(shown);
        report_.nbLateTicks += tick_.IsReady() ? 0 : 1;
        owes_ = false;
        CountWaits();
        HandOut();
    }

    /// Whether it shows what it did at the tick before.
    [[nodiscard]] bool IsSame(const TrackView& view, std::size_t track) const {
        const auto& before = shown_.pictures[track];
        return before != nullptr && view.picture != nullptr && before->Number() == view.picture->Number() &&
               shown_.FieldOf(track) == view.field;
    }

    static void Count(TrackReport& report, const TrackView& view, bool isAgain) {
        if (view.status == SampleStatus::NotReady) {
            ++report.nbLate;
        } else if (view.missing) {
            ++report.nbMissing;
        } else if (view.picture == nullptr) {
            ++report.nbEmpty;
        } else if (isAgain) {
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
        CountWaits();
        HandOut();
    }

    void CountWaits() {
        for (const TrackWait& wait : tick_.waits) {
            ++(wait.holds ? report_.tracks[wait.track].nbHeld : report_.tracks[wait.track].nbLeftBehind);
        }
    }

    void HandOut() {
        NoteWay();
        shown_.tick = report_.nbTicks++;
        shown_.time = tick_.time;
        shown_.heldSpeed = tick_.heldSpeed;
        report_.last = tick_.time;
        if (!show_(shown_, tick_)) {
            report_.end = PlayEnd::Stopped;
        }
    }

    /// Jumps lead elsewhere at no speed.
    void NoteWay() {
        if (report_.nbTicks > 0 && !jumps_) {
            way_ += tick_.time - report_.last;
        }
        jumps_ = false;
        report_.elapsed = Clock::now() - firstShown_;
        const double wall = std::chrono::duration<double>(report_.elapsed).count();
        const double way =
            std::chrono::duration<double>(std::chrono::nanoseconds(way_.Nanoseconds())).count();
        report_.heldSpeed = report_.nbTicks > 0 && wall > 0 ? way / wall : 0;
    }

    const PlaybackOptions& options_;
    Session& session_;
    Course course_;
    const TickCallback& show_;
    const std::atomic<bool>* stop_;
    ICommandSource* commands_;
    std::optional<std::uint64_t> nbTicksAtMost_;
    const Clock::time_point begin_;
    Clock::time_point firstShown_;
    Clock::time_point lastReady_;
    Clock::time_point lastProgress_;
    TickReport tick_;
    ShownTick shown_;
    bool jumps_ = false;  ///< The play head has come to where it is by a command.
    TimePoint way_;       ///< Of the play head, but for jumps.
    bool owes_ = false;   ///< The play head has moved to where nothing has been shown yet.
    PlayReport report_;
};

Playback::Playback(Session& session, const PlaybackOptions& options)
    : session_(session), options_(options), start_(Course(session, options).Start()) {
}

PlayReport Playback::Run(const TickCallback& show, const std::atomic<bool>* stop, ICommandSource* commands) {
    return Runner(*this, show, stop, commands).Run();
}

}  // namespace Tavrin::Playout
