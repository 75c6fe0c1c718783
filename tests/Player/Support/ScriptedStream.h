#pragma once

#include <cstddef>
#include <cstdint>

#include "Player/IStream.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// A stream whose answers the test sets and which counts what it is asked.
///
/// *Threads:* bound to one thread.
class ScriptedStream : public Stream {
public:
    ScriptedStream() = default;
    explicit ScriptedStream(std::int64_t track) { parameters_.trackId_.SetId(track); }

    // What the test sets.
    void SetReady(bool ready) { ready_ = ready; }
    void SetLinked(bool linked) { linked_ = linked; }
    void SetEmpty(bool empty) { currentSampleIsEmpty = empty; }
    bool Preloading() const { return preloading_; }

    // What the test asks.
    int NbReadyCalls() const { return nbReadyCalls_; }
    int NbParameterCalls() const { return nbParameterCalls_; }

    /// Calls of everything that a player has no business calling.
    int NbForeignCalls() const { return nbForeignCalls_; }

    Time::TimePoint Begin() override { return Foreign(Time::TimePoint()); }
    void SetBegin(const Time::TimePoint&) override { ++nbForeignCalls_; }
    Time::TimePoint End() override { return Foreign(Time::TimePoint()); }
    void SetEnd(const Time::TimePoint&) override { ++nbForeignCalls_; }
    bool Exists(const Time::TimePoint&) override { return Foreign(true); }
    Time::TimePoint Next(const Time::TimePoint& tp) override { return Foreign(tp); }
    Time::TimePoint Previous(const Time::TimePoint& tp) override { return Foreign(tp); }
    SampleStatus GetCurrentSample(ISample**) override { return Foreign(SampleStatus::NotReady); }
    void SetStreamParameters(const StreamParameters& parameters) override {
        ++nbForeignCalls_;
        parameters_ = parameters;
    }
    const StreamParameters& GetStreamParameters() override {
        ++nbParameterCalls_;
        return parameters_;
    }
    void LinkPlayer(IPlayer*) override { ++nbForeignCalls_; }
    void UnlinkPlayer() override { ++nbForeignCalls_; }
    bool IsLinked() override { return linked_; }
    bool IsReady() override {
        ++nbReadyCalls_;
        return ready_;
    }
    CacheUpdateQueue* GetCacheUpdateQueue() override { return Foreign<CacheUpdateQueue*>(nullptr); }
    CacheUpdateQueue* GetUncompressedCacheUpdateQueue() override {
        return Foreign<CacheUpdateQueue*>(nullptr);
    }
    void SetCompressedPreloadNumber(std::size_t) override { ++nbForeignCalls_; }
    std::int32_t DebugPreloadQueueSize() override { return Foreign(0); }

private:
    template <typename Answer>
    Answer Foreign(Answer answer) {
        ++nbForeignCalls_;
        return answer;
    }

    StreamParameters parameters_;
    bool ready_ = true;
    bool linked_ = true;
    int nbReadyCalls_ = 0;
    int nbParameterCalls_ = 0;
    int nbForeignCalls_ = 0;
};

}  // namespace Tavrin::Player::Testing
