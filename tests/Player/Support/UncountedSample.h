#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <set>
#include <string>

#include "Player/ISample.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// A sample whose memory does not come from the global operator new: what AllocationCount.h counts is then the engine's
/// doing alone.
///
/// *Threads:* immutable but for the protection of the base.
class UncountedSample final : public ISample {
public:
    explicit UncountedSample(const Time::TimePoint& tp) : tp_(tp) {}

    static void* operator new(std::size_t size) {
        void* const memory = std::malloc(size);
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        return memory;
    }
    static void operator delete(void* memory) { std::free(memory); }

    Time::TimePoint GetTimePoint() const override { return tp_; }
    Time::TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }

private:
    Time::TimePoint tp_;
};

}  // namespace Tavrin::Player::Testing
