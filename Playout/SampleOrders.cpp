#include "Playout/SampleOrders.h"

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
#include "Player/Output.h"
#include "Playout/CacheLookup.h"

namespace Tavrin::Playout {

using Player::Cache;
using Player::ISample;
using Player::SampleRate;
using Time::TimePoint;

namespace {

/// The orders that no worker has begun, oldest first.
template <typename Order, typename Queue>
std::vector<Order> TakeAll(Queue& queue) {
    std::vector<Order> orders;
    for (Order order; queue.Pop(order);) {
        orders.push_back(order);
    }
    return orders;
}

std::vector<TimePoint> PendingIn(Cache& cache, const SampleRate& rate) {
    std::vector<TimePoint> pending;
    for (const std::int64_t number : cache.FindMultiples(rate)) {
        const TimePoint tp = TimePoint::StartOfSample(number, rate);
        if (EntryAt(cache, tp, rate) == Cache::Pending) {
            pending.push_back(tp);
        }
    }
    return pending;
}

/// Removes those that are not pending any more; whether one of them was answered with nothing.
bool SettleAnswered(Cache& cache, const SampleRate& rate, std::vector<TimePoint>& begun) {
    bool hasNothing = false;
    std::erase_if(begun, [&](const TimePoint& tp) {
        const Cache::EntryType type = EntryAt(cache, tp, rate);
        hasNothing = hasNothing || type == Cache::Missing;
        return type != Cache::Pending;
    });
    return hasNothing;
}

/// Of the sample that it yields.
TimePoint TimeOf(const Player::DecodeOrder& order) {
    TimePoint tp;
    TimePoint duration;
    order.GenerateTimePointAndDuration(tp, duration);
    return tp;
}

}  // namespace

SampleOrders::SampleOrders(Cache& compressed, Cache& decoded, const FieldOrder& fields,
                           const SampleRate& rate, const Player::Stream::StreamParameters& parameters)
    : compressed_(compressed), decoded_(decoded), fields_(fields), rate_(rate), parameters_(parameters) {
}

void SampleOrders::Read(const TimePoint& tp) {
    const TimePoint whole = tp.AlignWith(rate_);
    if (compressed_.InsertPendingEntry(whole)) {
        return;
    }
    Record("order", "read", {"sample", tp.SampleNumber(rate_)});
    reads_.Push(Player::PreloadOrder(whole, rate_, compressed_.GetQueue(), parameters_.trackId_));
}

void SampleOrders::Decode(const TimePoint& tp) {
    ISample* compressed = nullptr;
    switch (compressed_.GetSample(tp, rate_, &compressed, false)) {
        case Cache::Not_Found:
            Read(tp);
            return;
        case Cache::Pending:
            return;
        case Cache::Missing:
            if (!decoded_.InsertPendingEntry(tp)) {
                AnswerWithNothing(*decoded_.GetQueue(), tp);
            }
            return;
        case Cache::Valid:
            if (!decoded_.InsertPendingEntry(tp)) {
                PushDecode(*compressed, tp);
            }
            return;
    }
}

void SampleOrders::PushDecode(ISample& compressed, const TimePoint& tp) {
    Player::DecodeOrder order;
    order.toDecode_ = &compressed;
    fields_.Aim(order, tp);
    order.queue_ = decoded_.GetQueue();
    order.width_ = parameters_.width_;
    order.height_ = parameters_.height_;
    compressed.Protect(1);
    Record("order", "decode", {"sample", tp.SampleNumber(rate_)});
    decodes_.Push(order);
}

bool SampleOrders::IsOvertaken(const TimePoint& tp) {
    return decodes_.GetSize() > 0 && EntryAt(decoded_, tp, fields_.Rate()) == Cache::Not_Found &&
           EntryAt(compressed_, tp, rate_) == Cache::Valid;
}

bool SampleOrders::Intake() {
    const std::size_t nbFiled = compressed_.Update() + decoded_.Update();
    nbAnswers_ += nbFiled - nbOwnAnswers_;
    nbOwnAnswers_ = 0;
    const bool read = SettleAnswered(compressed_, fields_.Rate(), begunReads_);
    const bool decoded = SettleAnswered(decoded_, fields_.Rate(), begunDecodes_);
    return read || decoded;
}

void SampleOrders::AnswerWithNothing(Player::CacheUpdateQueue& queue, const TimePoint& tp) {
    Player::Output nothing;
    nothing.tp_ = tp;
    queue.Push(nothing);
    ++nbOwnAnswers_;
}

void SampleOrders::TakeBack(const Player::PreloadOrder& order) {
    AnswerWithNothing(*order.queue_, order.tp_);
    ++nbWithdrawn_;
}

void SampleOrders::TakeBack(const Player::DecodeOrder& order) {
    order.toDecode_->Unprotect(1);
    AnswerWithNothing(*order.queue_, TimeOf(order));
    ++nbWithdrawn_;
}

void SampleOrders::Withdraw() {
    const std::uint64_t nbBefore = nbWithdrawn_;
    for (const Player::PreloadOrder& order : TakeAll<Player::PreloadOrder>(reads_)) {
        TakeBack(order);
    }
    for (const Player::DecodeOrder& order : TakeAll<Player::DecodeOrder>(decodes_)) {
        TakeBack(order);
    }
    RecordWithdrawal(nbBefore);
    Intake();
    begunReads_ = PendingIn(compressed_, fields_.Rate());
    begunDecodes_ = PendingIn(decoded_, fields_.Rate());
}

void SampleOrders::WithdrawPassed(const std::function<bool(const TimePoint&, const SampleRate&)>& hasPassed,
                                  std::size_t nbReads) {
    const std::uint64_t nbBefore = nbWithdrawn_;
    if (reads_.GetSize() > nbReads) {
        for (const Player::PreloadOrder& order : TakeAll<Player::PreloadOrder>(reads_)) {
            if (hasPassed(order.tp_, rate_)) {
                TakeBack(order);
            } else {
                reads_.Push(order);
            }
        }
    }
    for (const Player::DecodeOrder& order : TakeAll<Player::DecodeOrder>(decodes_)) {
        if (hasPassed(TimeOf(order), fields_.Rate())) {
            TakeBack(order);
        } else {
            decodes_.Push(order);
        }
    }
    if (nbWithdrawn_ > nbBefore) {
        RecordWithdrawal(nbBefore);
    }
}

void SampleOrders::RecordWithdrawal(std::uint64_t nbBefore) const {
    Record("order", "withdraw", {"orders", static_cast<std::int64_t>(nbWithdrawn_ - nbBefore)});
}

void SampleOrders::Record(const char* category, const char* name, const TraceArgument& argument) const {
    if (trace_ != nullptr) {
        trace_->Mark(category, name, {{"track", parameters_.trackId_.Id()}, argument});
    }
}

}  // namespace Tavrin::Playout
