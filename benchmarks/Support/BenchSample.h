#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Bench {

/// A sample without content whose deletion does nothing, so that what is measured is the engine's cost and
/// not that of a client's samples. Its protection counter is the engine's own.
class BenchSample final : public ISample {
public:
    /// Called by a delete expression in place of destruction and deallocation: the arena keeps the sample.
    static void operator delete(BenchSample*, std::destroying_delete_t) {}

    Time::TimePoint GetTimePoint() const override { return {}; }
    Time::TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t& size) const override {
        size = 0;
        return nullptr;
    }
    const std::uint8_t* GetData(const std::string&, std::uint64_t& size) const override {
        size = 0;
        return nullptr;
    }
};

/// Samples that are handed out again and again. Both versions of a case draw from the same arena, so that
/// their answers can be compared by address.
class SampleArena {
public:
    explicit SampleArena(std::size_t size) : samples_(size) {}

    ISample* At(std::size_t number) { return &samples_[number % samples_.size()]; }

private:
    std::vector<BenchSample> samples_;
};

}  // namespace Tavrin::Player::Bench
