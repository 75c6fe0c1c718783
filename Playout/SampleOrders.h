#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "Player/Cache.h"
#include "Player/DecodeOrder.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/IStream.h"
#include "Player/PreloadOrder.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/SampleRate.h"
#include "Playout/FieldOrder.h"
#include "Playout/Trace.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// The orders of one stream: what was asked of the workers for its two caches, and what came of it. Every order leaves
/// a pending entry in its cache, and every entry is answered, by a worker or, where the order is taken back, here.
///
/// *Threads:* bound to the stream's thread; the queues are shared with the workers. *Blocking:* never.
/// *Ownership:* owns the queues; borrows caches, parameters, samples and trace. *Errors:* none.
class SampleOrders final {
public:
    /// `rate` is that of the compressed samples; `fields` tells how decoded ones are made of them.
    SampleOrders(Player::Cache& compressed, Player::Cache& decoded, const FieldOrder& fields,
                 const Player::SampleRate& rate, const Player::Stream::StreamParameters& parameters);

    [[nodiscard]] Player::PreloadOrderQueue& Reads() { return reads_; }
    [[nodiscard]] Player::DecodeOrderQueue& Decodes() { return decodes_; }
    void SetTrace(Trace* trace) { trace_ = trace; }

    /// Orders the sample there, of the recording, unless there is an entry for it already.
    void Read(const Time::TimePoint& tp);

    /// Orders the decoded sample there unless there is an entry for it already; where it is not read yet, that first.
    void Decode(const Time::TimePoint& tp);

    /// It could be decoded, but nobody has been asked to, and others are ordered before it.
    [[nodiscard]] bool IsOvertaken(const Time::TimePoint& tp);

    /// Files what was delivered. Whether something that a worker had begun when orders were withdrawn was answered with
    /// nothing: it may have been given up, which says nothing about whether the sample can be had.
    bool Intake();

    /// Takes back the orders that no worker has begun.
    void Withdraw();

    /// The same, only for what has been passed; `hasPassed` is told a place and the rate of its samples. Reads only where
    /// more than `nbReads` wait: putting an order back wakes a worker, perhaps for nothing.
    void WithdrawPassed(
        const std::function<bool(const Time::TimePoint&, const Player::SampleRate&)>& hasPassed,
        std::size_t nbReads);

    /// Answers of workers filed so far, and orders taken back.
    [[nodiscard]] std::uint64_t NbAnswers() const { return nbAnswers_; }
    [[nodiscard]] std::uint64_t NbWithdrawn() const { return nbWithdrawn_; }

    /// Records something about the stream's track.
    void Record(const char* category, const char* name, const TraceArgument& argument) const;

private:
    void PushDecode(Player::ISample& compressed, const Time::TimePoint& tp);
    void AnswerWithNothing(Player::CacheUpdateQueue& queue, const Time::TimePoint& tp);
    void TakeBack(const Player::PreloadOrder& order);
    void TakeBack(const Player::DecodeOrder& order);
    void RecordWithdrawal(std::uint64_t nbBefore) const;

    Player::Cache& compressed_;
    Player::Cache& decoded_;
    const FieldOrder& fields_;
    Player::SampleRate rate_;
    const Player::Stream::StreamParameters& parameters_;
    Trace* trace_ = nullptr;
    Player::PreloadOrderQueue reads_;
    Player::DecodeOrderQueue decodes_;
    std::vector<Time::TimePoint> begunReads_;  ///< In the hands of workers when orders were withdrawn.
    std::vector<Time::TimePoint> begunDecodes_;
    std::uint64_t nbAnswers_ = 0;
    std::uint64_t nbOwnAnswers_ = 0;  ///< In the queues, not yet filed, given here.
    std::uint64_t nbWithdrawn_ = 0;
};

}  // namespace Tavrin::Playout
