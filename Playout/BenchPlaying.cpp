// The cases of the bench that play: opening, as fast as possible, and in real time.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "Playout/BenchScene.h"
#include "Playout/Playback.h"
#include "Playout/RunJudge.h"
#include "Playout/TimedOperator.h"

namespace Tavrin::Playout {

using Time::Ratio;
using Time::TimePoint;

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
using Seconds = std::chrono::duration<double>;

constexpr std::size_t kNbOpenings = 7;
constexpr double kPercent = 100;
constexpr double kMebibyte = 1024.0 * 1024.0;

double PercentOf(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? 0 : kPercent * static_cast<double>(part) / static_cast<double>(whole);
}

double InMilliseconds(std::chrono::nanoseconds time) {
    return Milliseconds(time).count();
}

void AddFigures(BenchFigures& figures, const RunFigures& run) {
    const double elapsed = Seconds(run.elapsed).count();
    const double played = Seconds(std::chrono::nanoseconds(run.played.Nanoseconds())).count();
    figures.emplace_back("ticks", static_cast<double>(run.nbTicks));
    figures.emplace_back("rightPercent", PercentOf(run.nbRight, run.nbTicks));
    figures.emplace_back("rightByClockPercent", PercentOf(run.nbRightByClock, run.nbTicks));
    figures.emplace_back("togetherPercent", PercentOf(run.nbTogether, run.nbTicks));
    figures.emplace_back("nearPercent", PercentOf(run.nbNear, run.nbTicks));
    figures.emplace_back("behindTicks", static_cast<double>(run.nbBehind));
    figures.emplace_back("speed", elapsed > 0 ? played / elapsed : 0);
    figures.emplace_back("standMs", InMilliseconds(run.longestStand));
    figures.emplace_back("gapMs", InMilliseconds(run.longestGap));
    figures.emplace_back("newPerSecond", elapsed > 0 ? static_cast<double>(run.nbNew) / elapsed : 0);
    figures.emplace_back("unreadPictures", static_cast<double>(run.nbUnread));
}

/// The first picture that belongs to a speed, and what it took to show it.
double FirstPictureMs(const BenchScene& scene, Session& session, const Ratio& speed, const TimePoint& from) {
    const bool backward = speed < Ratio();
    TimedOperator hands(session);
    const double time = hands.Start(from, speed).count();
    const std::size_t expected = scene.Index().PictureAtTime(from).value();
    if (!scene.Shows(hands.Shown(), expected)) {
        throw std::runtime_error(scene.Index().File() + ": the first picture " +
                                 (backward ? "backward" : "forward") + " is not the right one");
    }
    return time;
}

/// In one pass or several, until the time is over: at high speeds a recording is soon at its end.
class RealTimeRun {
public:
    RealTimeRun(const BenchScene& scene, Session& session, const Ratio& speed)
        : scene_(scene), session_(session), judge_(scene.Tracks(), session.DisplayRate(), speed) {
        playback_.speed = speed;
        playback_.realTime = true;
    }

    void Run() {
        while (!IsOver()) {
            judge_.Begin(playback_.speed);
            const PlayReport report =
                Playback(session_, playback_).Run([this](const ShownTick& shown, const TickReport&) {
                    judge_.Note(shown.time, shown.pictures, Clock::now());
                    return !IsOver();
                });
            firstMs_ = std::max(firstMs_, InMilliseconds(report.untilFirst));
            saidWay_ += std::abs(report.heldSpeed) * Seconds(report.elapsed).count();
            played_ += report.elapsed;
            nbSleptThrough_ += report.nbSleptThrough;
            ++nbPasses_;
        }
    }

    [[nodiscard]] BenchFigures Figures() const {
        BenchFigures figures;
        AddFigures(figures, judge_.Figures());
        // Over all passes, each for as long as it took.
        figures.emplace_back("saidSpeed", played_ > Seconds(0) ? saidWay_ / played_.count() : 0);
        figures.emplace_back("firstMs", firstMs_);
        figures.emplace_back("sleptThroughTicks", static_cast<double>(nbSleptThrough_));
        figures.emplace_back("tickMs",
                             InMilliseconds(std::chrono::nanoseconds(
                                 TimePoint::StartOfSample(1, session_.DisplayRate()).Nanoseconds())));
        figures.emplace_back("groupMiB", static_cast<double>(scene_.GroupBytes()) / kMebibyte);
        return figures;
    }

    [[nodiscard]] std::size_t NbPictures() const { return judge_.Figures().nbNew; }

private:
    /// By the time that was played: waiting for first pictures is measured apart. A recording of few ticks
    /// must not be begun for ever.
    [[nodiscard]] bool IsOver() const {
        constexpr std::size_t kMostPasses = 20;
        return judge_.Figures().elapsed >= scene_.Options().duration || nbPasses_ >= kMostPasses;
    }

    const BenchScene& scene_;
    Session& session_;
    RunJudge judge_;
    PlaybackOptions playback_;
    double firstMs_ = 0;
    double saidWay_ = 0;  ///< In seconds, as the reports' speeds have it.
    Seconds played_{0};
    std::uint64_t nbSleptThrough_ = 0;
    std::size_t nbPasses_ = 0;
};

}  // namespace

BenchFigures MeasureOpening(const std::string& file, const BenchOptions& options, bool backward) {
    Percentiles times;
    Percentiles indexing;
    for (std::size_t i = 0; i < kNbOpenings; ++i) {
        const auto begin = Clock::now();
        const auto index = RecordingIndex::Build(file);
        indexing.Add(Milliseconds(Clock::now() - begin).count());
        Session session({index}, options.session);
        TimedOperator hands(session);
        const TimePoint from = backward ? index->End() - TimePoint().FromNanoseconds(1) : TimePoint();
        hands.Start(from, Ratio(backward ? -1 : 1, 1));
        times.Add(Milliseconds(Clock::now() - begin).count());
        const auto& shown = hands.Shown().tracks.front().picture;
        if (shown == nullptr || !NumberedRecording(index).Shows(*shown, index->PictureAtTime(from).value())) {
            throw std::runtime_error(file + ": the first picture after opening is not the right one");
        }
    }
    BenchFigures figures;
    AddLatencies(figures, times);
    figures.emplace_back("indexMs", indexing.At(50));
    return figures;
}

BenchFigures MeasureReverseStart(BenchScene& scene) {
    Percentiles times;
    for (std::size_t i = 0; i < kNbOpenings; ++i) {
        const auto session = scene.OpenSession();
        const TimePoint from = scene.MiddleOf(scene.RandomInnerPicture());
        times.Add(FirstPictureMs(scene, *session, Ratio(-1, 1), from));
    }
    BenchFigures figures;
    AddLatencies(figures, times);
    return figures;
}

BenchFigures MeasureFast(BenchScene& scene, const Ratio& speed, double nbGroupsInBudget) {
    SessionOptions options = scene.Options().session;
    options.nbDecodeWorkers = 2;
    if (nbGroupsInBudget > 0) {
        // What holds so many groups: their pictures beside what the track needs in any case.
        const double bytes = nbGroupsInBudget * static_cast<double>(scene.GroupBytes()) +
                             static_cast<double>(scene.LeastBytes());
        if (bytes > static_cast<double>(std::size_t{2} << 30U)) {
            throw std::runtime_error("left out: so many pictures take " +
                                     std::to_string(static_cast<std::int64_t>(bytes / kMebibyte)) + " MiB");
        }
        options.memoryBytes = static_cast<std::size_t>(bytes);
    }
    const ProcessUsage usage;
    const auto session = scene.OpenSession(options);
    RunJudge judge(scene.Tracks(), session->DisplayRate(), speed);
    PlaybackOptions playback;
    playback.speed = speed;
    const auto begin = Clock::now();
    Playback(*session, playback).Run([&](const ShownTick& shown, const TickReport&) {
        judge.Note(shown.time, shown.pictures, Clock::now());
        return judge.Figures().elapsed < scene.Options().duration;
    });
    const double elapsed = Seconds(Clock::now() - begin).count();
    const RunFigures run = judge.Figures();
    BenchFigures figures{{"ticks", static_cast<double>(run.nbTicks)},
                         {"rightPercent", PercentOf(run.nbRight, run.nbTicks)},
                         {"picturesPerSecond", static_cast<double>(run.nbNew) / elapsed},
                         {"budgetMiB", static_cast<double>(options.memoryBytes) / kMebibyte}};
    AddUsage(figures, usage, run.nbNew);
    return figures;
}

BenchFigures MeasurePlaying(BenchScene& scene, const Ratio& speed) {
    const ProcessUsage usage;
    const auto session = scene.OpenSession();
    RealTimeRun run(scene, *session, speed);
    run.Run();
    BenchFigures figures = run.Figures();
    AddUsage(figures, usage, run.NbPictures());
    return figures;
}

}  // namespace Tavrin::Playout
