#include "Soak/PlayoutPhase.h"

#include <string>

#include "Playout/Support/Clips.h"

namespace Tavrin::Soak {

using Playout::RecordingIndex;

namespace Clips = Playout::Support::Clips;

Recordings SmallRecordings() {
    Recordings recordings;
    for (const std::string& file :
         {Clips::LongGroups(), Clips::OpenGroups(), Clips::SingleGroup(), Clips::Short(), Clips::Ntsc(),
          Clips::VariableRate(), Clips::HoledMatroska(), Clips::MotionJpeg(), Clips::Mpeg2Interlaced()}) {
        recordings.push_back(RecordingIndex::Build(file));
    }
    return recordings;
}

PlayoutPhase::PlayoutPhase(const PhaseMeans& means, const Recordings& recordings)
    : means_(means), recordings_(recordings) {
}

void PlayoutPhase::Run() {
    auto& reopened = recordings_[means_.choices_.Below(recordings_.size())];
    reopened = RecordingIndex::Build(reopened->File());
    const std::int64_t nbSessions = means_.choices_.Between(1, 3);
    const std::int64_t nbSteps = means_.choices_.Between(60, 160);
    for (std::int64_t session = 0; session < nbSessions; ++session) {
        sessions_.push_back(std::make_unique<PlayedSession>(means_, recordings_));
    }
    for (std::int64_t step = 0; step < nbSteps; ++step) {
        Step();
    }
    for (const auto& session : sessions_) {
        session->Quieten();
    }
    for (const auto& session : sessions_) {
        session->Close();
    }
    sessions_.clear();
}

void PlayoutPhase::Step() {
    const bool reopens = means_.choices_.Chance(3);
    auto& session = sessions_[means_.choices_.Below(sessions_.size())];
    if (reopens) {
        // With all that is out for it.
        session->Close();
        session = std::make_unique<PlayedSession>(means_, recordings_);
    }
    session->Step();
}

}  // namespace Tavrin::Soak
