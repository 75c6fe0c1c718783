#include "Soak/EnginePhase.h"

#include <chrono>
#include <optional>

#include "Player/Support/Moments.h"
#include "Soak/Failure.h"

namespace Tavrin::Soak {

using Player::SampleRate;
using Player::Testing::Ms;
using Player::Testing::SimulatedTrack;
using Time::Ratio;

namespace {

/// Several times what a phase makes.
constexpr std::size_t kNbSamples = 40'000;

constexpr std::size_t kMaxStreams = 7;

/// The slots of the timed worker know so many tracks.
constexpr std::int64_t kNbTracks = 8;

const std::vector<Ratio>& Speeds() {
    static const std::vector<Ratio> speeds{Ratio(1, 1),  Ratio(-1, 1), Ratio(2, 1), Ratio(-2, 1),
                                           Ratio(4, 1),  Ratio(-8, 1), Ratio(1, 2), Ratio(-3, 7),
                                           Ratio(16, 1), Ratio()};
    return speeds;
}

}  // namespace

EnginePhase::EnginePhase(const PhaseMeans& means)
    : choices_(means.choices_),
      totals_(means.totals_),
      ledger_(kNbSamples),
      mood_(means.choices_),
      storage_(mood_, ledger_, registry_, means.breakage_),
      decoder_(mood_, ledger_, means.breakage_),
      workers_(storage_, decoder_, registry_),
      client_(workers_, registry_, means.bound_, means.totals_) {
}

void EnginePhase::Run() {
    const std::int64_t nbStreams = choices_.Between(1, kMaxStreams);
    const std::int64_t nbSteps = choices_.Between(60, 160);
    const bool isStormy = choices_.Chance(40);
    client_.Head().WaitWhenStreamIsNotReady(choices_.Chance(70));
    for (std::int64_t stream = 0; stream < nbStreams; ++stream) {
        client_.Add(AnyTrack());
    }
    workers_.StartAll();
    {
        std::optional<Restarts> restarts;
        if (isStormy) {
            restarts.emplace(workers_);
        }
        for (std::int64_t step = 0; step < nbSteps; ++step) {
            Step();
        }
    }
    client_.Settle();
    workers_.StopAll();
    client_.CheckQuiet(ledger_);
    client_.Clear();
    CheckSamples();
}

void EnginePhase::Step() {
    const std::int64_t kind = choices_.Between(0, 99);
    if (kind < 55) {
        Play();
    } else {
        Operate(kind);
    }
    client_.Drive();
}

/// A tick, with some time for the workers before it.
void EnginePhase::Play() {
    client_.DriveFor(std::chrono::milliseconds(choices_.Between(0, 6)));
    client_.Tick(Ms(40));
    const bool holds = choices_.Chance(15);
    const std::size_t stream = AnyStream();
    const std::int64_t nbTicks = choices_.Between(1, 25);
    if (holds) {
        client_.Hold(stream, static_cast<std::uint64_t>(nbTicks));
    }
}

void EnginePhase::Operate(std::int64_t kind) {
    if (kind < 63) {
        client_.Head().SetSpeed(choices_.Among(Speeds()));
    } else if (kind < 72) {
        client_.Head().GoTo(Ms(choices_.Between(0, 60'000)));
    } else if (kind < 77) {
        workers_.Restart(choices_.Below(workers_.NbWorkers()));
    } else if (kind < 82) {
        client_.ToggleAttached(AnyStream());
    } else if (kind < 88) {
        ChangeStreams();
    } else if (kind < 91) {
        client_.Requeue(AnyStream());
    } else if (kind < 96) {
        const std::int64_t nbDecoded = choices_.Between(1, 10);
        const std::int64_t nbCompressed = nbDecoded + choices_.Between(0, 12);
        client_.Resize(AnyStream(), static_cast<std::size_t>(nbDecoded),
                       static_cast<std::size_t>(nbCompressed));
    } else {
        client_.Settle();
    }
}

/// One comes or goes; neither none nor too many.
void EnginePhase::ChangeStreams() {
    const bool grows = choices_.Chance(50);
    const std::size_t nb = client_.NbStreams();
    if (nb == 1 || (grows && nb < kMaxStreams)) {
        client_.Add(AnyTrack());
    } else {
        client_.Remove(AnyStream());
    }
}

SimulatedTrack EnginePhase::AnyTrack() {
    SimulatedTrack track;
    track.track_ = nextTrack_++ % kNbTracks;
    track.rate_ = choices_.Among(std::vector<SampleRate>{SampleRate(25, 1), SampleRate(50, 1),
                                                         SampleRate(30000, 1001), SampleRate(24, 1)});
    track.display_ =
        choices_.Among(std::vector<SampleRate>{SampleRate(25, 1), SampleRate(50, 1), SampleRate(60, 1)});
    track.end_ = Ms(choices_.Between(5'000, 60'000));
    track.nbDecoded_ = choices_.Between(1, 8);
    track.nbCompressed_ = track.nbDecoded_ + choices_.Between(0, 8);
    track.nbBehind_ = choices_.Between(0, 4);
    track.nbProtections_ = 1;
    return track;
}

/// Caches, queues and clients are gone.
void EnginePhase::CheckSamples() const {
    Require(!ledger_.Overflowed(), "the phase has made more samples than there is room for");
    totals_.nbSamples_ += ledger_.NbMade();
    RequireEqual<std::size_t>(ledger_.NbLeaked(), 0, "samples leaked");
    RequireEqual<std::size_t>(ledger_.NbDeletedTwice(), 0, "samples deleted twice");
    RequireEqual<std::size_t>(ledger_.NbUsedLate(), 0, "samples used after their deletion");
    RequireEqual<std::size_t>(ledger_.NbReleasedTooOften(), 0, "samples released more often than protected");
}

}  // namespace Tavrin::Soak
