#include "Playout/Session.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Player/PreloadThread.h"
#include "Playout/GroupReach.h"
#include "Playout/MediaDecoder.h"
#include "Playout/MediaStream.h"
#include "Playout/MemoryPlan.h"
#include "Playout/WindowPlan.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Player::SampleStatus;
using Time::TimePoint;

namespace {

SampleRate HighestRate(const std::vector<std::shared_ptr<const RecordingIndex>>& recordings) {
    SampleRate highest;
    for (const auto& recording : recordings) {
        highest = recording->Rate() > highest ? recording->Rate() : highest;
    }
    return highest;
}

/// Decoded pictures that a machine can be taken to manage before it has shown what it can.
constexpr double kAssumedBytesPerSecond = 300e6;

/// Counts what the workers announce, so that the session's thread can wait for it.
class Announcements {
public:
    void Add() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++nb_;
        }
        changed_.notify_one();
    }

    /// Waits until more than `nbSeen` were announced; whether they were.
    bool WaitForMoreThan(std::uint64_t nbSeen, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return nb_ > nbSeen; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t nb_ = 0;
};

}  // namespace

bool TickReport::IsReady() const {
    return std::none_of(tracks.begin(), tracks.end(),
                        [](const TrackView& view) { return view.status == SampleStatus::NotReady; });
}

class Session::Impl {
public:
    Impl(std::vector<std::shared_ptr<const RecordingIndex>> recordings, const SessionOptions& options);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    TickReport Tick(const TimePoint& delta);
    bool WaitForProgress(std::chrono::milliseconds timeout);
    void SetSpeed(const Time::Ratio& speed);
    void GoTo(const TimePoint& tp, bool dragged);
    void AllowStandIns(bool allowed);
    void SetMemory(std::size_t nbBytes);
    std::size_t Memory() const { return memory_; }
    TrackInformation GetInformation(std::size_t track) const;

    const RecordingIndex& Recording(std::size_t track) const { return *recordings_.at(track); }
    std::size_t NbTracks() const { return recordings_.size(); }
    const SampleRate& DisplayRate() const { return displayRate_; }
    const Player::Player& PlayHead() const { return player_; }
    std::vector<CellState> CellStates(std::size_t track, const CellRange& range) const {
        return tracks_.at(track).stream->CellStates(range);
    }
    MediaPreloader& Preloader() { return preloader_; }

private:
    struct Track {
        Player::TrackId id;
        TrackNeeds needs;
        std::size_t bytes = 0;  ///< Its share of the memory.
        StreamWindow window;
        GroupReach reach;
        std::unique_ptr<MediaStream> stream;
        TrackView view;
        TrackInformation counts;
    };

    void AddTrack(std::size_t number);
    void StartWorkers();
    void StopWorkers();
    void Intake();
    bool AllReady();
    void Look(Track& track, std::size_t number, bool isStep);
    static void Count(Track& track, const TrackView& before, bool isStep);
    void WithdrawAll();
    void AbandonAll();
    void PlanWindows();
    void NotePlace(const Track& track, std::size_t number);
    std::size_t StrideOf(const Track& track, std::size_t number) const;
    std::size_t PictureRoom(const Track& track) const { return track.bytes - track.needs.packets; }
    LanePlan LanesFor(const RecordingIndex& recording) const;
    void ShareOut(std::size_t nbBytes);
    void PlanReach();
    double WantedBytesPerSecond() const;
    void StandIn(Track& track, std::size_t number) const;
    std::vector<SampleRate> FetchRates() const;
    std::uint64_t NbAnswers() const;

    SessionOptions options_;
    std::vector<std::shared_ptr<const RecordingIndex>> recordings_;
    SampleRate displayRate_;
    Announcements announcements_;
    Player::ExistingCacheUpdateQueues registry_;
    MediaPreloader preloader_;
    MediaDecoder decoder_;
    Player::Player player_;
    std::vector<Track> tracks_;
    std::vector<std::unique_ptr<Player::PreloadThread>> preloadWorkers_;
    std::vector<std::unique_ptr<Player::DecodeThread>> decodeWorkers_;
    std::uint64_t nbTicks_ = 0;
    std::size_t memory_ = 0;
    bool dragged_ = false;
    bool standInsAllowed_ = false;
    bool standsIn_ = false;  ///< Not all that is shown can be decoded at this speed.
};

Session::Impl::Impl(std::vector<std::shared_ptr<const RecordingIndex>> recordings,
                    const SessionOptions& options)
    : options_(options), recordings_(std::move(recordings)) {
    if (recordings_.empty()) {
        throw std::invalid_argument("Session: no recordings, at least one is needed");
    }
    displayRate_ = options.displayRate.Positive() ? options.displayRate : HighestRate(recordings_);
    preloader_.SetExistingCacheUpdateQueues(&registry_);
    preloader_.SetDeliveryHook([this](const auto&, auto) { announcements_.Add(); });
    decoder_.SetDecodedHook([this](const auto&, auto) { announcements_.Add(); });
    for (const auto& recording : recordings_) {
        Track& track = tracks_.emplace_back();
        track.needs = NeedsOf(*recording, LanesFor(*recording));
    }
    ShareOut(options.memoryBytes);
    for (std::size_t number = 0; number < recordings_.size(); ++number) {
        AddTrack(number);
    }
    PlanWindows();
    StartWorkers();
}

LanePlan Session::Impl::LanesFor(const RecordingIndex& recording) const {
    return PlanLanes(recording, recordings_.size(), options_.nbDecodeWorkers);
}

void Session::Impl::ShareOut(std::size_t nbBytes) {
    std::vector<TrackNeeds> needs;
    for (const Track& track : tracks_) {
        needs.push_back(track.needs);
    }
    const std::size_t total = nbBytes == 0 ? DefaultMemory(needs) : nbBytes;
    const auto shares = ShareMemory(total, needs, std::vector<std::size_t>(tracks_.size(), 1));
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        tracks_[number].bytes = shares[number];
    }
    memory_ = total;
}

void Session::Impl::SetMemory(std::size_t nbBytes) {
    ShareOut(nbBytes);
    for (const Track& track : tracks_) {
        decoder_.SetPictureBytes(track.id, PictureRoom(track));
    }
    PlanWindows();
}

void Session::Impl::AddTrack(std::size_t number) {
    const std::shared_ptr<const RecordingIndex>& recording = recordings_[number];
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
    track.stream =
        std::make_unique<MediaStream>(recording, track.id, displayRate_, StreamWindow(), registry_);
    track.stream->LinkPlayer(&player_);
    player_.AttachStream(track.stream.get());
}

/// As far ahead and behind as the speed asks for.
void Session::Impl::PlanWindows() {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        const WindowRoom room{PictureRoom(track) - track.needs.working, track.needs.packets};
        track.window = PlanWindow(*recordings_[number], displayRate_, player_.GetSpeed(), room, options_);
        track.stream->SetWindow(track.window);
    }
}

void Session::Impl::StartWorkers() {
    const std::size_t nbPreloadWorkers = std::max<std::size_t>(options_.nbPreloadWorkers, 1);
    for (std::size_t i = 0; i < nbPreloadWorkers; ++i) {
        preloadWorkers_.push_back(std::make_unique<Player::PreloadThread>());
        preloadWorkers_.back()->SetPreloader(&preloader_);
    }
    for (std::size_t i = 0; i < std::max<std::size_t>(options_.nbDecodeWorkers, 1); ++i) {
        decodeWorkers_.push_back(std::make_unique<Player::DecodeThread>());
        decodeWorkers_.back()->SetDecoder(&decoder_);
        decodeWorkers_.back()->SetExistingUncompressedCacheUpdateQueues(&registry_);
    }
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        const auto& parameters = tracks_[i].stream->GetStreamParameters();
        // One reader per track: reads of one file run one after the other anyway, and a second worker that
        // waited for the first would be lost to the other tracks.
        preloadWorkers_[i % nbPreloadWorkers]->SetPreloadOrderQueue(parameters.preloadQueue_);
        for (const auto& worker : decodeWorkers_) {
            worker->AddDecodeOrderQueue(parameters.decodeQueue_);
        }
    }
    for (const auto& worker : preloadWorkers_) {
        worker->Start();
    }
    for (const auto& worker : decodeWorkers_) {
        worker->Start();
    }
}

Session::Impl::~Impl() {
    player_.DetachAllStreams();
    for (const Track& track : tracks_) {
        preloader_.Abandon(track.id, std::nullopt);
        decoder_.Abandon(track.id, std::nullopt);
    }
    StopWorkers();
    // The streams take their queues off the registry themselves.
    tracks_.clear();
}

void Session::Impl::StopWorkers() {
    for (const Track& track : tracks_) {
        const auto& parameters = track.stream->GetStreamParameters();
        for (const auto& worker : preloadWorkers_) {
            worker->RemovePreloadOrderQueue(parameters.preloadQueue_);
        }
        for (const auto& worker : decodeWorkers_) {
            worker->RemoveDecodeOrderQueue(parameters.decodeQueue_);
        }
    }
    preloadWorkers_.clear();
    decodeWorkers_.clear();
}

TickReport Session::Impl::Tick(const TimePoint& delta) {
    Intake();
    TickReport report;
    report.tick = nbTicks_++;
    PlanReach();
    report.moved = AllReady();
    player_.Update(delta);
    report.time = player_.GetCurrentTimePoint();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        Look(track, number, delta != TimePoint());
        NotePlace(track, number);
        track.stream->Plan();
        report.tracks.push_back(track.view);
    }
    return report;
}

/// Tells the decoders' store what is near.
void Session::Impl::NotePlace(const Track& track, std::size_t number) {
    const RecordingIndex& recording = *recordings_[number];
    const auto picture = recording.PictureAtTime(player_.GetCurrentTimePoint());
    PlayPlace place;
    place.picture = picture.value_or(recording.NbPictures());
    place.backward = player_.GetSpeed().Numerator() < 0;
    place.stride = StrideOf(track, number);
    place.dragged = dragged_;
    // What can be kept; the window alone would leave out what the store keeps for later.
    const std::size_t nbFitting =
        (PictureRoom(track) - track.needs.working) / std::max<std::size_t>(track.needs.picture, 1);
    place.ahead = nbFitting * place.stride;
    // On the way to the picture that is waited for, those before it are in nobody's window.
    place.behind =
        track.view.status == SampleStatus::NotReady ? 0 : track.window.nbDecodedBehind * place.stride;
    decoder_.SetPlace(track.id, place);
}

/// Of so many pictures, one is fetched.
std::size_t Session::Impl::StrideOf(const Track& track, std::size_t number) const {
    const Time::Ratio stride = recordings_[number]->Rate() / track.stream->FetchRate();
    return static_cast<std::size_t>(stride.Numerator());
}

/// The bytes of decoded pictures that playing takes at the present speed, of tracks not all of whose pictures
/// are shown; zero when there is none.
double Session::Impl::WantedBytesPerSecond() const {
    double bytes = 0;
    bool leavesOut = false;
    const Time::Ratio speed = player_.GetSpeed();
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const Time::Ratio rate = recordings_[number]->Rate() * speed;
        const double perSecond =
            std::abs(static_cast<double>(rate.Numerator()) / static_cast<double>(rate.Denominator()));
        bytes += perSecond * static_cast<double>(tracks_[number].needs.picture);
        leavesOut = leavesOut || StrideOf(tracks_[number], number) > 1;
    }
    return leavesOut ? bytes : 0;
}

/// How much of each group there is time for.
void Session::Impl::PlanReach() {
    const double wanted = standInsAllowed_ ? WantedBytesPerSecond() : 0;
    const double measured = decoder_.Meter().BytesPerSecond();
    const double possible = measured > 0 ? measured : kAssumedBytesPerSecond;
    // Once standing in, it takes more than the doubt to go back.
    constexpr double kEnough = 1.0;
    constexpr double kEnoughAgain = 1.25;
    // Of what is possible, some is lost on what comes too late.
    constexpr double kUsable = 0.8;
    standsIn_ = wanted > 0 && possible < wanted * (standsIn_ ? kEnoughAgain : kEnough);
    const double share = standsIn_ ? std::min(kUsable * possible / wanted, 0.99) : 1;
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        Track& track = tracks_[number];
        const GroupReach reach = ReachFor(*recordings_[number], share);
        track.stream->AllowStandIns(standsIn_);
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

bool Session::Impl::AllReady() {
    return std::all_of(tracks_.begin(), tracks_.end(),
                       [](const Track& track) { return track.stream->IsReady(); });
}

void Session::Impl::Look(Track& track, std::size_t number, bool isStep) {
    const TrackView before = track.view;
    TrackView& view = track.view;
    Player::ISample* sample = nullptr;
    view.status = track.stream->GetCurrentSample(&sample);
    view.missing = view.status == SampleStatus::Empty && track.stream->CurrentIsMissing();
    view.standIn = false;
    if (sample != nullptr) {
        const auto& decoded = static_cast<const DecodedSample&>(*sample);
        view.picture = decoded.Content();
        view.standIn = track.stream->IsStandIn(decoded);
    } else if ((view.status == SampleStatus::NotReady && dragged_) ||
               (standsIn_ && (view.status == SampleStatus::NotReady || view.missing))) {
        StandIn(track, number);
    } else if (view.status == SampleStatus::Empty && !view.missing) {
        view.picture = nullptr;
    }
    Count(track, before, isStep);
}

/// Shows the nearest picture there is.
void Session::Impl::StandIn(Track& track, std::size_t number) const {
    const auto picture = recordings_[number]->PictureAtTime(player_.GetCurrentTimePoint());
    const auto nearest = picture ? decoder_.Nearest(track.id, *picture) : nullptr;
    if (nearest == nullptr) {
        return;
    }
    const bool isNew = track.view.picture == nullptr || track.view.picture->Number() != nearest->Number();
    track.view.picture = nearest;
    track.view.standIn = true;
    if (standsIn_) {
        track.view.status = isNew ? SampleStatus::New : SampleStatus::Same;
    }
}

/// A tick with a zero delta only looks again, so it counts only what it has newly found.
void Session::Impl::Count(Track& track, const TrackView& before, bool isStep) {
    const TrackView& view = track.view;
    TrackInformation& counts = track.counts;
    counts.nbShown += view.status == SampleStatus::New ? 1 : 0;
    counts.nbRepeated += isStep && view.status == SampleStatus::Same ? 1 : 0;
    counts.nbLate += isStep && view.status == SampleStatus::NotReady ? 1 : 0;
    counts.nbMissing += view.missing && (isStep || !before.missing) ? 1 : 0;
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
    PlanWindows();
    const bool turns = oldSpeed.Positive() != speed.Positive();
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
    AbandonAll();
    WithdrawAll();
}

/// Ends what is in progress for other places than the play head's.
void Session::Impl::AbandonAll() {
    for (std::size_t number = 0; number < tracks_.size(); ++number) {
        const RecordingIndex& recording = *recordings_[number];
        const auto picture = recording.PictureAtTime(player_.GetCurrentTimePoint());
        const auto kept = picture ? std::optional(recording.Picture(*picture).group) : std::nullopt;
        preloader_.Abandon(tracks_[number].id, kept);
        decoder_.Abandon(tracks_[number].id, kept);
    }
}

void Session::Impl::WithdrawAll() {
    for (Track& track : tracks_) {
        track.stream->Withdraw();
    }
}

TrackInformation Session::Impl::GetInformation(std::size_t number) const {
    const Track& track = tracks_.at(number);
    const auto decoded = track.stream->Decoded().GetInformation();
    const auto compressed = track.stream->Compressed().GetInformation();
    TrackInformation information = track.counts;
    information.nbWithdrawn = track.stream->NbWithdrawn();
    information.nbReady = static_cast<std::size_t>(decoded.nbValidSamples_);
    information.nbPending =
        static_cast<std::size_t>(decoded.nbPendingSamples_ + compressed.nbPendingSamples_);
    information.reading = preloader_.GetInformation(track.id);
    information.decoding = decoder_.GetInformation(track.id);
    information.memoryShare = track.bytes;
    information.pictureBytes = decoder_.PictureBytes(track.id);
    return information;
}

Session::Session(std::vector<std::shared_ptr<const RecordingIndex>> recordings, const SessionOptions& options)
    : impl_(std::make_unique<Impl>(std::move(recordings), options)) {
}

Session::~Session() = default;

std::size_t Session::NbTracks() const {
    return impl_->NbTracks();
}

const RecordingIndex& Session::Recording(std::size_t track) const {
    return impl_->Recording(track);
}

const SampleRate& Session::DisplayRate() const {
    return impl_->DisplayRate();
}

TimePoint Session::End() const {
    TimePoint end;
    for (std::size_t track = 0; track < NbTracks(); ++track) {
        end = std::max(end, Recording(track).End());
    }
    return end;
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

TickReport Session::Tick(const TimePoint& delta) {
    return impl_->Tick(delta);
}

bool Session::WaitForProgress(std::chrono::milliseconds timeout) {
    return impl_->WaitForProgress(timeout);
}

TrackInformation Session::GetInformation(std::size_t track) const {
    return impl_->GetInformation(track);
}

std::vector<CellState> Session::CellStates(std::size_t track, const CellRange& range) const {
    return impl_->CellStates(track, range);
}

MediaPreloader& Session::Preloader() {
    return impl_->Preloader();
}

}  // namespace Tavrin::Playout
