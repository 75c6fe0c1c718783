#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>

#include "Player/ISample.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// The smallest sample that works: it carries a time point and a duration, and shows both, in nanoseconds, as
/// decimal text.
///
/// *Threads:* immutable but for the protection counter, which is an atomic of its own and takes no lock (the
/// base's locked counter is not used).
class TAVRIN_PLAYER_EXPORT FakeSample : public ISample {
public:
    FakeSample(Time::TimePoint tp, Time::TimePoint duration);

    Time::TimePoint GetTimePoint() const override;
    Time::TimePoint GetDuration() const override;

    /// Always empty, although any key is answered below.
    std::set<std::string> GetPropertyKeys() const override;
    std::set<std::string> GetDataKeys() const override;

    /// The time point's text, ended by a zero byte, whatever the key; `size` is not written.
    const std::uint8_t* GetProperty(const std::string& key, std::uint64_t& size) const override;

    /// The duration's text, ended by a zero byte, whatever the key; `size` is not written.
    const std::uint8_t* GetData(const std::string& key, std::uint64_t& size) const override;

    std::int64_t Protect(std::int64_t protection) override;
    std::int64_t Unprotect(std::int64_t protection) override;
    std::int64_t GetProtectionCounter() override;

private:
    Time::TimePoint tp_;
    Time::TimePoint dur_;
    std::string prop_;
    std::string data_;
    std::atomic<std::int64_t> protectionCounter_ = 0;
};

}  // namespace Tavrin::Player
