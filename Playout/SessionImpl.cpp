#include "Playout/SessionImpl.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "Playout/CrewPlan.h"
#include "Playout/MemoryPlan.h"
#include "Playout/TrackFigures.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Player::SampleStatus;
using Time::TimePoint;

namespace {

SampleRate HighestRate(const std::vector<SessionTrack>& tracks, FieldOutput fields) {
    SampleRate highest;
    for (const SessionTrack& track : tracks) {
        const bool isByFields = fields == FieldOutput::Fields;
        highest = std::max(highest, isByFields ? FieldRate(*track.recording) : track.recording->Rate());
    }
    return highest;
}

std::vector<ReadinessRule> RulesOf(const std::vector<SessionTrack>& tracks) {
    std::vector<ReadinessRule> rules;
    rules.reserve(tracks.size());
    for (const SessionTrack& track : tracks) {
        rules.push_back(track.rule);
    }
    return rules;
}

int SignOf(const Time::Ratio& speed) {
    return speed == Time::Ratio() ? 0 : (speed.Positive() ? 1 : -1);
}

}  // namespace

Session::Impl::Impl(std::vector<SessionTrack> tracks, const SessionOptions& options)
    : options_(options),
      settings_(CheckedTracks(std::move(tracks))),
      displayRate_(options.displayRate.Positive() ? options.displayRate
                                                  : HighestRate(settings_, options.fields)),
      gate_(RulesOf(settings_)),
      meter_(displayRate_) {
    preloader_.SetExistingCacheUpdateQueues(&registry_);
    preloader_.SetDeliveryHook([this](const auto&, auto) { announcements_.Add(); });
    decoder_.SetDecodedHook([this](const auto&, auto) { announcements_.Add(); });
    preloader_.SetTrace(options_.trace);
    decoder_.SetTrace(options_.trace);
    AddTracks();
    PlanWindows();
    StartWorkers();
}

void Session::Impl::AddTracks() {
    const PlayedTrack::Means means{preloader_, decoder_, registry_, player_, options_, displayRate_};
    for (std::size_t number = 0; number < settings_.size(); ++number) {
        const SessionTrack& settings = settings_[number];
        const LanePlan lanes = PlanLanes(*settings.recording, settings_.size(), NbCoresHere());
        tracks_.push_back(std::make_unique<PlayedTrack>(means, settings, number, lanes));
    }
    ShareOut(options_.memoryBytes);
    for (const auto& track : tracks_) {
        track->Open();
    }
}

void Session::Impl::ShareOut(std::size_t nbBytes) {
    std::vector<TrackNeeds> needs;
    std::vector<std::size_t> weights;
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        needs.push_back(tracks_[number]->Needs());
        weights.push_back(settings_[number].weight);
    }
    const std::size_t total = nbBytes == 0 ? DefaultMemory(needs) : nbBytes;
    const auto shares = ShareMemory(total, needs, weights);
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        tracks_[number]->SetShare(shares[number]);
    }
    memory_ = total;
}

void Session::Impl::SetMemory(std::size_t nbBytes) {
    const std::size_t before = memory_;
    ShareOut(nbBytes);
    if (memory_ < before) {
        // What is ordered was ordered for wider windows.
        WithdrawAll();
    }
    PlanWindows();
}

bool Session::Impl::HasAhead(std::size_t nb) const {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        if (!gate_.IsLeftBehind(number) && !tracks_[number]->HasAhead(nb)) {
            return false;
        }
    }
    return true;
}

std::vector<CellState> Session::Impl::CellStates(std::size_t track, const CellRange& range) const {
    const TimePoint offset = TrackAt(track).offset;
    return tracks_.at(track)->Stream().CellStates({range.from - offset, range.to - offset, range.nbCells});
}

void Session::Impl::PlanWindows() {
    std::size_t groupBytes = 0;
    for (const auto& track : tracks_) {
        groupBytes += track->GroupBytes();
    }
    // At the worst, the groups of all tracks begin at once.
    plannedWith_ = decoder_.Meter().BytesPerSecond();
    const std::chrono::duration<double> groupTime(
        plannedWith_ > 0 ? static_cast<double>(groupBytes) / plannedWith_ : 0);
    for (const auto& track : tracks_) {
        track->PlanWindow(groupTime);
    }
}

/// How fast decoding is shows only as it goes on, and changes with what else the machine does.
void Session::Impl::FollowDecoding() {
    constexpr double kMuch = 0.25;
    const double measured = decoder_.Meter().BytesPerSecond();
    if (std::abs(measured - plannedWith_) > kMuch * plannedWith_) {
        PlanWindows();
    }
}

void Session::Impl::StartWorkers() {
    std::vector<SessionWorkers::Source> sources;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        // What may be left behind reads alone, so that the others are not left behind with it.
        sources.push_back(
            {tracks_[i]->Stream().GetStreamParameters(), settings_[i].rule != ReadinessRule::Required()});
    }
    const std::size_t nbDecoders = options_.nbDecodeWorkers > 0
                                       ? options_.nbDecodeWorkers
                                       : NbDecodeWorkersFor(tracks_.size(), NbCoresHere());
    workers_.emplace(SessionWorkers::Clients{&preloader_, &decoder_, &registry_}, sources,
                     options_.nbPreloadWorkers, nbDecoders);
}

Session::Impl::~Impl() {
    player_.DetachAllStreams();
    for (const auto& track : tracks_) {
        track->GiveUp();
    }
    workers_.reset();
    // The streams take their queues off the registry themselves.
    tracks_.clear();
}

TickReport Session::Impl::Tick(const TimePoint& delta, LookKind kind) {
    TraceSpan span = Record(kind);
    Intake();
    FollowDecoding();
    PlanReach();
    const bool moves = NoteReadiness();
    player_.Update(delta);
    return LookAround(moves, kind, span);
}

TickReport Session::Impl::TickTo(const TimePoint& head) {
    TraceSpan span = Record(LookKind::Tick);
    Intake();
    FollowDecoding();
    PlanReach();
    const bool moves = NoteReadiness();
    // Lets the player note who makes it wait; it then is put where its own steps would lead but for rounding.
    player_.Update(TimePoint());
    if (moves) {
        player_.GoTo(head);
    }
    return LookAround(moves, LookKind::Tick, span);
}

TraceSpan Session::Impl::Record(LookKind kind) const {
    if (GetTrace() != nullptr) {
        GetTrace()->NameThread("output");
    }
    return {GetTrace(),
            "play",
            kind == LookKind::Between ? "look" : "tick",
            {{"tick", static_cast<std::int64_t>(nbTicks_)}}};
}

/// Only the tracks that are waited for are attached to the player. Whether none of them holds it.
bool Session::Impl::NoteReadiness() {
    const auto now = TickGate::Clock::now();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        MediaStream& stream = tracks_[number]->Stream();
        gate_.Note(number, stream.IsReady(), now);
        gate_.IsLeftBehind(number) ? player_.DetachStream(&stream) : player_.AttachStream(&stream);
    }
    return gate_.IsOpen();
}

TickReport Session::Impl::LookAround(bool moved, LookKind kind, TraceSpan& span) {
    TickReport report;
    report.tick = nbTicks_++;
    report.moved = moved;
    report.time = player_.GetCurrentTimePoint();
    span.Add({"time", report.time.ToNanoseconds()});
    span.Add({"moved", report.moved ? 1 : 0});
    const PlayedTrack::Manner manner{dragged_, reachPlanner_.LeavesOut()};
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        PlayedTrack& track = *tracks_[number];
        report.tracks.push_back(track.Look(manner));
        if (moved && gate_.IsLeftBehind(number)) {
            track.Stream().WithdrawPassed();
        }
        track.Stream().Plan();
    }
    NoteWaits(report);
    Count(report, kind);
    const auto now = SpeedMeter::Clock::now();
    if (meter_.HasBegun() ? moved && kind == LookKind::Tick : report.IsReady()) {
        meter_.Note(now, report.time);
    }
    const Time::Ratio speed = player_.GetSpeed();
    report.heldSpeed =
        meter_.Held(now, static_cast<double>(speed.Numerator()) / static_cast<double>(speed.Denominator()));
    return report;
}

void Session::Impl::NoteWaits(TickReport& report) {
    const auto now = TickGate::Clock::now();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const bool isReady = report.tracks[number].status != SampleStatus::NotReady;
        gate_.Note(number, isReady, now);
        if (isReady) {
            continue;
        }
        TrackWait wait;
        wait.track = number;
        wait.cause = tracks_[number]->Stream().WaitCause();
        wait.waited = gate_.Waited(number);
        wait.holds = gate_.Holds(number);
        wait.left = wait.holds ? gate_.Left(number) : std::nullopt;
        report.waits.push_back(wait);
    }
}

/// Of all tracks; zero where each of them shows all of its pictures.
double Session::Impl::WantedBytesPerSecond() const {
    double bytes = 0;
    bool leavesOut = false;
    for (const auto& track : tracks_) {
        bytes += track->WantedBytesPerSecond();
        leavesOut = leavesOut || track->Stride() > 1;
    }
    return leavesOut ? bytes : 0;
}

/// How much of each group there is time for.
void Session::Impl::PlanReach() {
    reachPlanner_.Plan(standInsAllowed_ ? WantedBytesPerSecond() : 0, decoder_.Meter().BytesPerSecond());
    for (const auto& track : tracks_) {
        track->PlanReach(reachPlanner_.Share(), reachPlanner_.LeavesOut());
    }
}

void Session::Impl::Intake() {
    for (const auto& track : tracks_) {
        track->Stream().Intake();
    }
}

void Session::Impl::Count(const TickReport& report, LookKind kind) {
    const auto now = ViewCounter::Clock::now();
    auto wait = report.waits.begin();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const bool waits = wait != report.waits.end() && wait->track == number;
        tracks_[number]->Counter().Note(report.tracks[number], waits ? wait->cause : WaitCause::None, kind,
                                        now);
        wait += waits ? 1 : 0;
    }
    nbOutputTicks_ += kind == LookKind::Between ? 0 : 1;
}

bool Session::Impl::WaitForProgress(std::chrono::milliseconds timeout) {
    const bool progressed = announcements_.WaitForMoreThan(NbAnswers(), timeout);
    if (progressed) {
        // A decode is announced just before its picture is delivered: let the worker get that far.
        std::this_thread::yield();
    }
    return progressed;
}

std::uint64_t Session::Impl::NbAnswers() const {
    std::uint64_t nb = 0;
    for (const auto& track : tracks_) {
        nb += track->Stream().NbAnswers();
    }
    return nb;
}

void Session::Impl::SetSpeed(const Time::Ratio& speed) {
    const Time::Ratio oldSpeed = player_.GetSpeed();
    const std::vector<SampleRate> oldRates = FetchRates();
    player_.SetSpeed(speed);
    dragged_ = false;
    if (speed != oldSpeed) {
        meter_.Restart();
    }
    PlanWindows();
    for (const auto& track : tracks_) {
        track->Stream().SetDragged(false);
    }
    // Where playing stops, what lies ahead and has been asked for is next to the play head all the same.
    const bool stops = speed == Time::Ratio();
    const bool turns = !stops && SignOf(oldSpeed) != SignOf(speed);
    if (turns || oldRates != FetchRates()) {
        WithdrawAll();
    } else if (stops) {
        for (const auto& track : tracks_) {
            track->Stream().TryMissingAgain();
        }
    }
}

std::vector<SampleRate> Session::Impl::FetchRates() const {
    std::vector<SampleRate> rates;
    rates.reserve(tracks_.size());
    for (const auto& track : tracks_) {
        rates.push_back(track->Stream().FetchRate());
    }
    return rates;
}

void Session::Impl::GoTo(const TimePoint& tp, bool dragged) {
    const TimePoint from = player_.GetCurrentTimePoint();
    player_.GoTo(tp);
    dragged_ = dragged;
    gate_.Restart();
    meter_.Restart();
    for (const auto& track : tracks_) {
        track->Jumped(from, dragged);
    }
}

void Session::Impl::WithdrawAll() {
    for (const auto& track : tracks_) {
        track->Stream().Withdraw();
    }
}

TrackInformation Session::Impl::GetInformation(std::size_t number) const {
    return InformationFrom(tracks_.at(number)->Sources());
}

Counters Session::Impl::GetCounters() const {
    Counters counters;
    counters.nbTicks = nbOutputTicks_;
    for (const auto& track : tracks_) {
        counters.tracks.push_back(CountersFrom(track->Sources(), track->Counter()));
    }
    return counters;
}

}  // namespace Tavrin::Playout
