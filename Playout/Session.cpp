#include "Playout/Session.h"

#include <algorithm>
#include <utility>

#include "Playout/SessionImpl.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::TimePoint;

bool TickReport::IsReady() const {
    return std::none_of(waits.begin(), waits.end(), [](const TrackWait& wait) { return wait.holds; });
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
