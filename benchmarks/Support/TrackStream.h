#pragma once

#include "Player/IStream.h"

namespace Tavrin::Player::Bench {

/// A stream that is always ready: the player asks each of its streams at every tick.
class TrackStream final : public Stream {
public:
    Time::TimePoint Begin() override { return {}; }
    void SetBegin(const Time::TimePoint&) override {}
    Time::TimePoint End() override { return {}; }
    void SetEnd(const Time::TimePoint&) override {}
    bool Exists(const Time::TimePoint&) override { return true; }
    Time::TimePoint Next(const Time::TimePoint& tp) override { return tp; }
    Time::TimePoint Previous(const Time::TimePoint& tp) override { return tp; }
    SampleStatus GetCurrentSample(ISample**) override { return SampleStatus::Same; }
    void SetStreamParameters(const StreamParameters&) override {}
    const StreamParameters& GetStreamParameters() override {
        static const StreamParameters parameters;
        return parameters;
    }
    void LinkPlayer(IPlayer*) override {}
    void UnlinkPlayer() override {}
    bool IsLinked() override { return true; }
    bool IsReady() override { return true; }
    CacheUpdateQueue* GetCacheUpdateQueue() override { return nullptr; }
    CacheUpdateQueue* GetUncompressedCacheUpdateQueue() override { return nullptr; }
    void SetCompressedPreloadNumber(std::size_t) override {}
    std::int32_t DebugPreloadQueueSize() override { return 0; }
};

}  // namespace Tavrin::Player::Bench
