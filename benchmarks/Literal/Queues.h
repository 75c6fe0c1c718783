#pragma once

#include <cstdint>

#include "Literal/LockedDeque.h"
#include "Player/ISample.h"
#include "Player/Output.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Literal {

/// The way of samples into a literal cache.
///
/// *Threads:* thread-safe.
class CacheUpdateQueue {
public:
    CacheUpdateQueue() = default;
    CacheUpdateQueue(const CacheUpdateQueue&) = delete;
    CacheUpdateQueue& operator=(const CacheUpdateQueue&) = delete;
    virtual ~CacheUpdateQueue();

    void Push(const Output& output);
    bool Pop(Output& out);

private:
    LockedDeque<Output> entries_;
};

/// `Player::PreloadOrder` with the literal queue as its destination.
struct PreloadOrder {
    PreloadOrder() = default;
    PreloadOrder(const PreloadOrder&) = default;
    PreloadOrder& operator=(const PreloadOrder&) = default;
    virtual ~PreloadOrder() = default;

    Time::TimePoint tp_;
    SampleRate s_;
    CacheUpdateQueue* queue_ = nullptr;
    TrackId id_;
    std::int32_t priority_ = 0;
};

/// `Player::DecodeOrder` with the literal queue as its destination.
struct DecodeOrder {
    DecodeOrder() = default;
    DecodeOrder(const DecodeOrder&) = default;
    DecodeOrder& operator=(const DecodeOrder&) = default;
    virtual ~DecodeOrder() = default;

    ISample* toDecode_ = nullptr;
    Time::TimePoint orderTp_;
    CacheUpdateQueue* queue_ = nullptr;
    bool decodeTopField_ = true;
    bool isInterlace_ = false;
    SampleRate fieldSampleRate_;
    std::int32_t width_ = 0;
    std::int32_t height_ = 0;
};

/// Adds one unit to a semaphore that all queues of its kind share with every push, as the next one does.
///
/// *Threads:* thread-safe.
class PreloadOrderQueue {
public:
    void Push(const PreloadOrder& order);
    bool Pop(PreloadOrder& out);

private:
    LockedDeque<PreloadOrder> queue_;
};

class DecodeOrderQueue {
public:
    void Push(const DecodeOrder& order);
    bool Pop(DecodeOrder& out);

private:
    LockedDeque<DecodeOrder> queue_;
};

}  // namespace Tavrin::Player::Literal
