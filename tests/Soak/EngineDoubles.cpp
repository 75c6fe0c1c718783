#include "Soak/EngineDoubles.h"

#include <stdexcept>
#include <thread>

namespace Tavrin::Soak {

using Player::DecodeOrder;
using Player::ISample;
using Player::Output;
using Player::PreloadOrder;

namespace {

/// Breaking begins when the phase is under way, and goes on: an order of a stream that goes shows nothing.
constexpr std::uint64_t kFirstBroken = 40;
constexpr std::uint64_t kBrokenPeriod = 10;

bool IsBroken(std::uint64_t order) {
    return order >= kFirstBroken && order % kBrokenPeriod == 0;
}

/// The fate of one order, drawn from what it asks for.
class Fate {
public:
    explicit Fate(std::uint64_t seed) : state_(seed) {}

    std::uint64_t Next(std::uint64_t end) {
        state_ = Mixed(state_, 0);
        return state_ % end;
    }

private:
    std::uint64_t state_;
};

Fate FateOf(std::uint64_t seed, std::int64_t track, const Time::TimePoint& tp) {
    return Fate(Mixed(Mixed(seed, static_cast<std::uint64_t>(track)),
                      static_cast<std::uint64_t>(tp.ToNanoseconds())));
}

void Dawdle(Fate& fate, const Mood& mood) {
    const auto kind = static_cast<int>(fate.Next(100));
    const auto microseconds = static_cast<std::int64_t>(fate.Next(3000));
    if (kind < mood.slowest_) {
        std::this_thread::sleep_for(kSlowest);
    } else if (kind < mood.slowest_ + mood.slow_) {
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    }
}

}  // namespace

Mood::Mood(Choices& choices)
    : seed_(choices.Seed()),
      slow_(static_cast<int>(choices.Between(0, 25))),
      slowest_(static_cast<int>(choices.Between(0, 2))),
      missing_(static_cast<int>(choices.Between(0, 8))),
      // Now and then the storage is as good as gone.
      failed_(choices.Chance(10) ? 60 : static_cast<int>(choices.Between(0, 8))),
      thrown_(static_cast<int>(choices.Between(0, 8))),
      undecodable_(static_cast<int>(choices.Between(0, 10))) {
}

Player::IPreloader::PreloadResult EngineStorage::Preload(const PreloadOrder& order) {
    Fate fate = FateOf(mood_.seed_, order.id_.Id(), order.tp_);
    Dawdle(fate, mood_);
    const std::uint64_t number = nbOrders_.fetch_add(1, std::memory_order_relaxed);
    const bool breaks = breakage_ != Breakage::None && IsBroken(number);
    if (breaks && breakage_ == Breakage::NeverAnswered) {
        return SUCCESS_EXIST;
    }
    if (breaks && breakage_ == Breakage::SampleLeaked) {
        ledger_.Make(order.tp_);
    }
    if (breaks && breakage_ == Breakage::AnsweredTwice) {
        Deliver(order, nullptr);
    }
    const auto kind = static_cast<int>(fate.Next(100));
    if (kind < mood_.missing_ + mood_.failed_) {
        Deliver(order, nullptr);
        return kind < mood_.missing_ ? SUCCESS_MISSING : ERROR;
    }
    Deliver(order, ledger_.Make(order.tp_));
    if (static_cast<int>(fate.Next(100)) < mood_.thrown_) {
        throw std::runtime_error("after the answer");
    }
    return SUCCESS_EXIST;
}

void EngineStorage::Deliver(const PreloadOrder& order, ISample* sample) {
    Output output;
    output.tp_ = order.tp_;
    output.sample_ = sample;
    if (!registry_.PushIfExists(order.queue_, output)) {
        delete sample;
    }
}

ISample* EngineDecoder::Decode(const DecodeOrder& order) {
    const Time::TimePoint tp = order.toDecode_->GetTimePoint();
    Fate fate = FateOf(mood_.seed_, -1, tp);
    // Removing a queue waits for the decodes in progress, so none of them takes long.
    if (static_cast<int>(fate.Next(100)) < mood_.slow_) {
        std::this_thread::sleep_for(std::chrono::microseconds(fate.Next(1000)));
    }
    Break(*order.toDecode_);
    const auto kind = static_cast<int>(fate.Next(200));
    if (kind < mood_.undecodable_) {
        throw std::runtime_error("undecodable");
    }
    return kind < 2 * mood_.undecodable_ ? nullptr : ledger_.Make(tp);
}

void EngineDecoder::Break(ISample& compressed) {
    const std::uint64_t number = nbOrders_.fetch_add(1, std::memory_order_relaxed);
    if (!IsBroken(number)) {
        return;
    }
    if (breakage_ == Breakage::ProtectionKept) {
        compressed.Protect(1);
    } else if (breakage_ == Breakage::ReleasedTwice) {
        compressed.Unprotect(1);
    }
}

}  // namespace Tavrin::Soak
