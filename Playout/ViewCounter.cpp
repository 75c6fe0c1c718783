#include "Playout/ViewCounter.h"

#include <utility>

#include "Player/IStream.h"

namespace Tavrin::Playout {

using Player::SampleStatus;

ViewCounter::Member ViewCounter::MemberFor(const TrackView& view) {
    if (view.missing) {
        return &PictureCounters::nbMissing;
    }
    if (view.status == SampleStatus::Empty) {
        return &PictureCounters::nbEmpty;
    }
    if (view.standIn) {
        return &PictureCounters::nbStoodIn;
    }
    if (view.status == SampleStatus::NotReady) {
        return &PictureCounters::nbLate;
    }
    return view.status == SampleStatus::Same ? &PictureCounters::nbRepeated : &PictureCounters::nbExact;
}

/// A look between two ticks has found something when it is not what the look before found. What it counted
/// stands for the tick in place after it, too, which only shows it.
bool ViewCounter::Counts(Member found, LookKind kind) const {
    if (kind == LookKind::Tick || found == &PictureCounters::nbExact) {
        return true;
    }
    if (kind == LookKind::InPlace) {
        return !hasCountedBetween_;
    }
    return found != last_ && found != &PictureCounters::nbRepeated && found != &PictureCounters::nbLate;
}

void ViewCounter::Note(const TrackView& view, WaitCause waitsFor, LookKind kind, Clock::time_point now) {
    const auto waited = now - std::exchange(lastLook_, now);
    const WaitCause waitedFor = std::exchange(waitsFor_, waitsFor);
    waits_.storage += waitedFor == WaitCause::Storage ? waited : waited.zero();
    waits_.decoder += waitedFor == WaitCause::Decoder ? waited : waited.zero();

    const Member found = MemberFor(view);
    const bool counts = Counts(found, kind);
    pictures_.*found += counts ? 1 : 0;
    hasCountedBetween_ = kind == LookKind::Between && (hasCountedBetween_ || counts);
    last_ = found;
}

}  // namespace Tavrin::Playout
