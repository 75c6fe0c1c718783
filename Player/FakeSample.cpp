#include "Player/FakeSample.h"

#include <algorithm>

namespace Tavrin::Player {

using Time::TimePoint;

namespace {

const std::uint8_t* Bytes(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.c_str());
}

}  // namespace

FakeSample::FakeSample(TimePoint tp, TimePoint duration)
    : tp_(tp),
      dur_(duration),
      prop_(std::to_string(tp.ToNanoseconds())),
      data_(std::to_string(duration.ToNanoseconds())) {
}

TimePoint FakeSample::GetTimePoint() const {
    return tp_;
}

TimePoint FakeSample::GetDuration() const {
    return dur_;
}

std::set<std::string> FakeSample::GetPropertyKeys() const {
    return {};
}

std::set<std::string> FakeSample::GetDataKeys() const {
    return {};
}

const std::uint8_t* FakeSample::GetProperty(const std::string& /*key*/, std::uint64_t& /*size*/) const {
    return Bytes(prop_);
}

const std::uint8_t* FakeSample::GetData(const std::string& /*key*/, std::uint64_t& /*size*/) const {
    return Bytes(data_);
}

std::int64_t FakeSample::Protect(std::int64_t protection) {
    return protectionCounter_.fetch_add(protection) + protection;
}

std::int64_t FakeSample::Unprotect(std::int64_t protection) {
    std::int64_t counter = protectionCounter_.load();
    std::int64_t rest = 0;
    do {
        rest = std::max<std::int64_t>(counter - protection, 0);
    } while (!protectionCounter_.compare_exchange_weak(counter, rest));
    return rest;
}

std::int64_t FakeSample::GetProtectionCounter() {
    return protectionCounter_.load();
}

}  // namespace Tavrin::Player
