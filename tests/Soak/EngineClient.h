#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Player/Support/WorkerLedger.h"
#include "Player/Support/WorkerStorm.h"
#include "Player/Support/WorkerStream.h"
#include "Soak/Totals.h"

namespace Tavrin::Soak {

/// A client that plays some streams, which come and go, and keeps account of what it asked for, what it got and
/// what it holds.
///
/// Its functions throw Failure as soon as something is not as it must be.
///
/// *Threads:* bound to one thread. *Ownership:* borrows workers, registry and totals.
class EngineClient {
public:
    using SimulatedStream = Player::Testing::SimulatedStream;

    /// A request that is not answered within `bound` counts as one that never is.
    EngineClient(Player::Testing::StormWorkers& workers, Player::ExistingCacheUpdateQueues& registry,
                 std::chrono::milliseconds bound, Totals& totals)
        : workers_(workers), registry_(registry), bound_(bound), totals_(totals) {}
    EngineClient(const EngineClient&) = delete;
    EngineClient& operator=(const EngineClient&) = delete;
    ~EngineClient() { Clear(); }

    Player::Player& Head() { return head_; }
    [[nodiscard]] std::size_t NbStreams() const { return live_.size(); }

    void Add(const Player::Testing::SimulatedTrack& settings);

    /// Takes a stream away from workers, registry and player, whatever is out for it. Streams are counted from
    /// the oldest.
    void Remove(std::size_t stream);
    void Clear();

    /// Detaches a stream from the player; the next time attaches it again. Meanwhile nothing is ordered for it.
    void ToggleAttached(std::size_t stream);

    /// Takes a stream's order queues away from the workers and gives them back.
    void Requeue(std::size_t stream);

    /// From now on so many samples are kept at hand; at least as many compressed as decoded ones.
    void Resize(std::size_t stream, std::size_t nbDecoded, std::size_t nbCompressed);

    /// Moves the play head and looks at what all streams show.
    void Tick(const Time::TimePoint& delta);

    /// Protects what a stream shows, if anything, and keeps it for so many ticks.
    void Hold(std::size_t stream, std::uint64_t nbTicks);

    /// Files and orders once for each stream; whether there is still something to wait for.
    bool Drive();

    /// The same, again and again, for that long or until there is nothing to wait for.
    void DriveFor(std::chrono::milliseconds span);

    /// Until every request has been answered.
    void Settle();

    /// All workers are stopped: nothing is out, each request was answered once, and every sample there is has
    /// a place.
    void CheckQuiet(const Player::Testing::Ledger& ledger);

private:
    struct Live {
        SimulatedStream* stream_ = nullptr;
        bool isAttached_ = true;
        std::uint64_t nbOut_ = 0;  ///< Requests without an answer.
    };

    struct Held {
        SimulatedStream* stream_ = nullptr;
        Player::ISample* sample_ = nullptr;
        Time::TimePoint tp_;
        std::uint64_t until_ = 0;
    };

    void Drive(Live& live);
    void Intake(Live& live);
    void CheckShown(SimulatedStream& stream) const;
    void Release(const Held& held) const;
    void ReleaseDue();
    void ReleaseAll();
    void ReleaseOf(const SimulatedStream& stream);
    [[nodiscard]] std::size_t NbHeld() const;
    [[nodiscard]] std::int64_t NbProtected() const;

    Player::Testing::StormWorkers& workers_;
    Player::ExistingCacheUpdateQueues& registry_;
    const std::chrono::milliseconds bound_;
    Totals& totals_;
    Player::Player head_;
    /// A place is never used again: a worker may still have an order for a queue that was there, and would answer
    /// into a new one at the same address.
    std::deque<std::optional<SimulatedStream>> places_;
    std::vector<Live> live_;
    std::vector<Held> held_;
    std::uint64_t nbTicks_ = 0;
};

}  // namespace Tavrin::Soak
