// What a session that is operated at random is judged by; what operates it stands in PlayedSession.cpp.

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "Soak/Failure.h"
#include "Soak/PlayedSession.h"

namespace Tavrin::Soak {

using Player::SampleStatus;
using Playout::TickReport;
using Playout::TrackView;
using Time::Ratio;

void PlayedSession::Judge(const TickReport& report) {
    ++totals_.nbTicks_;
    RequireEqual(report.tracks.size(), session_->NbTracks(), "tracks in a report");
    std::size_t nbWaits = 0;
    for (std::size_t track = 0; track < report.tracks.size(); ++track) {
        const TrackView& view = report.tracks[track];
        if (view.status == SampleStatus::NotReady) {
            RequireEqual(nbWaits < report.waits.size() ? report.waits[nbWaits].track : SIZE_MAX, track,
                         "track that is waited for");
            ++nbWaits;
        }
        JudgeTrack(report, track);
        if (view.picture != nullptr && view.status == SampleStatus::New) {
            shown_.push_back(view.picture);
        }
    }
    RequireEqual(report.waits.size(), nbWaits, "waits in a report");
}

/// What a track shows belongs where the play head is, or the track says that it does not.
void PlayedSession::JudgeTrack(const TickReport& report, std::size_t track) const {
    const TrackView& view = report.tracks[track];
    if (view.status == SampleStatus::NotReady || view.missing || view.standIn) {
        return;
    }
    const auto exact = session_->PictureAtTime(track, report.time);
    const std::string place = "track " + std::to_string(track) + " at " + report.time.ToString();
    if (!exact) {
        Require(view.status == SampleStatus::Empty && view.picture == nullptr,
                place + " shows a picture outside of its recording");
    } else if (session_->Speed().Abs() <= Ratio(1, 1)) {
        Require(view.picture != nullptr, place + " shows nothing");
        RequireEqual(view.picture->Number(), *exact, "picture of " + place);
    }
}

void PlayedSession::CheckHeld() const {
    const Playout::Counters counters = session_->GetCounters();
    for (std::size_t number = 0; number < counters.tracks.size(); ++number) {
        const Playout::TrackCounters& track = counters.tracks[number];
        const std::string place = " of track " + std::to_string(number) + ", " + track.file;
        RequireEqual(track.fetches.nbFetched - track.fetches.nbEvicted, track.fetches.nbReady,
                     "live decoded samples" + place);
        Require(track.fetches.nbProtected <= 1, "more than the picture on show is protected" + place);
        Require(track.bytes.pictures <= track.bytes.budget, "pictures take more than the budget" + place +
                                                                ": " + std::to_string(track.bytes.pictures) +
                                                                " of " + std::to_string(track.bytes.budget));
    }
}

void PlayedSession::Count() {
    const Playout::TrackCounters all = session_->GetCounters().All();
    totals_.nbReads_ += all.reads.nbReads;
    totals_.nbFailedReads_ += all.reads.nbFailed;
    totals_.nbPictures_ += all.fetches.nbFetched;
    totals_.nbWithdrawn_ += all.fetches.nbWithdrawn;
}

void PlayedSession::Close() {
    Count();
    std::vector<std::shared_ptr<const Picture>> overlooked;
    if (breakage_ == Breakage::PictureKept && !shown_.empty()) {
        overlooked.push_back(shown_.back().lock());
        kept_.clear();
    }
    session_.reset();
    std::set<const Picture*> kept;
    for (const auto& picture : kept_) {
        kept.insert(picture.get());
    }
    kept.erase(nullptr);
    std::set<const Picture*> live;
    for (const auto& picture : shown_) {
        live.insert(picture.lock().get());
    }
    live.erase(nullptr);
    RequireEqual(live.size(), kept.size(), "pictures left of a closed session");
    kept_.clear();
    Require(std::all_of(shown_.begin(), shown_.end(), [](const auto& picture) { return picture.expired(); }),
            "pictures are left of a closed session that nobody keeps");
}

}  // namespace Tavrin::Soak
