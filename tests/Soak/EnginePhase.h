#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Support/WorkerLedger.h"
#include "Player/Support/WorkerStorm.h"
#include "Player/Support/WorkerStream.h"
#include "Soak/EngineClient.h"
#include "Soak/EngineDoubles.h"
#include "Soak/Phase.h"

namespace Tavrin::Soak {

/// Stops and starts all workers of a phase, at their own pace, as long as it lives.
class Restarts {
public:
    explicit Restarts(Player::Testing::StormWorkers& workers) { workers.AddStorms(threads_, over_); }
    Restarts(const Restarts&) = delete;
    Restarts& operator=(const Restarts&) = delete;
    ~Restarts() {
        over_ = true;
        Player::Testing::JoinAll(threads_);
    }

private:
    std::atomic<bool> over_ = false;
    std::vector<std::thread> threads_;
};

/// The engine on doubles, driven at random for a second or so: the play head, streams that come and go, and workers
/// that are restarted while they serve them.
///
/// *Threads:* bound to one thread. *Errors:* Failure when something does not hold.
class EnginePhase {
public:
    explicit EnginePhase(const PhaseMeans& means);

    void Run();

private:
    void Step();
    void Play();
    void Operate(std::int64_t kind);
    void ChangeStreams();
    [[nodiscard]] Player::Testing::SimulatedTrack AnyTrack();
    std::size_t AnyStream() { return choices_.Below(client_.NbStreams()); }
    void CheckSamples() const;

    Choices& choices_;
    Totals& totals_;
    // What a member uses is declared before it.
    Player::Testing::Ledger ledger_;
    Player::ExistingCacheUpdateQueues registry_;
    const Mood mood_;
    EngineStorage storage_;
    EngineDecoder decoder_;
    Player::Testing::StormWorkers workers_;
    EngineClient client_;
    std::int64_t nextTrack_ = 0;
};

}  // namespace Tavrin::Soak
