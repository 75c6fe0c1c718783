#include "Playout/Session.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Playout/Announcements.h"
#include "Playout/CrewPlan.h"
#include "Playout/GroupReach.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaStream.h"
#include "Playout/MemoryPlan.h"
#include "Playout/ReachPlanner.h"
#include "Playout/SessionWorkers.h"
#include "Playout/SpeedMeter.h"
#include "Playout/StandInChoice.h"
#include "Playout/TickGate.h"
#include "Playout/Trace.h"
#include "Playout/TrackFigures.h"
#include "Playout/TrackPlayer.h"
#include "Playout/ViewCounter.h"
#include "Playout/WindowPlan.h"

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

}  // namespace

namespace {

int SignOf(const Time::Ratio& speed) {
    return speed == Time::Ratio() ? 0 : (speed.Positive() ? 1 : -1);
}

}  // namespace

bool TickReport::IsReady() const {
    return std::none_of(waits.begin(), waits.end(), [](const TrackWait& wait) { return wait.holds; });
}

class Session::Impl {
public:
    Impl(std::vector<SessionTrack> tracks, const SessionOptions& options);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    TickReport Tick(const TimePoint& delta, LookKind kind);
    TickReport TickTo(const TimePoint& head);
    bool WaitForProgress(std::chrono::milliseconds timeout);
    void SetSpeed(const Time::Ratio& speed);
    void GoTo(const TimePoint& tp, bool dragged);
    void AllowStandIns(bool allowed);
    void SetMemory(std::size_t nbBytes);
    bool HasAhead(std::size_t nb) const;
    std::size_t Memory() const { return memory_; }
    TrackInformation GetInformation(std::size_t track) const;
    Counters GetCounters() const;
    Trace* GetTrace() const { return options_.trace.get(); }

    const SessionTrack& TrackAt(std::size_t track) const { return settings_.at(track); }
    const RecordingIndex& Recording(std::size_t track) const { return *TrackAt(track).recording; }
    std::size_t NbTracks() const { return settings_.size(); }
    const SampleRate& DisplayRate() const { return displayRate_; }
    const FieldOrder& Samples(std::size_t track) const { return tracks_.at(track).stream->Fields(); }
    const Player::Player& PlayHead() const { return player_; }
    std::vector<CellState> CellStates(std::size_t track, const CellRange& range) const {
        const TimePoint offset = TrackAt(track).offset;
        return tracks_.at(track).stream->CellStates({range.from - offset, range.to - offset, range.nbCells});
    }
    MediaPreloader& Preloader() { return preloader_; }

private:
    struct Track {
        Player::TrackId id;
        TrackNeeds needs;
        std::size_t bytes = 0;  ///< Its share of the memory.
        StreamWindow window;
        GroupReach reach;
        std::unique_ptr<TrackPlayer> player;
        std::unique_ptr<MediaStream> stream;
        TrackView view;
        StandInChoice standIn;
        std::size_t restedAt = 0;  ///< The last picture under the play head that was not waited for.
        ViewCounter counter{std::chrono::steady_clock::now()};
    };

    void AddTrack(std::size_t number);
    void StartWorkers();
    void Intake();
    TraceSpan Record(LookKind kind) const;
    bool NoteReadiness();
    TickReport LookAround(bool moved, LookKind kind, TraceSpan& span);
    void NoteWaits(TickReport& report);
    void Look(Track& track, std::size_t number);
    void Count(const TickReport& report, LookKind kind);
    TrackSources SourcesOf(const Track& track) const {
        return {preloader_, decoder_, *track.stream, track.id, track.bytes};
    }
    void WithdrawAll();
    void AbandonAll();
    void PlanWindows();
    void NotePlace(Track& track, std::size_t number);
    std::size_t StrideOf(const Track& track, std::size_t number) const;
    std::size_t PictureRoom(const Track& track) const { return track.bytes - track.needs.packets; }
    LanePlan LanesFor(const RecordingIndex& recording) const;
    void ShareOut(std::size_t nbBytes);
    void PlanReach();
    double WantedBytesPerSecond() const;
    void StandIn(Track& track, std::size_t number);
    std::vector<SampleRate> FetchRates() const;
    std::uint64_t NbAnswers() const;

    SessionOptions options_;
    std::vector<SessionTrack> settings_;
    SampleRate displayRate_;
    TickGate gate_;
    SpeedMeter meter_;
    Announcements announcements_;
    Player::ExistingCacheUpdateQueues registry_;
    MediaPreloader preloader_;
    MediaDecoder decoder_;
    Player::Player player_;
    std::vector<Track> tracks_;
    std::optional<SessionWorkers> workers_;
    std::uint64_t nbTicks_ = 0;
    std::size_t memory_ = 0;
    bool dragged_ = false;
    bool standInsAllowed_ = false;
    ReachPlanner reachPlanner_;
    std::uint64_t nbOutputTicks_ = 0;
};

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
    for (const SessionTrack& settings : settings_) {
        Track& track = tracks_.emplace_back();
        track.needs = NeedsOf(*settings.recording, LanesFor(*settings.recording));
    }
    ShareOut(options.memoryBytes);
    preloader_.SetTrace(options_.trace);
    decoder_.SetTrace(options_.trace);
    for (std::size_t number = 0; number < settings_.size(); ++number) {
        AddTrack(number);
    }
    PlanWindows();
    StartWorkers();
}

LanePlan Session::Impl::LanesFor(const RecordingIndex& recording) const {
    return PlanLanes(recording, settings_.size(), NbCoresHere());
}

void Session::Impl::ShareOut(std::size_t nbBytes) {
    std::vector<TrackNeeds> needs;
    std::vector<std::size_t> weights;
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        needs.push_back(tracks_[number].needs);
        weights.push_back(settings_[number].weight);
    }
    const std::size_t total = nbBytes == 0 ? DefaultMemory(needs) : nbBytes;
    const auto shares = ShareMemory(total, needs, weights);
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        tracks_[number].bytes = shares[number];
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
    for (const Track& track : tracks_) {
        decoder_.SetPictureBytes(track.id, PictureRoom(track));
    }
    PlanWindows();
}

bool Session::Impl::HasAhead(std::size_t nb) const {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const Track& track = tracks_[number];
        // Farther than the window nothing is fetched.
        if (!gate_.IsLeftBehind(number) &&
            !track.stream->HasAhead(std::min(nb, track.window.nbDecodedAhead))) {
            return false;
        }
    }
    return true;
}

void Session::Impl::AddTrack(std::size_t number) {
    const std::shared_ptr<const RecordingIndex>& recording = settings_[number].recording;
    Track& track = tracks_[number];
    track.id = Player::TrackId(Player::StorageId(recording->File(), recording->Stream()),
                               static_cast<std::int64_t>(number));
    const LanePlan lanes = LanesFor(*recording);
    MediaDecoderOptions decoding;
    decoding.pictureBytes = PictureRoom(track);
    decoding.lane.nbThreads = lanes.nbThreads;
    decoding.nbLanes = lanes.nbLanes;
    preloader_.AddTrack(track.id, recording);
    decoder_.AddTrack(track.id, recording, decoding);
    track.stream = std::make_unique<MediaStream>(recording, track.id, displayRate_, StreamWindow(), registry_,
                                                 options_.fields);
    track.stream->SetTrace(GetTrace());
    track.player = std::make_unique<TrackPlayer>(player_, settings_[number].offset);
    track.stream->LinkPlayer(track.player.get());
    player_.AttachStream(track.stream.get());
}

/// As far ahead and behind as the speed asks for.
void Session::Impl::PlanWindows() {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        const WindowRoom room{PictureRoom(track) - track.needs.working, track.needs.packets};
        track.window = PlanWindow(Recording(number), displayRate_, player_.GetSpeed(), room, options_);
        track.stream->SetWindow(track.window);
    }
}

void Session::Impl::StartWorkers() {
    std::vector<SessionWorkers::Source> sources;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        // What may be left behind reads alone, so that the others are not left behind with it.
        sources.push_back(
            {tracks_[i].stream->GetStreamParameters(), settings_[i].rule != ReadinessRule::Required()});
    }
    const std::size_t nbDecoders = options_.nbDecodeWorkers > 0
                                       ? options_.nbDecodeWorkers
                                       : NbDecodeWorkersFor(tracks_.size(), NbCoresHere());
    workers_.emplace(SessionWorkers::Clients{&preloader_, &decoder_, &registry_}, sources,
                     options_.nbPreloadWorkers, nbDecoders);
}

Session::Impl::~Impl() {
    player_.DetachAllStreams();
    for (const Track& track : tracks_) {
        preloader_.GiveUp(track.id);
        decoder_.Abandon(track.id, std::nullopt);
    }
    workers_.reset();
    // The streams take their queues off the registry themselves.
    tracks_.clear();
}

TickReport Session::Impl::Tick(const TimePoint& delta, LookKind kind) {
    TraceSpan span = Record(kind);
    Intake();
    PlanReach();
    const bool moves = NoteReadiness();
    player_.Update(delta);
    return LookAround(moves, kind, span);
}

TickReport Session::Impl::TickTo(const TimePoint& head) {
    TraceSpan span = Record(LookKind::Tick);
    Intake();
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
        MediaStream& stream = *tracks_[number].stream;
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
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        Look(track, number);
        NotePlace(track, number);
        if (moved && gate_.IsLeftBehind(number)) {
            track.stream->WithdrawPassed();
        }
        track.stream->Plan();
        report.tracks.push_back(track.view);
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
        wait.cause = tracks_[number].stream->WaitCause();
        wait.waited = gate_.Waited(number);
        wait.holds = gate_.Holds(number);
        wait.left = wait.holds ? gate_.Left(number) : std::nullopt;
        report.waits.push_back(wait);
    }
}

/// Tells the decoders' store what is near.
void Session::Impl::NotePlace(Track& track, std::size_t number) {
    // Who has gone no farther than this has stepped, and may step on; a hand that drags goes back and forth.
    constexpr std::size_t kStep = 16;
    const RecordingIndex& recording = Recording(number);
    PlayPlace place;
    // At high speeds the picture on show is that at the beginning of the sample fetched.
    place.picture =
        recording.PictureAtOrAfter(track.player->GetCurrentTimePoint().AlignWith(track.stream->FetchRate()));
    // Where pictures last differently long, those shown are not every so many.
    place.stride = recording.ConstantRate() ? StrideOf(track, number) : 1;
    const bool isAwaited = track.view.status == SampleStatus::NotReady && !dragged_;
    const std::size_t way = std::max(track.restedAt, place.picture) - std::min(track.restedAt, place.picture);
    track.restedAt = isAwaited ? track.restedAt : place.picture;
    // What can be kept; the window alone would leave out what the store keeps for later.
    const std::size_t nbFitting =
        (PictureRoom(track) - track.needs.working) / std::max<std::size_t>(track.needs.picture, 1);
    const bool isStill = player_.GetSpeed().Numerator() == 0;
    if (isAwaited && way > kStep) {
        // On the way to the picture that is waited for, those before it are in nobody's window.
        place.backward = player_.GetSpeed().Numerator() < 0;
        place.ahead = nbFitting * place.stride;
        place.behind = 0;
    } else if (isStill && !dragged_) {
        // Forward, one picture comes after the other; backward, what is not there takes a pass over its group.
        place.backward = true;
        place.behind = nbFitting / 3;
        place.ahead = nbFitting - place.behind;
    } else {
        place.backward = player_.GetSpeed().Numerator() < 0;
        place.ahead = nbFitting * place.stride;
        place.behind = std::max(track.window.nbDecodedBehind, dragged_ ? kStep : 0) * place.stride;
    }
    decoder_.SetPlace(track.id, place);
}

/// Of so many pictures, one is fetched.
std::size_t Session::Impl::StrideOf(const Track& track, std::size_t number) const {
    const Time::Ratio stride = Recording(number).Rate() / track.stream->FetchRate();
    return static_cast<std::size_t>(stride.Numerator());
}

/// The bytes of decoded pictures that playing takes at the present speed, of tracks not all of whose pictures
/// are shown; zero when there is none.
double Session::Impl::WantedBytesPerSecond() const {
    double bytes = 0;
    bool leavesOut = false;
    const Time::Ratio speed = player_.GetSpeed();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const Time::Ratio rate = Recording(number).Rate() * speed;
        const double perSecond =
            std::abs(static_cast<double>(rate.Numerator()) / static_cast<double>(rate.Denominator()));
        const std::size_t stride = StrideOf(tracks_[number], number);
        // Pictures that stand alone are decoded only where they are shown.
        const std::size_t of = Recording(number).IntraOnly() ? stride : 1;
        bytes += perSecond * static_cast<double>(tracks_[number].needs.picture) / static_cast<double>(of);
        leavesOut = leavesOut || stride > 1;
    }
    return leavesOut ? bytes : 0;
}

/// How much of each group there is time for.
void Session::Impl::PlanReach() {
    reachPlanner_.Plan(standInsAllowed_ ? WantedBytesPerSecond() : 0, decoder_.Meter().BytesPerSecond());
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        const GroupReach reach = ReachFor(Recording(number), reachPlanner_.Share());
        track.stream->AllowStandIns(reachPlanner_.LeavesOut());
        if (reach != track.reach) {
            track.reach = reach;
            preloader_.SetReach(track.id, reach);
            decoder_.SetReach(track.id, reach);
        }
    }
}

void Session::Impl::AllowStandIns(bool allowed) {
    standInsAllowed_ = allowed;
}

void Session::Impl::Intake() {
    for (Track& track : tracks_) {
        track.stream->Intake();
    }
}

void Session::Impl::Look(Track& track, std::size_t number) {
    TrackView& view = track.view;
    Player::ISample* sample = nullptr;
    view.status = track.stream->GetCurrentSample(&sample);
    view.missing = view.status == SampleStatus::Empty && track.stream->CurrentIsMissing();
    view.standIn = false;
    if (view.status != SampleStatus::NotReady) {
        track.standIn.Forget();
    }
    if (sample != nullptr) {
        auto& decoded = static_cast<DecodedSample&>(*sample);
        decoded.MarkSeen();
        view.picture = decoded.Content();
        view.field = decoded.Field();
        view.standIn = track.stream->IsStandIn(decoded);
    } else if ((view.status == SampleStatus::NotReady && dragged_) ||
               (reachPlanner_.LeavesOut() && (view.status == SampleStatus::NotReady || view.missing))) {
        StandIn(track, number);
    } else if (view.status == SampleStatus::Empty && !view.missing) {
        view.picture = nullptr;
    }
}

void Session::Impl::StandIn(Track& track, std::size_t number) {
    const auto picture = Recording(number).PictureAtTime(track.player->GetCurrentTimePoint());
    auto found = track.standIn.Choose(
        picture ? decoder_.Nearest(track.id, *picture) : nullptr, dragged_,
        [&] { return decoder_.Newest(track.id); }, StandInChoice::Clock::now());
    if (found == nullptr) {
        return;
    }
    const bool isNew = found != track.view.picture;
    track.view.picture = std::move(found);
    track.view.field = PictureField::Frame;
    track.view.standIn = true;
    track.view.missing = false;
    if (reachPlanner_.LeavesOut()) {
        track.view.status = isNew ? SampleStatus::New : SampleStatus::Same;
    }
}

void Session::Impl::Count(const TickReport& report, LookKind kind) {
    const auto now = ViewCounter::Clock::now();
    auto wait = report.waits.begin();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const bool waits = wait != report.waits.end() && wait->track == number;
        tracks_[number].counter.Note(report.tracks[number], waits ? wait->cause : WaitCause::None, kind, now);
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
    for (const Track& track : tracks_) {
        nb += track.stream->NbAnswers();
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
    for (const Track& track : tracks_) {
        track.stream->SetDragged(false);
    }
    const bool turns = SignOf(oldSpeed) != SignOf(speed);
    if (turns || oldRates != FetchRates()) {
        WithdrawAll();
    }
}

std::vector<SampleRate> Session::Impl::FetchRates() const {
    std::vector<SampleRate> rates;
    rates.reserve(tracks_.size());
    for (const Track& track : tracks_) {
        rates.push_back(track.stream->FetchRate());
    }
    return rates;
}

void Session::Impl::GoTo(const TimePoint& tp, bool dragged) {
    player_.GoTo(tp);
    dragged_ = dragged;
    gate_.Restart();
    meter_.Restart();
    AbandonAll();
    WithdrawAll();
}

/// Ends what is in progress for other places than the play head's.
void Session::Impl::AbandonAll() {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const RecordingIndex& recording = Recording(number);
        const auto picture = recording.PictureAtTime(tracks_[number].player->GetCurrentTimePoint());
        const auto kept = picture ? std::optional(recording.Picture(*picture).group) : std::nullopt;
        preloader_.Abandon(tracks_[number].id, kept);
        decoder_.Abandon(tracks_[number].id, picture);
    }
}

void Session::Impl::WithdrawAll() {
    for (Track& track : tracks_) {
        track.stream->SetDragged(dragged_);
        track.stream->Withdraw();
    }
}

TrackInformation Session::Impl::GetInformation(std::size_t number) const {
    return InformationFrom(SourcesOf(tracks_.at(number)));
}

Counters Session::Impl::GetCounters() const {
    Counters counters;
    counters.nbTicks = nbOutputTicks_;
    for (const Track& track : tracks_) {
        counters.tracks.push_back(CountersFrom(SourcesOf(track), track.counter));
    }
    return counters;
}

Session::Session(std::vector<std::shared_ptr<const RecordingIndex>> recordings, const SessionOptions& options)
    : Session(TracksFromTheOrigin(std::move(recordings)), options) {
}

Session::Session(std::vector<SessionTrack> tracks, const SessionOptions& options)
    : impl_(std::make_unique<Impl>(std::move(tracks), options)) {
}

Session::~Session() = default;

std::size_t Session::NbTracks() const {
    return impl_->NbTracks();
}

const SessionTrack& Session::Track(std::size_t track) const {
    return impl_->TrackAt(track);
}

const RecordingIndex& Session::Recording(std::size_t track) const {
    return impl_->Recording(track);
}

const SampleRate& Session::DisplayRate() const {
    return impl_->DisplayRate();
}

TimePoint Session::Begin(std::size_t track) const {
    return Track(track).offset;
}

TimePoint Session::End(std::size_t track) const {
    return Track(track).offset + Recording(track).End();
}

const FieldOrder& Session::Samples(std::size_t track) const {
    return impl_->Samples(track);
}

TimePoint Session::End() const {
    TimePoint end;
    for (std::size_t track = 0; track < NbTracks(); ++track) {
        end = std::max(end, End(track));
    }
    return end;
}

std::optional<std::size_t> Session::PictureAtTime(std::size_t track, const TimePoint& tp) const {
    return Recording(track).PictureAtTime(tp - Track(track).offset);
}

const TimePoint& Session::CurrentTime() const {
    return impl_->PlayHead().GetCurrentTimePoint();
}

Time::Ratio Session::Speed() const {
    return impl_->PlayHead().GetSpeed();
}

void Session::SetSpeed(const Time::Ratio& speed) {
    impl_->SetSpeed(speed);
}

void Session::GoTo(const TimePoint& tp) {
    impl_->GoTo(tp, false);
}

void Session::DragTo(const TimePoint& tp) {
    impl_->GoTo(tp, true);
}

void Session::AllowStandIns(bool allowed) {
    impl_->AllowStandIns(allowed);
}

void Session::SetMemory(std::size_t nbBytes) {
    impl_->SetMemory(nbBytes);
}

std::size_t Session::Memory() const {
    return impl_->Memory();
}

bool Session::HasAhead(std::size_t nb) const {
    return impl_->HasAhead(nb);
}

TickReport Session::Tick(const TimePoint& delta) {
    return impl_->Tick(delta, delta == TimePoint() ? LookKind::Between : LookKind::Tick);
}

TickReport Session::TickInPlace() {
    return impl_->Tick(TimePoint(), LookKind::InPlace);
}

TickReport Session::TickTo(const TimePoint& head) {
    return impl_->TickTo(head);
}

bool Session::WaitForProgress(std::chrono::milliseconds timeout) {
    return impl_->WaitForProgress(timeout);
}

TrackInformation Session::GetInformation(std::size_t track) const {
    return impl_->GetInformation(track);
}

Counters Session::GetCounters() const {
    return impl_->GetCounters();
}

Trace* Session::GetTrace() const {
    return impl_->GetTrace();
}

std::vector<CellState> Session::CellStates(std::size_t track, const CellRange& range) const {
    return impl_->CellStates(track, range);
}

MediaPreloader& Session::Preloader() {
    return impl_->Preloader();
}

}  // namespace Tavrin::Playout
