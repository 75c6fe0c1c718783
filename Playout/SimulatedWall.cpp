#include "Playout/SimulatedWall.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "Playout/DecodedSample.h"
#include "Playout/TickSchedule.h"
#include "Playout/WindowPlan.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

namespace {

/// Recordings whose groups begin at different times: enough to spread the reads, and few enough for the
/// memory of long runs.
constexpr std::size_t kMostPhases = 8;

/// Wall time that the recording goes on beyond the end of the run, so that the windows stay full.
const TimePoint kBeyond = TimePoint().FromSeconds(10);

bool IsBackward(const Ratio& speed) {
    return speed < Ratio();
}

TimePoint WithoutSign(const TimePoint& time) {
    return time < TimePoint() ? TimePoint() - time : time;
}

std::chrono::nanoseconds Duration(const TimePoint& time) {
    return std::chrono::nanoseconds(time.Nanoseconds());
}

/// Of whole groups: playing backward begins with the last one, which ends like all the others.
std::size_t NbPictures(const RecordingModel& model, const SimulationOptions& options) {
    const TimePoint way = WithoutSign((options.duration + kBeyond) * options.speed);
    const auto nb = static_cast<std::size_t>(way.SampleNumber(model.rate));
    const std::size_t nbGroups = nb / model.groupLength + 2;
    return model.firstGroupLength + nbGroups * model.groupLength;
}

/// What the tracks play, in turn.
std::vector<std::shared_ptr<const RecordingIndex>> MakeRecordings(const SimulationOptions& options) {
    if (options.like != nullptr) {
        return {options.like};
    }
    RecordingModel model = options.recording;
    const std::size_t nbPhases =
        options.aligned ? 1 : std::min({kMostPhases, options.nbTracks, model.groupLength});
    std::vector<std::shared_ptr<const RecordingIndex>> recordings;
    for (std::size_t phase = 0; phase < nbPhases; ++phase) {
        model.firstGroupLength = model.groupLength - phase * model.groupLength / nbPhases;
        model.nbPictures = NbPictures(model, options);
        recordings.push_back(MakeSimulatedRecording(model));
    }
    return recordings;
}

SampleRate DisplayRate(const SimulationOptions& options, const RecordingIndex& recording) {
    return options.session.displayRate.Positive() ? options.session.displayRate : recording.Rate();
}

}  // namespace

struct SimulatedWall::Track {
    std::shared_ptr<const RecordingIndex> recording;
    TrackNeeds needs;
    std::size_t bytes = 0;  ///< Its share of the memory.
    StreamWindow window;
    std::unique_ptr<MediaStream> stream;
    TrackView view;
    WaitCause waitsFor = WaitCause::None;
    ViewCounter counter{ViewCounter::Clock::time_point()};

    /// For pictures beside those that the decoders work on.
    [[nodiscard]] std::size_t PictureRoom() const { return bytes - needs.packets - needs.working; }
    [[nodiscard]] bool IsReady() const { return view.status != SampleStatus::NotReady; }
};

SimulatedWall::SimulatedWall(const SimulationOptions& options)
    : options_(options),
      storage_(events_, options.storage, options.seed),
      readers_(events_, storage_, registry_, options.session.nbPreloadWorkers,
               [this](std::size_t track) { answered_.push_back(track); }),
      decoders_(events_, options.decoder, options.nbTracks, registry_,
                [this](std::size_t track) { answered_.push_back(track); }) {
    const auto recordings = MakeRecordings(options_);
    displayRate_ = DisplayRate(options_, *recordings.front());
    player_.SetSpeed(options_.speed);
    for (std::size_t number = 0; number < options_.nbTracks; ++number) {
        tracks_.push_back(std::make_unique<Track>());
        tracks_.back()->recording = recordings[number % recordings.size()];
    }
    ShareOutMemory();
    for (std::size_t number = 0; number < options_.nbTracks; ++number) {
        OpenTrack(number);
    }
}

SimulatedWall::~SimulatedWall() {
    player_.DetachAllStreams();
}

/// What the decoders of a track are on the machine that is simulated.
LanePlan SimulatedWall::LanesOf(const RecordingIndex& recording) const {
    return PlanLanes(recording, options_.nbTracks, options_.decoder.nbCores);
}

/// Without a budget, each track has what is usual: how much this machine has says nothing about the other.
void SimulatedWall::ShareOutMemory() {
    std::vector<TrackNeeds> needs;
    for (const auto& track : tracks_) {
        needs.push_back(NeedsOf(*track->recording, LanesOf(*track->recording)));
        report_.memoryBytes += needs.back().usual;
    }
    if (options_.session.memoryBytes > 0) {
        report_.memoryBytes = options_.session.memoryBytes;
    }
    const auto shares = ShareMemory(report_.memoryBytes, needs, std::vector<std::size_t>(tracks_.size(), 1));
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        tracks_[number]->needs = needs[number];
        tracks_[number]->bytes = shares[number];
    }
}

void SimulatedWall::OpenTrack(std::size_t number) {
    Track& track = *tracks_[number];
    const RecordingIndex& recording = *track.recording;
    const Player::TrackId id(Player::StorageId(recording.File(), recording.Stream()),
                             static_cast<std::int64_t>(number));
    track.window = PlanWindow(recording, displayRate_, options_.speed,
                              {track.PictureRoom(), track.needs.packets}, options_.session);
    track.stream = std::make_unique<MediaStream>(track.recording, id, displayRate_, track.window, registry_);
    track.stream->SetClock([this] { return std::chrono::steady_clock::time_point(Duration(events_.Now())); });
    track.stream->LinkPlayer(&player_);
    player_.AttachStream(track.stream.get());

    const LanePlan lanes = LanesOf(recording);
    // What decoders refer to is in the store as well, most of it; only what they work on is not.
    const auto nbThreads = static_cast<std::size_t>(lanes.nbThreads);
    const std::size_t working = lanes.nbLanes * (nbThreads + 1) * track.needs.picture;
    const SimulatedDecoders::TrackOptions decoding{track.bytes - track.needs.packets - working, lanes.nbLanes,
                                                   nbThreads};
    const auto& parameters = track.stream->GetStreamParameters();
    readers_.AddTrack(track.recording, *parameters.preloadQueue_, SimulatedRandom(options_.seed, 2 * number));
    decoders_.AddTrack(track.recording, *parameters.decodeQueue_, decoding,
                       SimulatedRandom(options_.seed, 2 * number + 1));
}

SimulationReport SimulatedWall::Run() {
    report_.nbTracks = options_.nbTracks;
    report_.speed = options_.speed;
    report_.nbHeldUp.resize(tracks_.size());
    GoToStart();
    Tick(TimePoint(), LookKind::Between);
    WaitUntilReady();
    report_.untilFirst = events_.Now();
    BeginMeasuring();
    report_.nbTicks = 1;
    PlayFor(options_.duration);
    report_.storageBusyPercent = storage_.BusyPercent();
    report_.readersBusyPercent = readers_.BusyPercent();
    report_.coresBusyPercent = decoders_.CoresBusyPercent();
    report_.decodersBusyPercent = decoders_.WorkersBusyPercent();
    report_.decodersWaitingPercent = decoders_.WorkersWaitingPercent();
    report_.counters.nbTicks = report_.nbTicks;
    report_.counters.tracks.resize(tracks_.size());
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Fill(report_.counters.tracks[number], number);
    }
    report_.holds = report_.LatePercent() <= options_.allowedLatePercent;
    return std::move(report_);
}

void SimulatedWall::GoToStart() {
    const RecordingIndex& recording = *tracks_.front()->recording;
    const TimePoint last = recording.SampleStart(recording.NbSamples() - 1);
    const TickSchedule schedule(recording.Rate(), displayRate_, options_.speed);
    player_.GoTo(schedule.Start(IsBackward(options_.speed) ? last : TimePoint()));
}

/// What was used to show the first picture does not count.
void SimulatedWall::BeginMeasuring() {
    storage_.RestartMeasuring();
    readers_.RestartMeasuring();
    decoders_.RestartMeasuring();
}

bool SimulatedWall::EndsWith(const TimePoint& head) const {
    return head < TimePoint() || head >= tracks_.front()->recording->End();
}

void SimulatedWall::PlayFor(const TimePoint& duration) {
    const TickSchedule schedule(tracks_.front()->recording->Rate(), displayRate_, options_.speed);
    const TimePoint begin = events_.Now();
    const TimePoint first = player_.GetCurrentTimePoint();
    std::uint64_t nbMoves = 0;
    for (std::int64_t tick = 1; TimePoint::StartOfSample(tick, displayRate_) <= duration; ++tick) {
        if (!owes_ && EndsWith(schedule.Next(player_.GetCurrentTimePoint(), nbMoves))) {
            break;
        }
        WaitUntil(begin + TimePoint::StartOfSample(tick, displayRate_));
        if (owes_) {
            Tick(TimePoint(), LookKind::InPlace);
        } else {
            owes_ = Tick(schedule.Delta(nbMoves), LookKind::Tick);
            nbMoves += owes_ ? 1 : 0;
        }
        NoteTick();
        if (TimePoint::StartOfSample(tick, displayRate_) <= options_.settling) {
            report_.nbSettlingTicks = report_.nbTicks;
            report_.nbLateSettling = report_.nbLateTicks;
        }
        report_.elapsed = events_.Now() - begin;
        report_.played = WithoutSign(player_.GetCurrentTimePoint() - first);
    }
}

/// Whether the play head was let go.
bool SimulatedWall::Tick(const TimePoint& delta, LookKind kind) {
    answered_.clear();
    for (const auto& track : tracks_) {
        track->stream->Intake();
    }
    const bool moves = std::all_of(tracks_.begin(), tracks_.end(),
                                   [](const auto& track) { return track->stream->IsReady(); });
    player_.Update(delta);
    nbUnready_ = 0;
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = *tracks_[number];
        Look(track, kind);
        nbUnready_ += track.IsReady() ? 0 : 1;
        NotePlace(number);
        track.stream->Plan();
    }
    readers_.LookForOrders();
    decoders_.LookForOrders();
    return moves;
}

/// Lets time pass. While a track waits for its picture, answers are filed as they come; once all are ready,
/// the output sleeps until the next tick.
void SimulatedWall::WaitUntil(const TimePoint& time) {
    while (events_.RunNext(time)) {
        if (!IsReady()) {
            FileAnswers();
        }
    }
}

void SimulatedWall::WaitUntilReady() {
    while (!IsReady()) {
        if (!events_.RunNext(TimePoint::GetHighestTimePoint())) {
            throw std::logic_error("simulation: a track waits for what nobody was asked for");
        }
        FileAnswers();
    }
}

/// And orders what they make possible.
void SimulatedWall::FileAnswers() {
    if (answered_.empty()) {
        return;
    }
    for (const std::size_t number : std::exchange(answered_, {})) {
        File(number);
    }
    readers_.LookForOrders();
    decoders_.LookForOrders();
}

/// What one track was answered.
void SimulatedWall::File(std::size_t number) {
    Track& track = *tracks_[number];
    const bool wasReady = track.IsReady();
    track.stream->Intake();
    Look(track, LookKind::Between);
    nbUnready_ -= !wasReady && track.IsReady() ? 1 : 0;
    track.stream->Plan();
}

void SimulatedWall::Look(Track& track, LookKind kind) {
    Player::ISample* sample = nullptr;
    TrackView& view = track.view;
    view.status = track.stream->GetCurrentSample(&sample);
    view.missing = view.status == SampleStatus::Empty && track.stream->CurrentIsMissing();
    if (sample != nullptr) {
        auto& decoded = static_cast<DecodedSample&>(*sample);
        view.picture = decoded.Content();
        decoded.MarkSeen();
    }
    track.waitsFor = track.stream->WaitCause();
    track.counter.Note(view, track.waitsFor, kind, ViewCounter::Clock::time_point(Duration(events_.Now())));
}

/// Tells the decoders' store what is near.
void SimulatedWall::NotePlace(std::size_t number) {
    const Track& track = *tracks_[number];
    const auto picture = track.recording->PictureAtTime(player_.GetCurrentTimePoint());
    PlayPlace place;
    place.picture = picture.value_or(track.recording->NbPictures());
    place.backward = IsBackward(options_.speed);
    place.stride =
        static_cast<std::size_t>((track.recording->Rate() / track.stream->FetchRate()).Numerator());
    place.ahead = track.PictureRoom() / std::max<std::size_t>(track.needs.picture, 1) * place.stride;
    place.behind = track.IsReady() ? track.window.nbDecodedBehind * place.stride : 0;
    decoders_.SetPlace(number, place);
}

/// While a track is not ready, all of them keep the pictures of the tick before, so that they stay in step.
void SimulatedWall::NoteTick() {
    ++report_.nbTicks;
    if (IsReady()) {
        owes_ = false;
        return;
    }
    const auto waitFor = [this](WaitCause cause) {
        return std::any_of(tracks_.begin(), tracks_.end(),
                           [cause](const auto& track) { return track->waitsFor == cause; });
    };
    ++report_.nbLateTicks;
    report_.nbLateForStorage += waitFor(WaitCause::Storage) ? 1 : 0;
    report_.nbLateForDecoder += waitFor(WaitCause::Decoder) ? 1 : 0;
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        report_.nbHeldUp[number] += tracks_[number]->IsReady() ? 0 : 1;
    }
}

void SimulatedWall::Fill(TrackCounters& counters, std::size_t number) const {
    const Track& track = *tracks_[number];
    counters.file = track.recording->File();
    counters.pictures = track.counter.Pictures();
    counters.waits = track.counter.Waits();
    readers_.Fill(counters, number);
    decoders_.Fill(counters, number);
    const auto decoded = track.stream->Decoded().GetInformation();
    const auto compressed = track.stream->Compressed().GetInformation();
    counters.fetches.nbWithdrawn = track.stream->NbWithdrawn();
    counters.fetches.nbReady = static_cast<std::uint64_t>(decoded.nbValidSamples_);
    counters.fetches.nbProtected = static_cast<std::uint64_t>(decoded.nbProtectedSamples_);
    counters.fetches.nbPending =
        static_cast<std::uint64_t>(decoded.nbPendingSamples_ + compressed.nbPendingSamples_);
}

}  // namespace Tavrin::Playout
