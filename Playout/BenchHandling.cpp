// The cases of the bench in which an operator steps, turns, jumps and drags.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "Playout/BenchScene.h"
#include "Playout/RunJudge.h"
#include "Playout/TimedOperator.h"

namespace Tavrin::Playout {

using Time::Ratio;

namespace {

using Clock = std::chrono::steady_clock;

const Ratio kForward(1, 1);

std::vector<std::shared_ptr<const Picture>> PicturesOf(const TickReport& report) {
    std::vector<std::shared_ptr<const Picture>> pictures;
    for (const TrackView& view : report.tracks) {
        pictures.push_back(view.picture);
    }
    return pictures;
}

/// One session handled by an operator, and what came of it.
class Handling {
public:
    explicit Handling(BenchScene& scene)
        : scene_(scene),
          session_(scene.OpenSession()),
          hands_(*session_),
          judge_(scene.Tracks(), session_->DisplayRate(), kForward) {}

    [[nodiscard]] BenchScene& Scene() { return scene_; }
    [[nodiscard]] TimedOperator& Hands() { return hands_; }

    void Stand(std::size_t picture) {
        hands_.Start(scene_.MiddleOf(picture), Ratio());
        hands_.Settle(std::chrono::seconds(2));
    }

    /// What a command took that should have led to that picture.
    void NoteCommand(TimedOperator::Milliseconds time, std::size_t picture) {
        times_.Add(time.count());
        nbWrong_ += scene_.Shows(hands_.Shown(), picture) ? 0 : 1;
    }

    /// Plays in real time at that speed, and counts the ticks that are not right.
    void Play(std::size_t nbTicks, const Ratio& speed) {
        judge_.Begin(speed);
        Judge();
        hands_.Play(nbTicks, [this] { Judge(); });
    }

    /// The same, unjudged: on the way to what is measured.
    void PlayOn(std::size_t nbTicks) {
        hands_.Play(nbTicks, [] {});
    }

    [[nodiscard]] std::size_t ShownPicture() const {
        return scene_.Index().PictureAtTime(session_->CurrentTime()).value_or(0);
    }

    /// With the time of a tick, within which a command should be carried out.
    [[nodiscard]] BenchFigures Figures() const {
        const RunFigures run = judge_.Figures();
        BenchFigures figures;
        AddLatencies(figures, times_);
        figures.emplace_back("tickMs", TimedOperator::Milliseconds(hands_.Period()).count());
        figures.emplace_back("wrong", static_cast<double>(nbWrong_));
        figures.emplace_back("ticksAfter", static_cast<double>(run.nbTicks));
        figures.emplace_back("wrongAfter", static_cast<double>(run.nbTicks - run.nbRight));
        return figures;
    }

private:
    void Judge() { judge_.Note(hands_.Shown().time, PicturesOf(hands_.Shown()), Clock::now()); }

    BenchScene& scene_;
    std::shared_ptr<Session> session_;
    TimedOperator hands_;
    RunJudge judge_;
    Percentiles times_;
    std::size_t nbWrong_ = 0;
};

/// Up to so many pictures from one towards the end, or the beginning, of the recording.
std::size_t Beside(const BenchScene& scene, std::size_t picture, std::int64_t by) {
    const auto last = static_cast<std::int64_t>(scene.Index().NbPictures()) - 1;
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(static_cast<std::int64_t>(picture) + by, 0, last));
}

}  // namespace

BenchFigures MeasureSteps(BenchScene& scene, const Ratio& speed) {
    Handling handling(scene);
    const bool backward = speed < Ratio();
    std::size_t picture = scene.Index().NbPictures() / 2;
    const std::size_t room = backward ? picture : scene.Index().NbPictures() - 1 - picture;
    handling.Stand(picture);
    // A key that is held: over several groups.
    const std::size_t nbSteps = 3 * scene.Options().nbTries;
    for (std::size_t i = 0; i < std::min(nbSteps, room); ++i) {
        handling.Hands().WaitForTick();
        picture = Beside(scene, picture, backward ? -1 : 1);
        handling.NoteCommand(handling.Hands().Step(speed), picture);
    }
    return handling.Figures();
}

BenchFigures MeasureTurns(BenchScene& scene) {
    constexpr std::size_t kLeastTicks = 8;
    Handling handling(scene);
    Ratio speed = kForward;
    handling.Stand(scene.Index().NbPictures() / 2);
    handling.Hands().Start(scene.MiddleOf(scene.Index().NbPictures() / 2), speed);
    handling.Play(2 * kLeastTicks, speed);
    for (std::size_t i = 0; i < scene.Options().nbTries; ++i) {
        speed = -speed;
        handling.Hands().WaitForTick();
        handling.Hands().AwaitReady();
        const std::size_t next = Beside(scene, handling.ShownPicture(), speed < Ratio() ? -1 : 1);
        handling.NoteCommand(handling.Hands().Turn(speed), next);
        handling.Play(kLeastTicks + scene.RandomBelow(kLeastTicks), speed);
    }
    return handling.Figures();
}

BenchFigures MeasureNearJumps(BenchScene& scene) {
    constexpr std::size_t kFarthest = 10;
    constexpr std::size_t kNbTicks = 12;
    Handling handling(scene);
    for (std::size_t i = 0; i < scene.Options().nbTries; ++i) {
        const bool isFirst = i % 4 == 0;
        if (isFirst) {
            // Somewhere else, played long enough for the surroundings to be cached.
            handling.Hands().Start(scene.MiddleOf(scene.RandomInnerPicture()), kForward);
            handling.PlayOn(2 * kNbTicks);
        }
        handling.Hands().WaitForTick();
        handling.Hands().AwaitReady();
        const auto by = static_cast<std::int64_t>(1 + scene.RandomBelow(kFarthest));
        const std::size_t picture = Beside(scene, handling.ShownPicture(), i % 2 == 0 ? -by : by);
        handling.NoteCommand(handling.Hands().GoTo(scene.MiddleOf(picture)), picture);
        handling.Play(kNbTicks, kForward);
    }
    return handling.Figures();
}

BenchFigures MeasureJumps(BenchScene& scene) {
    Handling handling(scene);
    handling.Hands().Start(scene.MiddleOf(0), Ratio());
    const ProcessUsage usage;
    for (std::size_t i = 0; i < scene.Options().nbTries; ++i) {
        // Each from rest, as the floor's are.
        handling.Hands().Settle(std::chrono::seconds(1));
        const std::size_t picture = scene.RandomPicture();
        handling.NoteCommand(handling.Hands().GoTo(scene.MiddleOf(picture)), picture);
    }
    BenchFigures figures = handling.Figures();
    AddUsage(figures, usage, scene.Options().nbTries);
    return figures;
}

namespace {

/// A mouse on the timeline: sweeps that slow down, stop and turn, as hands make them.
class Drag {
public:
    Drag(Handling& handling, Clock::time_point begin) : handling_(handling), begin_(begin), lastNew_(begin) {}

    /// Follows the mouse for that long, stops, and waits for the picture where it stands.
    void Run(Clock::duration duration) {
        const auto end = Clock::now() + duration;
        lastNew_ = Clock::now();
        auto due = lastNew_;
        std::size_t picture = 0;
        while (due < end) {
            picture = PictureAt(due);
            handling_.Hands().AskFor(handling_.Scene().MiddleOf(picture));
            Look();
            due += kStep;
            if (due < end) {
                handling_.Hands().WaitUntil(due, [this] { Look(); });
            }
        }
        handling_.NoteCommand(handling_.Hands().AwaitReady([this] { Look(); }), picture);
        Look();
    }

    [[nodiscard]] std::size_t NbNew() const { return nbNew_; }
    [[nodiscard]] double LongestGapMs() const { return TimedOperator::Milliseconds(longestGap_).count(); }

private:
    static constexpr std::chrono::nanoseconds kStep{1'000'000'000 / 60};

    /// Two swings of different length, together over most of the recording.
    [[nodiscard]] std::size_t PictureAt(Clock::time_point when) const {
        constexpr double kSlow = 1.3;
        constexpr double kQuick = 4.1;
        const double time = std::chrono::duration<double>(when - begin_).count();
        const double place = 0.5 + 0.3 * std::sin(kSlow * time) + 0.15 * std::sin(kQuick * time);
        return static_cast<std::size_t>(place *
                                        static_cast<double>(handling_.Scene().Index().NbPictures() - 1));
    }

    void Look() {
        const auto now = Clock::now();
        const auto& picture = handling_.Hands().Shown().tracks.front().picture;
        longestGap_ = std::max(longestGap_, now - lastNew_);
        if (picture != nullptr && shown_ != picture->Number()) {
            shown_ = picture->Number();
            ++nbNew_;
            lastNew_ = now;
        }
    }

    Handling& handling_;
    Clock::time_point begin_;
    Clock::time_point lastNew_;
    Clock::duration longestGap_{0};
    std::optional<std::size_t> shown_;
    std::size_t nbNew_ = 0;
};

}  // namespace

BenchFigures MeasureDragging(BenchScene& scene) {
    constexpr std::chrono::milliseconds kUntilStop{2000};
    Handling handling(scene);
    handling.Stand(scene.Index().NbPictures() / 2);
    const auto begin = Clock::now();
    const ProcessUsage usage;
    Drag drag(handling, begin);
    do {
        drag.Run(std::min<Clock::duration>(kUntilStop, scene.Options().duration));
    } while (Clock::now() - begin < scene.Options().duration);
    BenchFigures figures = handling.Figures();
    figures.emplace_back("gapMs", drag.LongestGapMs());
    figures.emplace_back("newPerSecond", static_cast<double>(drag.NbNew()) / usage.WallSeconds());
    AddUsage(figures, usage, drag.NbNew());
    return figures;
}

}  // namespace Tavrin::Playout
