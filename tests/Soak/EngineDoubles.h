#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Player/DecodeOrder.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/PreloadOrder.h"
#include "Player/Support/WorkerLedger.h"
#include "Soak/Breakage.h"
#include "Soak/Choices.h"

// What becomes of an order depends on the seed, the track and the time point alone: it is the same whichever
// worker runs it, and when. Neither double takes a lock, which would hide from the thread sanitizer what the
// engine forgot to synchronise.

namespace Tavrin::Soak {

/// What the storage and the decoders of a phase are like, in percent of the orders.
struct Mood {
    explicit Mood(Choices& choices);

    std::uint64_t seed_;
    int slow_;     ///< Take up to 3 ms.
    int slowest_;  ///< Take kSlowest.
    int missing_;  ///< Answered without a sample.
    int failed_;   ///< The same, and reported as an error.
    int thrown_;   ///< A sample is delivered, then the storage throws.
    int undecodable_;
};

/// The longest that an order takes.
constexpr std::chrono::milliseconds kSlowest{20};

/// Answers every order once, through the registry.
///
/// *Threads:* thread-safe. *Ownership:* borrows ledger and registry.
class EngineStorage final : public Player::IPreloader {
public:
    EngineStorage(const Mood& mood, Player::Testing::Ledger& ledger,
                  Player::ExistingCacheUpdateQueues& registry, Breakage breakage)
        : mood_(mood), ledger_(ledger), registry_(registry), breakage_(breakage) {}

    PreloadResult Preload(const Player::PreloadOrder& order) override;

    /// Ignored: the registry is known from the beginning.
    void SetExistingCacheUpdateQueues(Player::ExistingCacheUpdateQueues*) override {}

private:
    void Deliver(const Player::PreloadOrder& order, Player::ISample* sample);

    const Mood mood_;
    Player::Testing::Ledger& ledger_;
    Player::ExistingCacheUpdateQueues& registry_;
    const Breakage breakage_;
    std::atomic<std::uint64_t> nbOrders_ = 0;
};

/// Yields a sample, or null, or throws std::runtime_error.
///
/// *Threads:* thread-safe. *Ownership:* borrows the ledger.
class EngineDecoder final : public Player::ISampleDecoder {
public:
    EngineDecoder(const Mood& mood, Player::Testing::Ledger& ledger, Breakage breakage)
        : mood_(mood), ledger_(ledger), breakage_(breakage) {}

    Player::ISample* Decode(const Player::DecodeOrder& order) override;

private:
    void Break(Player::ISample& compressed);

    const Mood mood_;
    Player::Testing::Ledger& ledger_;
    const Breakage breakage_;
    std::atomic<std::uint64_t> nbOrders_ = 0;
};

}  // namespace Tavrin::Soak
