#include "Soak/PlayedSession.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "Soak/Failure.h"

namespace Tavrin::Soak {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Playout::ReadinessRule;
using Playout::SessionOptions;
using Playout::SessionTrack;
using Playout::TickReport;
using Time::Ratio;
using Time::TimePoint;

namespace {

TimePoint Milliseconds(std::int64_t count) {
    return TimePoint().FromMilliseconds(count);
}

const std::vector<Ratio>& Speeds() {
    static const std::vector<Ratio> speeds{Ratio(1, 1),   Ratio(-1, 1), Ratio(2, 1),   Ratio(-2, 1),
                                           Ratio(4, 1),   Ratio(1, 2),  Ratio(-16, 1), Ratio(-3, 7),
                                           Ratio(400, 1), Ratio()};
    return speeds;
}

}  // namespace

PlayedSession::PlayedSession(const PhaseMeans& means, const Recordings& recordings)
    : choices_(means.choices_), totals_(means.totals_), breakage_(means.breakage_), bound_(means.bound_) {
    std::vector<SessionTrack> tracks;
    const std::int64_t nbTracks = choices_.Between(1, 6);
    for (std::int64_t track = 0; track < nbTracks; ++track) {
        tracks.push_back(AnyTrack(recordings));
    }
    session_ = std::make_unique<Playout::Session>(std::move(tracks), AnyOptions());
    ChooseStorage();
    ++totals_.nbSessions_;
}

SessionTrack PlayedSession::AnyTrack(const Recordings& recordings) {
    SessionTrack track;
    track.recording = choices_.Among(recordings);
    // The origin is before the end of the shortest recording.
    track.offset = Milliseconds(choices_.Between(-400, 2000));
    track.weight = static_cast<std::size_t>(choices_.Between(1, 3));
    const std::int64_t kind = choices_.Between(0, 3);
    const std::int64_t longest = choices_.Between(5, 60);
    if (kind == 2) {
        track.rule = ReadinessRule::Optional();
    } else if (kind == 3) {
        track.rule = ReadinessRule::HoldUpTo(Milliseconds(longest));
    }
    return track;
}

SessionOptions PlayedSession::AnyOptions() {
    SessionOptions options;
    options.nbPreloadWorkers = static_cast<std::size_t>(choices_.Between(1, 3));
    options.nbDecodeWorkers = static_cast<std::size_t>(choices_.Between(0, 4));
    options.ahead = Milliseconds(choices_.Between(100, 1500));
    options.behind = Milliseconds(choices_.Between(0, 300));
    options.retryAfter = std::chrono::milliseconds(choices_.Between(10, 200));
    return options;
}

void PlayedSession::ChooseStorage() {
    const std::int64_t kind = choices_.Between(0, 9);
    const std::uint64_t seed = choices_.Seed();
    UnsteadyStorage::Manner manner;
    manner.slow_ = choices_.Below(40);
    manner.stalled_ = choices_.Below(12);
    manner.failing_ = choices_.Below(25);
    if (kind < 2) {
        away_.emplace(*session_);
    } else if (kind < 8) {
        unsteady_.emplace(*session_, seed, manner);
    }
}

void PlayedSession::RestoreStorage() {
    if (away_) {
        away_->ComeBack();
    }
    if (unsteady_) {
        unsteady_->ComeBack();
    }
}

void PlayedSession::Step() {
    const std::int64_t kind = choices_.Between(0, 99);
    if (kind < 60) {
        Play();
    } else {
        Operate(kind);
    }
}

void PlayedSession::Play() {
    const std::int64_t kind = choices_.Between(0, 9);
    const std::chrono::milliseconds patience(choices_.Between(0, 6));
    const bool keeps = choices_.Chance(10);
    session_->WaitForProgress(patience);
    const TimePoint period = TimePoint::StartOfSample(1, session_->DisplayRate());
    if (kind == 0) {
        Judge(session_->TickInPlace());
    } else if (kind == 1) {
        Judge(session_->TickTo(std::max(session_->CurrentTime() + period * session_->Speed(), TimePoint())));
    } else {
        Judge(session_->Tick(kind == 2 ? TimePoint() : period));
    }
    if (keeps && !shown_.empty()) {
        kept_.push_back(shown_.back().lock());
    }
}

void PlayedSession::Operate(std::int64_t kind) {
    if (kind < 67) {
        session_->SetSpeed(choices_.Among(Speeds()));
    } else if (kind < 76) {
        session_->GoTo(AnyTime());
    } else if (kind < 82) {
        session_->DragTo(AnyTime());
    } else if (kind < 88) {
        StepByPicture();
    } else if (kind < 92) {
        ChangeMemory();
    } else if (kind < 94) {
        session_->AllowStandIns(choices_.Chance(50));
    } else if (kind < 95) {
        RestoreStorage();
    } else if (kind < 97) {
        kept_.clear();
    } else {
        Look();
    }
}

TimePoint PlayedSession::AnyTime() {
    // Beyond both ends, too.
    return Milliseconds(choices_.Between(-500, session_->End().Milliseconds() + 500));
}

void PlayedSession::StepByPicture() {
    const std::int64_t nbPictures = choices_.Between(-3, 3);
    const auto rate = session_->Recording(0).Rate();
    const std::int64_t sample =
        (session_->CurrentTime() - session_->Begin(0)).SampleNumber(rate) + nbPictures;
    session_->SetSpeed(Ratio());
    session_->GoTo(session_->Begin(0) + TimePoint::StartOfSample(sample, rate));
}

/// Refused when it is too little, and then nothing has changed.
void PlayedSession::ChangeMemory() {
    const auto percent = static_cast<std::size_t>(choices_.Between(5, 150));
    const std::size_t before = session_->Memory();
    const std::size_t wanted = std::max<std::size_t>(before / 100 * percent, 1);
    // Neither shrinking to the least for good nor growing without end.
    const std::size_t bytes = choices_.Chance(30) ? 0 : std::min(wanted, std::size_t{256} << 20U);
    try {
        session_->SetMemory(bytes);
    } catch (const std::invalid_argument&) {
        RequireEqual(session_->Memory(), before, "memory after a budget was refused");
    }
}

/// What a window and a collector ask for.
void PlayedSession::Look() {
    const auto nbCells = static_cast<std::size_t>(choices_.Between(1, 200));
    const std::size_t track = choices_.Below(session_->NbTracks());
    RequireEqual(session_->CellStates(track, {TimePoint(), session_->End(), nbCells}).size(), nbCells,
                 "cells");
    RequireEqual(session_->GetCounters().tracks.size(), session_->NbTracks(), "tracks counted");
    static_cast<void>(session_->HasAhead(3));
}

std::size_t PlayedSession::NbPending() const {
    std::size_t nb = 0;
    for (std::size_t track = 0; track < session_->NbTracks(); ++track) {
        nb += session_->GetInformation(track).nbPending;
    }
    return nb;
}

void PlayedSession::Quieten() {
    RestoreStorage();
    // They would count as taken.
    kept_.clear();
    session_->SetSpeed(Ratio());
    const auto end = Clock::now() + bound_;
    // What could not be had is asked for again when its time comes, so nothing may be out at two looks in a row; the
    // second one has dropped what no longer fits.
    for (int nbQuietLooks = 0; nbQuietLooks < 2;) {
        session_->WaitForProgress(nbQuietLooks == 0 ? 5ms : 0ms);
        bool isReady = false;
        {
            const TickReport report = session_->Tick(TimePoint());
            Judge(report);
            isReady = report.waits.empty();
        }
        const std::size_t nbPending = NbPending();
        nbQuietLooks = isReady && nbPending == 0 ? nbQuietLooks + 1 : 0;
        if (nbQuietLooks == 0 && Clock::now() > end) {
            throw Failure(std::to_string(nbPending) + " entries were never answered: waited for " +
                          std::to_string(bound_.count()) + " ms at " + session_->CurrentTime().ToString());
        }
    }
    CheckHeld();
    if (!shown_.empty()) {
        kept_.push_back(shown_.back().lock());
    }
}

}  // namespace Tavrin::Soak
