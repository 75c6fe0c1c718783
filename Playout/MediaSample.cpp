#include "Playout/MediaSample.h"

#include <utility>

namespace Tavrin::Playout {

MediaSample::MediaSample(const Time::TimePoint& tp, const Time::TimePoint& duration, Properties properties)
    : tp_(tp), duration_(duration), properties_(std::move(properties)) {
}

std::set<std::string> MediaSample::GetPropertyKeys() const {
    std::set<std::string> keys;
    for (const auto& [key, value] : properties_) {
        keys.insert(key);
    }
    return keys;
}

const std::uint8_t* MediaSample::GetProperty(const std::string& key, std::uint64_t& size) const {
    const auto found = properties_.find(key);
    if (found == properties_.end()) {
        size = 0;
        return nullptr;
    }
    size = found->second.size();
    return reinterpret_cast<const std::uint8_t*>(found->second.data());
}

}  // namespace Tavrin::Playout
